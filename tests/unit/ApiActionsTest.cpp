#include "ApiActions.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <regex>
#include <stdexcept>
#include <string>
#include <vector>

#include "ApiFault.h"
#include "ApiHost.h"
#include "LogCapture.h"
#include "RecordedLines.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using Texts = std::vector<std::string>;

class ApiActionsTest : public testing::Test {
protected:
    using Act = void (ApiActions::*)(const ApiRequest&) const;

    ApiActionsTest() {
        m_caller.role = ERole::Admin;
        m_caller.name = "anna";
        m_host.drivers.processStarted("AXIS1", 42);
    }

    /// Only begins it. Why it is not even begun, or empty.
    std::string begin(Act pAct, const std::string& json, const std::string& name = {},
                      const std::string& request = {}) {
        const ApiBody body(
            json, {"fid", "parameters", "wait", "key", "type", "value", "id", "plan", "number", "line",
                   "columns", "role", "keys", "seconds", "take", "unlessHeld", "request", "timeoutMs"});
        const auto pAnswer = std::make_shared<AnswerOnce>([this](const ApiAnswer& answer) {
            m_answers.push_back(std::to_string(answer.status) + " " + answer.body);
        });
        if (!request.empty())
            m_pMemory->begin("anna", request, json, pAnswer);
        const auto pAction = std::make_shared<PendingAction>(m_pMemory, "anna", request, pAnswer);
        try {
            (m_sut.*pAct)({m_caller, name, body, pAction});
        } catch (const ApiFault& fault) {
            pAction->end({});
            m_answers.clear();
            return std::to_string(fault.answer().status) + " " + fault.answer().body;
        }
        return {};
    }
    /// The answer once all is done.
    std::string act(Act pAct, const std::string& json, const std::string& name = {}) {
        m_answers.clear();
        std::string fault = begin(pAct, json, name);
        m_host.runPosted();
        if (!fault.empty())
            return fault;
        return m_answers.size() == 1 ? m_answers.front() : std::to_string(m_answers.size()) + " answers";
    }
    /// How a FID's outcome is told.
    std::string outcome(const FidOutcome& outcome, const std::string& wait = "taken",
                        const std::string& request = {}) {
        m_answers.clear();
        begin(&ApiActions::sendFid, "{\"fid\":\"AXIS1.MOVE\",\"wait\":\"" + wait + "\"}", {}, request);
        m_host.sentFids.back().told(outcome);
        return m_answers.at(0);
    }
    static FidOutcome at(EFidStage stage, bool isFinal) {
        FidOutcome outcome;
        outcome.stage = stage;
        outcome.isFinal = isFinal;
        outcome.driverID = "AXIS1";
        outcome.took = std::chrono::microseconds(123);
        return outcome;
    }
    static FidOutcome failed(EFidReason reason) {
        FidOutcome outcome = at(EFidStage::Nobody, true);
        outcome.reason = reason;
        return outcome;
    }
    static std::string timeless(const std::string& json) {
        return std::regex_replace(json, std::regex("\"since\":\"[^\"]*\""), "\"since\":\"TIME\"");
    }

    static AlarmList::Alarm alarm(const std::string& key) { return {.key = key, .text = {}, .raised = {}}; }

    LogCapture m_log;
    std::vector<std::string> m_answers;
    ApiHost m_host;
    ApiContext m_context = m_host.context();
    ApiReading m_reading{m_context};
    ApiCaller m_caller;
    std::shared_ptr<RequestMemory> m_pMemory = std::make_shared<RequestMemory>();
    ApiActions m_sut{m_context, m_reading};
};

const std::string s_axis =
    "{\"id\":\"AXIS1\",\"type\":\"\",\"version\":\"\",\"mode\":\"queue\",\"state\":\"running\","
    "\"status\":\"running\",\"alive\":true,\"pid\":42,\"byHand\":false,\"start\":1,\"since\":\"TIME\","
    "\"cause\":\"\",\"restarts\":0,\"nextTryMs\":null,\"receivedPerSecond\":0,\"sentPerSecond\":0,"
    "\"queuedIn\":null,\"queuedOut\":null,\"valuesLost\":0}";

}  // namespace

TEST_F(ApiActionsTest, FidGoesToItsSenderAsItIs) {
    EXPECT_EQ("", begin(&ApiActions::sendFid,
                        R"({"fid":"AXIS1.MOVE","parameters":[["x",1.50],["x","a b"]],"wait":"delivered",)"
                        R"("timeoutMs":700})"));
    ASSERT_EQ(1u, m_host.sentFids.size());
    EXPECT_EQ("AXIS1.MOVE (x=1.50, x=a b)", m_host.sentFids[0].text);
    EXPECT_EQ(EFidStage::Delivered, m_host.sentFids[0].waitFor);
    EXPECT_EQ(std::chrono::milliseconds(700), m_host.sentFids[0].limit);
    EXPECT_THAT(m_host.posted, IsEmpty()) << "the command thread has no part in it";
}

