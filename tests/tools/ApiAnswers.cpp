#include <chrono>
#include <cstdlib>
#include <iostream>
#include <string>
#include <string_view>
#include <vector>

#include "ApiHost.h"
#include "FidFields.h"
#include "sal/LogManager.h"

// Answers one request to the API as a host would that has a little of everything, so that api_test.py can
// hold the answers against docs/api.yaml without a host. Takes the words that the test gives to curl:
// --request METHOD,
// --header "Content-Type: TYPE", --data-binary BODY, --write-out (which must be "\n%{http_code}") and the
// address; others are passed over. The caller's role is the environment's API_ROLE, admin for none.

namespace {

void fill(ApiHost& host) {
    WorkplaceFile::Entry axis;
    axis.driverID = "AXIS1";
    axis.driverType = "Axis";
    axis.version = "2.1";
    axis.interfaceType = EInterfaceTypes::Queue;
    WorkplaceFile::Entry lamp = axis;
    lamp.driverID = "LAMP";
    lamp.interfaceType = EInterfaceTypes::Direct;
    host.drivers.configure({axis, lamp}, true);
    host.drivers.processStarted("LAMP", 41);
    host.drivers.processEnded("LAMP", 41, "signal 11", {}, true);
    host.drivers.processStarted("AXIS1", 42);
    host.catalogue = {{.file = "/d/axis.xml",
                       .line = 4,
                       .name = "An axis",
                       .module = "/d/axis.so",
                       .type = "Axis",
                       .version = "2.1"}};
    host.places["AXIS1"] = {.directory = "data/AXIS1", .networkAdapter = "eth1"};
    host.macroNames = {"home"};
    sal::MessageQueue::Status queue;
    queue.name = "AXIS1_INQ";
    queue.capacity = 512;
    queue.receiverAttached = true;
    queue.receiverPid = 42;
    host.queues = {queue};
    host.lines = {{.when = {}, .level = 2, .output = "HOST", .driverID = "LAMP", .text = "LAMP: ended"}};
    host.lastWords = {"assertion failed"};
    host.sessions = {
        {.id = 1, .user = "anna", .uid = 1000, .pid = 43, .role = ERole::Admin, .since = {}, .requests = 3},
        {.id = 4,
         .user = "anna",
         .uid = 1000,
         .pid = {},
         .role = ERole::View,
         .since = {},
         .requests = 2,
         .address = "192.0.2.7",
         .used = std::chrono::system_clock::time_point(),
         .expires = std::chrono::system_clock::time_point()}};
    host.alarmList = {{.key = "LAMP.DRIVER", .text = "ended: signal 11", .raised = {}}};
    host.webCode = {
        .refusal = "", .code = "123456", .url = "http://127.0.0.1:8080", .validFor = std::chrono::minutes(2)};
    host.fids = {{.driverID = "AXIS1", .outcome = "delivered", .fids = 3}};
    host.answers = {{200, 5}};
    host.deliveries = {{.queue = "AXIS1_INQ", .counts = {3, 1}, .sum = 0.03}};
    host.drivers.callBegins("LAMP", "initialize");
    host.store.setStateValue("AXIS1.LABEL", "left");
    host.store.setStateValueInt("AXIS1.TURNS", -7);
    host.store.setStateValueFloat("AXIS1.POSITION", 10.5f);
    host.store.setStateValueBool("LAMP.ON", true);
    host.store.driverEnded("LAMP", "signal 11");
    host.store.triggerEvent("AXIS1.HOMED", "");
    host.changes = {
        .version = 5, .isComplete = true, .entries = host.store.entries(""), .unset = {"LAMP.OLD"}};
    host.activity = {.busy = true, .what = "reload of LAMP", .driverID = "LAMP", .since = host.now};
    const WorkplacePlan::Change change{WorkplacePlan::EAction::Reload, "AXIS1", "module changed"};
    host.plan = {.id = "p1",
                 .digest = "ab",
                 .refusal = "",
                 .findings = {{Finding::ESeverity::Warning, "w.xml", 0, "is not signed"}},
                 .changes = {change}};
    host.applied.history = 4;
    host.applied.changes = {{change, true, ""}};
    host.history = {{.number = 3, .when = {}, .who = "anna", .digest = "ab", .outcome = "done"}};
    host.files[3] = "<workplaces/>";
    host.report = R"({"file": "w.xml", "errors": 0, "warnings": 1, "findings": [)"
                  R"({"severity": "warning", "file": "w.xml", "line": null, "text": "is not signed"}]})";
}

ERole role() {
    const char* pRole = std::getenv("API_ROLE");
    for (const ERole role : {ERole::None, ERole::View, ERole::Operate}) {
        if (pRole && std::string_view(pRole) == inWords(role))
            return role;
    }
    return ERole::Admin;
}

/// What becomes of FIDs here: those to AXIS1 are delivered.
void deliver(const ApiHost& host) {
    for (const ApiHost::SentFid& fid : host.sentFids) {
        FidOutcome outcome;
        outcome.isFinal = true;
        outcome.driverID = fid.text.substr(0, fid.text.find('.'));
        outcome.took = std::chrono::microseconds(120);
        if (outcome.driverID == "AXIS1") {
            outcome.stage = EFidStage::Delivered;
            outcome.result = true;
        } else {
            outcome.stage = EFidStage::Nobody;
            outcome.reason = EFidReason::NoSuchDriver;
            outcome.nearest = {"AXIS1"};
        }
        fid.told(outcome);
    }
}

}  // namespace

