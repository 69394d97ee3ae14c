#include <algorithm>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "ApiHost.h"
#include "Expect.h"
#include "MetricsText.h"
#include "sal/LogManager.h"

// Whatever is sent to the API, in any role: it is answered once, in JSON or as metrics, with one of the
// statuses that there are; nothing is done that the role may not, GET changes nothing, and what bears a
// request ID is done once.

namespace {

using Json = nlohmann::json;

/// The input: a byte of the role, the method and what the host is like, the target up to the line's end, the
/// body.
struct Input {
    ApiCall call;
    bool isStopping = false;
    bool isRefusing = false;
    bool isLate = false;
};

Input read(const std::uint8_t* data, std::size_t size) {
    Input input;
    const std::uint8_t bits = size > 0 ? data[0] : 0;
    const std::string text(reinterpret_cast<const char*>(data) + std::min<std::size_t>(size, 1),
                           size > 0 ? size - 1 : 0);
    const std::size_t end = std::min(text.find('\n'), text.size());
    input.call.caller.role = static_cast<ERole>(bits & 3);
    input.call.caller.name = "anna";
    input.call.method = bits & 4 ? "POST" : bits & 8 ? "PUT" : "GET";
    input.call.contentType = bits & 16 ? "text/plain" : "application/json";
    input.isStopping = bits & 32;
    input.isRefusing = bits & 64;
    input.isLate = bits & 128;
    input.call.target = text.substr(0, end);
    input.call.body = text.substr(std::min(end + 1, text.size()));
    return input;
}

void fill(ApiHost& host, const Input& input) {
    host.drivers.processStarted("AXIS1", 42);
    host.store.setStateValue("AXIS1.A", "a\xff\"");
    host.changes.entries = host.store.entries("");
    host.macroNames = {"home", "a/b"};
    host.history = {{.number = 3, .when = {}, .who = "anna", .digest = "ab", .outcome = ""}};
    host.files[3] = "<workplaces/>";
    host.isStopping = input.isStopping;
    host.isPosting = !input.isStopping;
    host.outcome.output = "said\n";
    host.outcome.refusal = input.isRefusing ? "it is not to be" : "";
    host.applied.refusal = host.outcome.refusal;
}

std::vector<ApiAnswer> answers(ApiHandler& handler, ApiHost& host, const Input& input) {
    std::vector<ApiAnswer> given;
    handler.handle(input.call, [&](const ApiAnswer& answer) { given.push_back(answer); });
    expect(given.size() <= 1, "a call is answered once at most on its own thread");
    if (input.isLate)
        host.passLimits();
    for (const ApiHost::SentFid& fid : std::exchange(host.sentFids, {})) {
        FidOutcome outcome;
        outcome.stage = input.isRefusing ? EFidStage::Nobody : EFidStage::Written;
        outcome.reason = input.isRefusing ? EFidReason::NotRunning : EFidReason::None;
        host.calls.push_back("fid " + fid.text);
        fid.told(outcome);
    }
    host.runPosted();
    host.passLimits();
    return given;
}

/// What was asked of the host that changes something.
std::size_t deeds(const ApiHost& host) {
    return static_cast<std::size_t>(std::count_if(host.calls.begin(), host.calls.end(), [](const auto& call) {
        return !call.starts_with("changes ") && !call.starts_with("log of ");
    }));
}

void check(const ApiAnswer& answer) {
    static const std::set<unsigned> s_statuses{200, 202, 400, 403, 404, 405, 409, 413, 415, 429, 500, 503};
    expect(s_statuses.contains(answer.status), "the status is one of those that there are");
    expect(answer.status != 500, "nothing is a fault of the host");
    if (answer.contentType == MetricsText::s_contentType) {
        expect(answer.status == 200 && answer.body.starts_with("# HELP "), "metrics are no error");
        expect(std::none_of(answer.body.begin(), answer.body.end(),
                            [](unsigned char c) { return (c < 0x20 && c != '\n') || c == 0x7f; }),
               "nothing in them steers a terminal");
        return;
    }
    const Json json = Json::parse(answer.body, nullptr, false);
    expect(json.is_object(), "the answer is an object of JSON");
    const bool isError = answer.status >= 400;
    expect(isError == json.contains("error"), "an error says so");
    if (isError)
        expect(!json["error"]["code"].get<std::string>().empty() &&
                   !json["error"]["text"].get<std::string>().empty() && json["error"]["nearest"].size() <= 3,
               "an error has its code, its text and few names");
    expect((answer.status == 405) == !answer.allow.empty(), "methods are told with 405 alone");
    const bool isPlain = std::none_of(answer.body.begin(), answer.body.end(),
                                      [](unsigned char c) { return c < 0x20 || c == 0x7f; });
    expect(isPlain, "nothing in it steers a terminal");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static sal::LogManager s_log({.level = 0, .file = {}, .tag = {}});
    const Input input = read(data, size);
    ApiHost host;
    fill(host, input);
    ApiHandler handler(host.context());

    const std::vector<ApiAnswer> first = answers(handler, host, input);
    expect(first.size() == 1, "a call is answered once");
    check(first[0]);
    const std::size_t done = deeds(host);
    const bool mayAct = input.call.caller.role >= ERole::Operate && input.call.method == "POST";
    expect(mayAct || done == 0, "nothing is done that the role or the method may not");
    expect(input.call.caller.role != ERole::None || (first[0].status == 403 && host.looks == 0),
           "without a role nothing is even looked at");
    expect(done <= 1, "a call does one thing at most");
    expect(first[0].status == 200 || first[0].status == 202 || first[0].status == 409 || done == 0 ||
               host.calls.front().starts_with("reload "),
           "what is refused is not done");

    const std::vector<ApiAnswer> second = answers(handler, host, input);
    expect(second.size() == 1, "a call that comes again is answered once");
    check(second[0]);
    const Json body = Json::parse(input.call.body, nullptr, false);
    if (done == 1 && body.is_object() && body.contains("request")) {
        expect(deeds(host) == 1, "what bears a request ID is done once");
        expect(input.isLate || second[0] == first[0], "and answered the same");
    }
    return 0;
}