TEST_F(ApiActionsTest, FidIsWaitedForUntilItIsAcceptedWhereNothingElseIsAskedFor) {
    begin(&ApiActions::sendFid, R"({"fid":"AXIS1.MOVE"})");
    EXPECT_EQ("AXIS1.MOVE ()", m_host.sentFids.at(0).text);
    EXPECT_EQ(EFidStage::Accepted, m_host.sentFids.at(0).waitFor);
    EXPECT_EQ(std::chrono::milliseconds(5000), m_host.sentFids.at(0).limit);
}

TEST_F(ApiActionsTest, FidNeedsAName) {
    EXPECT_EQ(
        "400 {\"error\":{\"code\":\"request-invalid\",\"text\":\"\\\"fid\\\" is missing\",\"nearest\":[]}}",
        begin(&ApiActions::sendFid, "{}"));
    EXPECT_THAT(begin(&ApiActions::sendFid, R"({"fid":"A.B","wait":"written"})"),
                HasSubstr("known are accepted, dispatched, delivered, taken"));
    EXPECT_THAT(m_host.sentFids, IsEmpty());
}

TEST_F(ApiActionsTest, FidThatHasComeFarEnoughIsOver) {
    EXPECT_EQ("200 {\"fid\":\"AXIS1.MOVE\",\"driver\":\"AXIS1\",\"stage\":\"taken\",\"tookUs\":123}",
              outcome(at(EFidStage::Taken, true)));
    EXPECT_THAT(
        outcome(at(EFidStage::Accepted, false), "accepted"),
        testing::StartsWith("200 {\"fid\":\"AXIS1.MOVE\",\"driver\":\"AXIS1\",\"stage\":\"accepted\","));
    EXPECT_THAT(outcome(at(EFidStage::Written, false), "delivered"), HasSubstr("200 "));
    EXPECT_THAT(outcome(at(EFidStage::Delivered, true), "taken"), HasSubstr("\"stage\":\"delivered\""));
}

TEST_F(ApiActionsTest, FidThatGoesOnWhenTheTimeIsUpIsToldAsFarAsItCame) {
    EXPECT_EQ("202 {\"fid\":\"AXIS1.MOVE\",\"driver\":\"AXIS1\",\"stage\":\"written\",\"tookUs\":123}",
              outcome(at(EFidStage::Written, false), "taken"));
    EXPECT_THAT(outcome(at(EFidStage::Accepted, false), "dispatched"), HasSubstr("202 "));
}

TEST_F(ApiActionsTest, FidsResultAndRequestAreTold) {
    FidOutcome delivered = at(EFidStage::Delivered, true);
    delivered.result = false;
    EXPECT_EQ(
        "200 {\"request\":\"r1\",\"fid\":\"AXIS1.MOVE\",\"driver\":\"AXIS1\",\"stage\":\"delivered\","
        "\"result\":false,\"tookUs\":123}",
        outcome(delivered, "delivered", "r1"));
}

TEST_F(ApiActionsTest, FidThatReachesNobodyHasItsReason) {
    FidOutcome nobody = failed(EFidReason::NoSuchDriver);
    nobody.text = "there is no driver AXSI1";
    nobody.nearest = {"AXIS1"};
    EXPECT_EQ(
        "409 {\"error\":{\"code\":\"fid-undelivered\",\"text\":\"there is no driver AXSI1\","
        "\"reason\":\"no-such-driver\",\"nearest\":[\"AXIS1\"]}}",
        outcome(nobody));
}

TEST_F(ApiActionsTest, EachReasonHasItsWordAndText) {
    const std::vector<std::pair<EFidReason, std::string>> reasons{
        {EFidReason::None, "it reached no driver\",\"reason\":\"no-such-driver\""},
        {EFidReason::NoSuchDriver, "there is no such driver\",\"reason\":\"no-such-driver\""},
        {EFidReason::NotRunning, "the driver does not run\",\"reason\":\"not-running\""},
        {EFidReason::TakesNoFids, "the driver takes no FIDs\",\"reason\":\"takes-no-fids\""},
        {EFidReason::TooLong, "it is too long for one message\",\"reason\":\"too-long\""},
        {EFidReason::UnknownFunction, "the driver knows no such function\",\"reason\":\"unknown-function\""},
        {EFidReason::Refused, "the driver has refused it\",\"reason\":\"refused\""},
        {EFidReason::Threw, "the driver has thrown an exception\",\"reason\":\"threw\""}};
    for (const auto& [reason, text] : reasons)
        EXPECT_EQ("409 {\"error\":{\"code\":\"fid-undelivered\",\"text\":\"AXIS1.MOVE is not delivered: " +
                      text + ",\"nearest\":[]}}",
                  outcome(failed(reason)));
    EXPECT_EQ(
        "503 {\"error\":{\"code\":\"queue-full\",\"text\":\"AXIS1.MOVE is not delivered: the driver's queue "
        "is full\",\"nearest\":[]}}",
        outcome(failed(EFidReason::QueueFull)));
    EXPECT_EQ(
        "503 {\"error\":{\"code\":\"stopping\",\"text\":\"AXIS1.MOVE is not delivered: the host is "
        "stopping\","
        "\"nearest\":[]}}",
        outcome(failed(EFidReason::Stopping)));
}