int main(int argc, char** argv) {
    ApiCall call;
    call.method = "GET";
    call.caller.role = role();
    call.caller.name = "anna";
    const std::vector<std::string> words(argv + 1, argv + argc);
    for (std::size_t i = 0; i < words.size(); ++i) {
        const std::string next = i + 1 < words.size() ? words[i + 1] : std::string();
        if (words[i] == "--request")
            call.method = next;
        else if (words[i] == "--data-binary")
            call.body = next;
        else if (words[i] == "--header" && next.starts_with("Content-Type: "))
            call.contentType = next.substr(next.find(' ') + 1);
        else if (words[i].starts_with("http://"))
            call.target = words[i].substr(words[i].find('/', 7));
    }
    sal::LogManager log({.level = 0, .file = {}, .tag = {}});
    ApiHost host(RestartPlan::Settings{});
    fill(host);
    std::string error;
    const auto pRing =
        stream::StreamRing::create({.path = {},
                                    .sizes = {stream::StreamRing::s_smallest, stream::StreamRing::s_smallest},
                                    .instance = "i1"},
                                   Observation::now(), error);
    Observation observation(*pRing);
    const stream::StreamSource source(*pRing);
    const RecordedStream recorded(source, observation.keys());
    host.pRecorded = &recorded;
    observation.started("AXIS1", 42, "");
    const std::uint16_t axis = observation.number("AXIS1");
    const stream::FidFields move("AXIS1.MOVE");
    observation.stream().fid(Observation::now(), {.receiver = axis,
                                                  .origin = stream::EOrigin::Api,
                                                  .outcome = stream::EFidOutcome::Written,
                                                  .who = "anna",
                                                  .fields = move.bytes()});
    observation.stream().valueText(
        Observation::now(), {observation.keys().key(axis, "AXIS1.LABEL", Observation::now()), "AXIS1.LABEL"},
        "left");
    ApiHandler handler(host.context());
    handler.handle(call, [](const ApiAnswer& answer) {
        std::cout << answer.body;
        IAnswerBody::Piece piece{{}, answer.pMore ? IAnswerBody::ENext::AtOnce : IAnswerBody::ENext::End};
        while (piece.next == IAnswerBody::ENext::AtOnce) {
            piece = answer.pMore->next();
            std::cout << piece.text;
        }
        std::cout << "\n" << answer.status << std::flush;
    });
    deliver(host);
    host.runPosted();
    return 0;
}