TEST_F(ApiActionsTest, ValuesAreSetOnTheCommandThread) {
    EXPECT_EQ("", begin(&ApiActions::setState, R"({"key":"A.B","type":"float","value":0.5})"));
    EXPECT_THAT(m_answers, IsEmpty());
    EXPECT_THAT(m_host.calls, IsEmpty());
    ASSERT_EQ(1u, m_host.posted.size());
    EXPECT_EQ("setStateValue A.B", m_host.posted[0].first);
    m_host.runPosted();
    EXPECT_EQ(Texts{"set A.B to float 0.5"}, m_host.calls);
    EXPECT_EQ(Texts{"200 {}"}, m_answers);
}

TEST_F(ApiActionsTest, WrongValueIsNotPosted) {
    EXPECT_THAT(begin(&ApiActions::setState, R"({"key":"A","type":"int","value":"7"})"), HasSubstr("400 "));
    EXPECT_THAT(begin(&ApiActions::setState, R"({"key":"","type":"int","value":7})"), HasSubstr("400 "));
    EXPECT_THAT(m_host.posted, IsEmpty());
}

TEST_F(ApiActionsTest, KeyAndValueHaveALength) {
    const auto body = [](std::size_t key, std::size_t value) {
        return R"({"key":")" + std::string(key, 'k') + R"(","type":"string","value":")" +
               std::string(value, 'v') + "\"}";
    };
    EXPECT_EQ("", begin(&ApiActions::setState, body(1024, 8192)));
    EXPECT_EQ(1u, m_host.posted.size());
    EXPECT_THAT(begin(&ApiActions::setState, body(1025, 1)),
                HasSubstr(R"("text":"\"key\" has 1025 bytes where 1024 at most are kept")"));
    EXPECT_THAT(begin(&ApiActions::setState, body(1, 8193)),
                HasSubstr(R"("text":"\"value\" has 8193 bytes where 8192 at most are kept")"));
    EXPECT_EQ(1u, m_host.posted.size());
}

TEST_F(ApiActionsTest, ValueIsForgotten) {
    m_host.store.setStateValue("A.B", "x");
    EXPECT_EQ("200 {}", act(&ApiActions::unsetState, R"({"key":"A.B"})"));
    EXPECT_EQ(Texts{"unset A.B"}, m_host.calls);
}

TEST_F(ApiActionsTest, UnknownValueIsToldWithTheNearest) {
    m_host.store.setStateValue("A.POSITION", "x");
    m_host.store.setStateValue("B.POSITION", "x");
    EXPECT_EQ(
        "404 {\"error\":{\"code\":\"state-unknown\",\"text\":\"there is no value A.POSTION\","
        "\"nearest\":[\"A.POSITION\"]}}",
        act(&ApiActions::unsetState, R"({"key":"A.POSTION"})"));
    EXPECT_THAT(m_host.calls, IsEmpty());
}

TEST_F(ApiActionsTest, EventIsTriggered) {
    EXPECT_EQ("200 {}", act(&ApiActions::triggerEvent, R"({"id":"A.DONE","value":""})"));
    EXPECT_EQ(Texts{"event A.DONE "}, m_host.calls);
    EXPECT_THAT(act(&ApiActions::triggerEvent, R"({"id":"A.DONE"})"), HasSubstr("400 "));
}

TEST_F(ApiActionsTest, AlarmsAreAcknowledgedWithTheNameOfWhoDoesIt) {
    m_host.alarmList = {alarm("A.DRIVER"), alarm("SYS"), alarm("B.DRIVER")};
    m_caller.place = "web session 4 from 192.0.2.7";
    EXPECT_EQ(R"(200 {"acknowledged":["A.DRIVER","SYS"]})",
              act(&ApiActions::acknowledge, R"({"keys":["A.DRIVER","GONE","SYS"]})"));
    ASSERT_EQ(1u, m_host.alarmList.size());
    EXPECT_EQ("B.DRIVER", m_host.alarmList[0].key);
    EXPECT_THAT(m_host.posted, IsEmpty()) << "it waits for no command";
    EXPECT_THAT(m_log.text(), HasSubstr("A.DRIVER: the alarm is acknowledged by anna (web session 4 from "
                                        "192.0.2.7)\n"));
    EXPECT_THAT(m_log.text(), HasSubstr("SYS: the alarm is acknowledged by anna (web session 4 from "));
}

TEST_F(ApiActionsTest, AlarmsAreShelvedWithTheNameOfWhoDoesIt) {
    m_host.alarmList = {alarm("A.DRIVER"), alarm("SYS")};
    m_caller.place = "web session 4 from 192.0.2.7";
    const auto before = AlarmList::Clock::now();
    EXPECT_EQ(R"(200 {"shelved":["SYS"]})", act(&ApiActions::shelve, R"({"keys":["SYS"],"seconds":600})"));
    EXPECT_FALSE(m_host.alarmList[0].shelvedUntil);
    ASSERT_TRUE(m_host.alarmList[1].shelvedUntil);
    EXPECT_GE(*m_host.alarmList[1].shelvedUntil, before + std::chrono::seconds(600));
    EXPECT_EQ("anna", m_host.alarmList[1].shelvedBy);
    EXPECT_THAT(m_log.text(),
                HasSubstr("SYS: the alarm is shelved for 600 s by anna (web session 4 from 192.0.2.7)\n"));
    EXPECT_EQ(R"(200 {"shelved":["SYS"]})", act(&ApiActions::shelve, R"({"keys":["SYS"]})"));
    EXPECT_LE(*m_host.alarmList[1].shelvedUntil, AlarmList::Clock::now());
    EXPECT_THAT(m_log.text(), HasSubstr("SYS: the alarm is put back in sight by anna (web session 4 from "));
    EXPECT_EQ(
        R"(400 {"error":{"code":"request-invalid","text":"\"seconds\" is at most 604800","nearest":[]}})",
        act(&ApiActions::shelve, R"({"keys":["SYS"],"seconds":604801})"));
}

TEST_F(ApiActionsTest, AlarmThatIsNotThereIsToldWithTheNearest) {
    m_host.alarmList = {alarm("LAMP.DRIVER")};
    EXPECT_EQ(
        R"(404 {"error":{"code":"alarm-unknown","text":"there is no alarm LAMB.DRIVER","nearest":["LAMP.DRIVER"]}})",
        act(&ApiActions::acknowledge, R"({"keys":["LAMB.DRIVER"]})"));
    for (const char* pBody :
         {R"({})", R"({"keys":[]})", R"({"keys":"SYS"})", R"({"keys":[1]})", R"({"keys":[""]})"})
        EXPECT_THAT(act(&ApiActions::acknowledge, pBody), HasSubstr("400 ")) << pBody;
    EXPECT_EQ(1u, m_host.alarmList.size());
}

TEST_F(ApiActionsTest, ControlsAreTakenOverInOneLineThatNamesBoth) {
    m_caller = {
        .role = ERole::Operate, .name = "otto", .place = "web session 3 from 192.0.2.8", .webSession = 3};
    const std::string since = R"x("since":"[-0-9T:.]+Z"}})x";
    EXPECT_THAT(
        act(&ApiActions::changeControls, R"({"take":true})"),
        testing::MatchesRegex(
            R"x(200 [{]"controls":[{]"name":"otto","from":"web session 3 from 192[.]0[.]2[.]8","session":3,)x" +
            since));
    EXPECT_THAT(m_log.text(), HasSubstr("otto (web session 3 from 192.0.2.8) takes the controls\n"));
    act(&ApiActions::changeControls, R"({"take":true})");
    m_caller = {.role = ERole::Operate, .name = "anna", .uid = 1000};
    EXPECT_EQ(
        R"(409 {"error":{"code":"refused","text":"otto (web session 3 from 192.0.2.8) has the controls","nearest":[]}})",
        act(&ApiActions::changeControls, R"({"take":true,"unlessHeld":true})"));
    EXPECT_THAT(
        act(&ApiActions::changeControls, R"({"take":true})"),
        testing::MatchesRegex(
            R"x(200 [{]"controls":[{]"name":"anna","from":"the control socket","session":null,)x" + since));
    EXPECT_THAT(m_log.text(),
                HasSubstr("anna takes the controls over from otto (web session 3 from 192.0.2.8)\n"));
    EXPECT_THAT(m_log.text(), Not(HasSubstr("controls over from anna")));
    EXPECT_EQ(m_log.text().find("otto (web session 3 from 192.0.2.8) takes"),
              m_log.text().rfind("otto (web session 3 from 192.0.2.8) takes"))
        << "what one has already is not told again";
    EXPECT_THAT(m_host.posted, IsEmpty()) << "it waits for no command";
}

TEST_F(ApiActionsTest, ControlsAreGivenBackByTheHolderOrAnAdmin) {
    EXPECT_EQ(R"(200 {"controls":null})", act(&ApiActions::changeControls, R"({"take":false})"));
    EXPECT_EQ("", m_log.text()) << "nobody had them";
    m_caller = {.role = ERole::Operate, .name = "otto", .uid = 1001};
    act(&ApiActions::changeControls, R"({"take":true})");
    m_caller = {.role = ERole::Operate, .name = "anna", .uid = 1000};
    EXPECT_EQ(
        R"(403 {"error":{"code":"not-allowed","text":"otto has the controls; the holder or an admin gives them back","nearest":[]}})",
        act(&ApiActions::changeControls, R"({"take":false})"));
    m_caller.role = ERole::Admin;
    EXPECT_EQ(R"(200 {"controls":null})", act(&ApiActions::changeControls, R"({"take":false})"));
    EXPECT_THAT(m_log.text(), HasSubstr("anna gives the controls of otto back\n"));
    act(&ApiActions::changeControls, R"({"take":true})");
    EXPECT_EQ(R"(200 {"controls":null})", act(&ApiActions::changeControls, R"({"take":false})"));
    EXPECT_THAT(m_log.text(), HasSubstr("anna gives the controls back\n"));
}

TEST_F(ApiActionsTest, ControlsThatAreNeitherTakenNorGivenBackAreAFault) {
    for (const auto& [body, text] :
         {std::pair(R"({})", R"(\"take\" is missing)"),
          std::pair(R"({"take":1})", R"(\"take\" is a number where a bool is needed)"),
          std::pair(R"({"take":true,"unlessHeld":"x"})",
                    R"(\"unlessHeld\" is a text where a bool is needed)")})
        EXPECT_THAT(act(&ApiActions::changeControls, body), HasSubstr(text)) << body;
    EXPECT_FALSE(m_host.controls.holder());
}

TEST_F(ApiActionsTest, WebSessionOfWhoAsksStandsInTheLog) {
    m_caller.place = "web session 4 from 192.0.2.7";
    act(&ApiActions::park, "{}", "AXIS1");
    EXPECT_THAT(m_log.text(), HasSubstr("stop of AXIS1, asked for by anna (web session 4 from 192.0.2.7)\n"));
}

TEST_F(ApiActionsTest, MacroIsPlayed) {
    m_host.macroNames = {"home"};
    m_host.outcome.output = "said";
    EXPECT_EQ("200 {\"output\":\"said\"}", act(&ApiActions::playMacro, "{}", "home"));
    EXPECT_EQ(Texts{"play home"}, m_host.calls);
    EXPECT_EQ(
        "404 {\"error\":{\"code\":\"macro-unknown\",\"text\":\"there is no macro "
        "hoem\",\"nearest\":[\"home\"]}}",
        act(&ApiActions::playMacro, "{}", "hoem"));
    m_host.outcome.refusal = "another one is played";
    EXPECT_EQ("409 {\"error\":{\"code\":\"refused\",\"text\":\"another one is played\",\"nearest\":[]}}",
              act(&ApiActions::playMacro, "{}", "home"));
}

TEST_F(ApiActionsTest, DriverIsReloadedParkedAndTakenBack) {
    m_host.outcome.output = "Loading...OK\n";
    const std::string done = "200 {\"output\":\"Loading...OK\\u000a\",\"driver\":" + s_axis + "}";
    EXPECT_EQ(done, timeless(act(&ApiActions::reload, "{}", "AXIS1")));
    EXPECT_EQ(done, timeless(act(&ApiActions::debug, "{}", "AXIS1")));
    EXPECT_EQ(done, timeless(act(&ApiActions::park, "{}", "AXIS1")));
    EXPECT_EQ(done, timeless(act(&ApiActions::unpark, "{}", "AXIS1")));
    EXPECT_EQ((Texts{"reload AXIS1", "debug AXIS1", "park AXIS1 by anna", "unpark AXIS1 by anna"}),
              m_host.calls);
}

TEST_F(ApiActionsTest, WhoChangesWhatRunsStandsInTheLog) {
    act(&ApiActions::park, "{}", "AXIS1");
    act(&ApiActions::console, R"({"line":"drivers"})");
    const std::string text = m_log.text();
    EXPECT_THAT(text, HasSubstr("stop of AXIS1, asked for by anna\n"));
    EXPECT_THAT(text, HasSubstr("\"drivers\", asked for by anna\n"));
}

TEST_F(ApiActionsTest, HostsOwnReasonIsToldWithTheDriver) {
    m_host.outcome.refusal = "of a reason";
    const auto refused = [](const std::string& text) {
        return "409 {\"error\":{\"code\":\"refused\",\"text\":\"" + text + "\",\"nearest\":[]}}";
    };
    EXPECT_EQ(refused("AXIS1 is not reloaded: of a reason"), act(&ApiActions::reload, "{}", "AXIS1"));
    EXPECT_EQ(refused("AXIS1 is not stopped: of a reason"), act(&ApiActions::park, "{}", "AXIS1"));
    EXPECT_EQ(refused("AXIS1 is not started: of a reason"), act(&ApiActions::unpark, "{}", "AXIS1"));
}

TEST_F(ApiActionsTest, LineThatOnlyLooksIsAnsweredAtOnceWhileAnotherHoldsTheCommandsUp) {
    m_host.meanwhile = ApiLine{.output = "ID", .isDone = true};
    EXPECT_EQ("", begin(&ApiActions::console, R"({"line":"drivers"})"));
    EXPECT_THAT(m_answers, ElementsAre(R"(200 {"output":"ID","done":true})"));
    EXPECT_TRUE(m_host.posted.empty());
}

TEST_F(ApiActionsTest, LineThatOnlyLooksIsAnsweredWhenTheCommandBeforeItDoesNotComeBack) {
    EXPECT_EQ("", begin(&ApiActions::console, R"({"line":"drivers"})"));
    EXPECT_THAT(m_answers, IsEmpty());
    m_host.meanwhile = ApiLine{.output = "ID", .isDone = true};
    m_host.passLimits();
    EXPECT_THAT(m_answers, ElementsAre(R"(200 {"output":"ID","done":true})"));
    m_host.calls.clear();
    m_host.runPosted();
    EXPECT_THAT(m_host.calls, IsEmpty());
    EXPECT_EQ(1u, m_answers.size());
}

TEST_F(ApiActionsTest, LineThatWasExecutedIsNotAnsweredOnceMore) {
    m_host.outcome.output = "done";
    EXPECT_EQ(R"(200 {"output":"done","done":true})", act(&ApiActions::console, R"({"line":"drivers"})"));
    m_host.meanwhile = ApiLine{.output = "ID", .isDone = true};
    m_host.passLimits();
    EXPECT_EQ(1u, m_answers.size());
}

TEST_F(ApiActionsTest, UnknownDriverIsToldWithTheNearest) {
    const std::string unknown =
        "404 {\"error\":{\"code\":\"driver-unknown\",\"text\":\"there is no driver AXSI1\","
        "\"nearest\":[\"AXIS1\"]}}";
    EXPECT_EQ(unknown, begin(&ApiActions::debug, "{}", "AXSI1"));
    EXPECT_EQ(unknown, begin(&ApiActions::park, "{}", "AXSI1"));
    EXPECT_EQ(unknown, begin(&ApiActions::unpark, "{}", "AXSI1"));
    EXPECT_THAT(m_host.posted, IsEmpty());
    // Only the file may know it.
    m_host.outcome.refusal = "no entry";
    EXPECT_EQ(unknown, act(&ApiActions::reload, "{}", "AXSI1"));
    EXPECT_EQ(Texts{"reload AXSI1"}, m_host.calls);
}

TEST_F(ApiActionsTest, DriverOfTheFileAloneIsLoaded) {
    EXPECT_EQ("200 {\"output\":\"\"}", act(&ApiActions::reload, "{}", "NEW"));
}

TEST_F(ApiActionsTest, PlanSaysWhatWouldChange) {
    m_host.plan = {.id = "p1",
                   .digest = "ab",
                   .refusal = "",
                   .findings = {{Finding::ESeverity::Error, "w.xml", 3, "bad"},
                                {Finding::ESeverity::Warning, "w.xml", 0, "odd"}},
                   .changes = {{WorkplacePlan::EAction::Reload, "AXIS1", "module changed"},
                               {WorkplacePlan::EAction::Load, "B", ""},
                               {WorkplacePlan::EAction::Remove, "C", ""},
                               {WorkplacePlan::EAction::Rescan, "", ""},
                               {WorkplacePlan::EAction::RestartHost, "", ""},
                               {WorkplacePlan::EAction::None, "", ""}}};
    EXPECT_EQ(
        "200 {\"plan\":\"p1\",\"digest\":\"ab\",\"refusal\":\"\",\"findings\":["
        "{\"severity\":\"error\",\"file\":\"w.xml\",\"line\":3,\"text\":\"bad\"},"
        "{\"severity\":\"warning\",\"file\":\"w.xml\",\"line\":null,\"text\":\"odd\"}],\"changes\":["
        "{\"action\":\"reload\",\"driver\":\"AXIS1\",\"reason\":\"module changed\"},"
        "{\"action\":\"load\",\"driver\":\"B\",\"reason\":\"\"},"
        "{\"action\":\"remove\",\"driver\":\"C\",\"reason\":\"\"},"
        "{\"action\":\"rescan\",\"driver\":\"\",\"reason\":\"\"},"
        "{\"action\":\"restart-host\",\"driver\":\"\",\"reason\":\"\"},"
        "{\"action\":\"none\",\"driver\":\"\",\"reason\":\"\"}]}",
        act(&ApiActions::plan, "{}"));
}

TEST_F(ApiActionsTest, PlanIsAppliedAndUndone) {
    m_host.applied.history = 7;
    m_host.applied.changes = {
        {{WorkplacePlan::EAction::Reload, "AXIS1", "module changed"}, true, ""},
        {{WorkplacePlan::EAction::Load, "B", "entry is new"}, false, "no adapter eth7"}};
    const std::string done =
        "200 {\"history\":7,\"changes\":[{\"action\":\"reload\",\"driver\":\"AXIS1\",\"reason\":\"module "
        "changed\","
        "\"done\":true,\"why\":\"\"},{\"action\":\"load\",\"driver\":\"B\",\"reason\":\"entry is new\","
        "\"done\":false,\"why\":\"no adapter eth7\"}]}";
    EXPECT_EQ(done, act(&ApiActions::apply, R"({"plan":"p1"})"));
    EXPECT_EQ(done, act(&ApiActions::apply, "{}"));
    EXPECT_EQ(done, act(&ApiActions::undo, "{}"));
    EXPECT_EQ(done, act(&ApiActions::undo, R"({"number":3})"));
    EXPECT_EQ((Texts{"apply p1 by anna", "apply  by anna", "undo 0 by anna", "undo 3 by anna"}),
              m_host.calls);
    EXPECT_THAT(begin(&ApiActions::undo, R"({"number":0})"), HasSubstr("400 "));
    EXPECT_THAT(begin(&ApiActions::apply, R"({"plan":7})"), HasSubstr("400 "));
}

TEST_F(ApiActionsTest, RefusedPlanAndOutdatedOneDiffer) {
    m_host.applied.refusal = "the file is not signed";
    EXPECT_THAT(act(&ApiActions::apply, "{}"),
                HasSubstr("409 {\"error\":{\"code\":\"refused\",\"text\":\"the file is not signed\""));
    m_host.applied.isOutdated = true;
    EXPECT_THAT(act(&ApiActions::apply, R"({"plan":"p1"})"),
                HasSubstr("409 {\"error\":{\"code\":\"plan-outdated\",\"text\":\"the file is not signed\""));
}

TEST_F(ApiActionsTest, CheckIsTheReport) {
    m_host.report = "{\"errors\": 0}\n";
    EXPECT_EQ("200 {\"errors\": 0}\n", act(&ApiActions::check, "{}"));
}

TEST_F(ApiActionsTest, ConsoleLineIsExecuted) {
    m_host.outcome.output = "no queues\n";
    EXPECT_EQ("200 {\"output\":\"no queues\\u000a\",\"done\":true}",
              act(&ApiActions::console, R"({"line":"queues"})"));
    EXPECT_EQ(Texts{"console queues"}, m_host.calls);
    m_host.outcome = {.refusal = "there is no such command", .output = "unknown\n"};
    EXPECT_EQ("200 {\"output\":\"unknown\\u000a\",\"done\":false}",
              act(&ApiActions::console, R"({"line":"unknown","columns":80})"));
    EXPECT_EQ("console unknown in 80", m_host.calls.back());
    EXPECT_THAT(begin(&ApiActions::console, "{}"), HasSubstr("400 "));
}

TEST_F(ApiActionsTest, ShutdownIsAnsweredBeforeItBegins) {
    m_context.shutDown = [&](const std::string& who) {
        EXPECT_EQ(Texts{"200 {}"}, m_answers);
        m_host.calls.push_back("end by " + who);
    };
    begin(&ApiActions::shutDown, "{}");
    EXPECT_EQ(Texts{"end by anna"}, m_host.calls);
}

TEST_F(ApiActionsTest, CodesOfTheWebPanelAreTold) {
    m_host.webCode = {
        .refusal = "", .code = "123456", .url = "http://127.0.0.1:8080", .validFor = std::chrono::minutes(2)};
    EXPECT_EQ(
        "200 {\"code\":\"123456\",\"url\":\"http://127.0.0.1:8080\",\"role\":\"admin\",\"validMs\":120000}",
        act(&ApiActions::openPanel, "{}"));
    EXPECT_THAT(act(&ApiActions::pair, "{}"), HasSubstr("\"role\":\"operate\""));
    EXPECT_THAT(act(&ApiActions::pair, "{\"role\":\"view\"}"), HasSubstr("\"role\":\"view\""));
    EXPECT_EQ((Texts{"pair operate for anna", "pair view for anna"}), m_host.calls);
    const std::string log = m_log.finish();
    EXPECT_THAT(log, HasSubstr("HOST: code for the web panel with the role admin, asked for by anna\n"));
    EXPECT_THAT(log, HasSubstr("HOST: code for the web panel with the role view, asked for by anna\n"));
    EXPECT_THAT(log, Not(HasSubstr("123456")));
}

TEST_F(ApiActionsTest, NobodyGivesAnotherDeviceMoreThanTheOwnRole) {
    m_caller.role = ERole::View;
    EXPECT_EQ(
        "403 {\"error\":{\"code\":\"not-allowed\",\"text\":\"anna has \\\"view\\\" and can give no more than "
        "that\",\"nearest\":[]}}",
        act(&ApiActions::pair, "{}"));
    EXPECT_THAT(m_host.calls, IsEmpty());
}

TEST_F(ApiActionsTest, HostWithoutAWebPanelRefusesCodes) {
    m_host.webCode.refusal = "the host has no web panel";
    EXPECT_THAT(act(&ApiActions::openPanel, "{}"),
                HasSubstr("409 {\"error\":{\"code\":\"refused\",\"text\":\"the host has no web panel\""));
}

TEST_F(ApiActionsTest, SessionOfTheWebPanelIsEndedByItsNumber) {
    EXPECT_EQ("200 {}", act(&ApiActions::endSession, "{}", "4"));
    EXPECT_THAT(m_log.finish(), HasSubstr("HOST: end of the web panel's session 4, asked for by anna\n"));
    for (const char* pName : {"5", "x", "4x", "-4", ""})
        EXPECT_THAT(act(&ApiActions::endSession, "{}", pName),
                    HasSubstr("404 {\"error\":{\"code\":\"not-found\""))
            << pName;
}

TEST_F(ApiActionsTest, HostWithoutRoomForTheTaskIsBusy) {
    m_host.isPosting = false;
    EXPECT_EQ(
        "503 {\"error\":{\"code\":\"busy\",\"text\":\"the host has too many commands "
        "waiting\",\"nearest\":[]}}",
        act(&ApiActions::plan, "{}"));
    m_host.isStopping = true;
    EXPECT_EQ("503 {\"error\":{\"code\":\"stopping\",\"text\":\"the host is stopping\",\"nearest\":[]}}",
              act(&ApiActions::plan, "{}"));
}

TEST_F(ApiActionsTest, TaskThatTheCommandThreadDropsIsAnswered) {
    begin(&ApiActions::plan, "{}");
    m_host.posted.clear();
    EXPECT_EQ(
        Texts{"503 {\"error\":{\"code\":\"stopping\",\"text\":\"the host is stopping\",\"nearest\":[]}}"},
        m_answers);
}

TEST_F(ApiActionsTest, TaskThatThrowsIsAnsweredAndThrowsOn) {
    m_context.plan = []() -> WorkplacePlan { throw std::runtime_error("no memory"); };
    begin(&ApiActions::plan, "{}");
    EXPECT_THROW(m_host.runPosted(), std::runtime_error);
    EXPECT_EQ(Texts{"500 {\"error\":{\"code\":\"internal\",\"text\":\"no memory\",\"nearest\":[]}}"},
              m_answers);
}

TEST_F(ApiActionsTest, NoOutcomeIsLostWhereItsCallerHasGone) {
    begin(&ApiActions::sendFid, R"({"fid":"AXIS1.MOVE"})");
    m_host.sentFids.clear();
    EXPECT_EQ(
        Texts{"503 {\"error\":{\"code\":\"stopping\",\"text\":\"the host is stopping\",\"nearest\":[]}}"},
        m_answers)
        << "a sender that drops what it was to tell";
}

TEST_F(ApiActionsTest, WhatASessionOfThePanelAsksForIsOfThePanel) {
    std::string error;
    constexpr std::size_t size = stream::StreamRing::s_smallest;
    const auto pRing = stream::StreamRing::create({.path = {}, .sizes = {size, size}, .instance = "i1"},
                                                  Observation::now(), error);
    ASSERT_NE(pRing, nullptr) << error;
    Observation observation(*pRing);
    m_context.pObservation = &observation;
    const std::string value = R"({"key":"AXIS1.LABEL","type":"string","value":"x"})";
    act(&ApiActions::setState, value);
    begin(&ApiActions::sendFid, R"({"fid":"AXIS1.MOVE"})");
    EXPECT_EQ(stream::EOrigin::Api, m_host.sentFids.back().asker.origin);
    EXPECT_EQ("anna", m_host.sentFids.back().asker.who);
    m_caller.place = "web session 4 from 192.0.2.7";
    m_caller.webSession = 4;
    const ApiCaller panel = m_caller;
    act(&ApiActions::setState, value);
    act(&ApiActions::changeControls, R"({"take":true})");
    m_caller = {.role = ERole::Operate, .name = "otto", .uid = 1001};
    act(&ApiActions::changeControls, R"({"take":true})");
    act(&ApiActions::changeControls, R"({"take":true})");
    act(&ApiActions::changeControls, R"({"take":false})");
    m_caller = panel;
    act(&ApiActions::endSession, "{}", "4");
    act(&ApiActions::endSession, "{}", "5");
    m_host.webCode.refusal = "the host has no web panel";
    act(&ApiActions::openPanel, "{}");
    m_host.webCode = {.refusal = "", .code = "123456", .url = "http://127.0.0.1:8080", .validFor = {}};
    act(&ApiActions::openPanel, "{}");
    act(&ApiActions::pair, R"({"role":"view"})");
    m_context.recordWire = [](const auto&, auto) { return true; };
    act(&ApiActions::recordWire, "{}", "AXIS1");
    act(&ApiActions::shutDown, "{}");
    begin(&ApiActions::sendFid, R"({"fid":"AXIS1.MOVE"})");
    EXPECT_EQ(stream::EOrigin::Panel, m_host.sentFids.back().asker.origin);
    EXPECT_EQ("anna (web session 4 from 192.0.2.7)", m_host.sentFids.back().asker.who);
    Texts commands = recordedLines(*pRing);
    std::erase_if(commands, [](const std::string& line) { return !line.starts_with("host command "); });
    EXPECT_EQ(
        (Texts{"host command setStateValue AXIS1.LABEL from api anna",
               "host command setStateValue AXIS1.LABEL from panel anna (web session 4 from 192.0.2.7)",
               "host command take the controls from panel anna (web session 4 from 192.0.2.7)",
               "host command take the controls over from anna (web session 4 from 192.0.2.7) from api otto",
               "host command give the controls back from api otto",
               "host command end of the web panel's session 4 from panel anna (web session 4 from "
               "192.0.2.7)",
               "host command code for the web panel with the role admin from panel anna (web session 4 from "
               "192.0.2.7)",
               "host command code for the web panel with the role view from panel anna (web session 4 from "
               "192.0.2.7)",
               "host command wire of AXIS1 for 60 s from panel anna (web session 4 from 192.0.2.7)",
               "host command shutdown from panel anna (web session 4 from 192.0.2.7)"}),
        commands);
}

TEST_F(ApiActionsTest, MessagesOfADriverAreRecordedForAWhile) {
    EXPECT_EQ(
        "409 {\"error\":{\"code\":\"refused\",\"text\":\"the host does not record "
        "(--record-off)\",\"nearest\":[]}}",
        act(&ApiActions::recordWire, "{}", "AXIS1"));
    m_context.recordWire = [this](const std::string& driverID, std::chrono::seconds time) {
        m_host.calls.push_back(driverID + " " + std::to_string(time.count()));
        return true;
    };
    EXPECT_EQ("200 {}", act(&ApiActions::recordWire, "{}", "AXIS1"));
    EXPECT_EQ("AXIS1 60", m_host.calls.back());
    EXPECT_THAT(act(&ApiActions::recordWire, R"({"seconds":3601})", "AXIS1"),
                HasSubstr("\\\"seconds\\\" is at most 3600"));
    EXPECT_THAT(act(&ApiActions::recordWire, "{}", "AXSI1"), HasSubstr("driver-unknown"));
}
