#include "ApiHandler.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "ApiHost.h"
#include "LogCapture.h"
#include "StreamFixture.h"

namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
using Texts = std::vector<std::string>;

class ApiHandlerTest : public StreamFixture {
protected:
    ApiHandlerTest() {
        m_host.pRecorded = &m_recorded;
        m_host.drivers.processStarted("AXIS1", 42);
        m_pSut = std::make_unique<ApiHandler>(m_host.context());
    }

    void begin(const std::string& method, const std::string& target, const std::string& body = {},
               ERole role = ERole::Admin, const std::string& contentType = "application/json",
               unsigned user = 1000) {
        ApiCall call;
        call.method = method;
        call.target = target;
        call.contentType = contentType;
        call.body = body;
        call.caller.role = role;
        call.caller.name = name;
        call.caller.uid = user;
        m_pSut->handle(call, [this](const ApiAnswer& answer) {
            m_answers.push_back(std::to_string(answer.status) + " " + answer.body);
            m_allow = answer.allow;
            m_contentType = answer.contentType;
        });
    }
    /// The answer once all is done.
    std::string call(const std::string& method, const std::string& target, const std::string& body = {},
                     ERole role = ERole::Admin, const std::string& contentType = "application/json") {
        m_answers.clear();
        begin(method, target, body, role, contentType);
        m_host.runPosted();
        return m_answers.size() == 1 ? m_answers.front() : std::to_string(m_answers.size()) + " answers";
    }
    std::string get(const std::string& target, ERole role = ERole::View) {
        return call("GET", target, {}, role, {});
    }

    LogCapture m_log;
    std::string name = "anna";
    std::vector<std::string> m_answers;
    std::string m_allow;
    std::string m_contentType;
    std::unique_ptr<stream::StreamRing> m_pRing = ringOf(small());
    stream::StreamSource m_source{*m_pRing};
    stream::KeyTable m_keys{*m_pRing};
    RecordedStream m_recorded{m_source, m_keys};
    ApiHost m_host;
    std::unique_ptr<ApiHandler> m_pSut;
};

/// Each resource: method, target, body that is right, role that is needed.
struct Resource {
    const char* method;
    const char* target;
    const char* body;
    ERole role;
};
constexpr Resource s_resources[] = {
    {"GET", "/healthz", "", ERole::View},
    {"GET", "/api/v1", "", ERole::View},
    {"GET", "/api/v1/health", "", ERole::View},
    {"GET", "/api/v1/drivers", "", ERole::View},
    {"GET", "/api/v1/drivers/AXIS1", "", ERole::View},
    {"GET", "/api/v1/drivers/AXIS1/runs", "", ERole::View},
    {"GET", "/api/v1/state", "", ERole::View},
    {"GET", "/api/v1/state/A/history", "", ERole::View},
    {"GET", "/api/v1/events", "", ERole::View},
    {"GET", "/api/v1/controls", "", ERole::View},
    {"GET", "/api/v1/queues", "", ERole::View},
    {"GET", "/api/v1/macros", "", ERole::View},
    {"GET", "/api/v1/links", "", ERole::View},
    {"GET", "/api/v1/completion", "", ERole::View},
    {"GET", "/api/v1/catalogue", "", ERole::View},
    {"GET", "/api/v1/modules", "", ERole::View},
    {"GET", "/api/v1/log", "", ERole::View},
    {"GET", "/api/v1/sessions", "", ERole::View},
    {"GET", "/api/v1/history", "", ERole::View},
    {"GET", "/api/v1/history/1", "", ERole::View},
    {"POST", "/api/v1/state", "{\"key\":\"A\",\"type\":\"int\",\"value\":1}", ERole::Operate},
    {"POST", "/api/v1/unset", "{\"key\":\"A\"}", ERole::Operate},
    {"POST", "/api/v1/event", "{\"id\":\"A\",\"value\":\"b\"}", ERole::Operate},
    {"POST", "/api/v1/controls", "{\"take\":true}", ERole::Operate},
    {"POST", "/api/v1/macros/home/play", "", ERole::Operate},
    {"POST", "/api/v1/plan", "{}", ERole::Operate},
    {"POST", "/api/v1/check", "{}", ERole::Operate},
    {"POST", "/api/v1/panel", "{}", ERole::View},
    {"POST", "/api/v1/pair", "{\"role\":\"view\"}", ERole::View},
    {"POST", "/api/v1/sessions/4/revoke", "{}", ERole::Admin},
    {"POST", "/api/v1/drivers/AXIS1/reload", "{}", ERole::Admin},
    {"POST", "/api/v1/drivers/AXIS1/debug", "{}", ERole::Admin},
    {"POST", "/api/v1/drivers/AXIS1/park", "{}", ERole::Admin},
    {"POST", "/api/v1/drivers/AXIS1/unpark", "{}", ERole::Admin},
    {"POST", "/api/v1/apply", "{}", ERole::Admin},
    {"POST", "/api/v1/undo", "{}", ERole::Admin},
    {"POST", "/api/v1/console", "{\"line\":\"drivers\"}", ERole::Admin},
    {"POST", "/api/v1/shutdown", "{}", ERole::Admin},
};

}  // namespace

TEST_F(ApiHandlerTest, EachResourceIsAnswered) {
    m_host.macroNames = {"home"};
    m_host.store.setStateValue("A", "b");
    m_host.history = {{.number = 1, .when = {}, .who = "anna", .digest = "ab", .outcome = ""}};
    m_host.files[1] = "<workplaces/>";
    for (const Resource& resource : s_resources) {
        EXPECT_THAT(call(resource.method, resource.target, resource.body, resource.role), StartsWith("200 {"))
            << resource.target;
        EXPECT_EQ("application/json", m_contentType);
    }
}

TEST_F(ApiHandlerTest, EachResourceNeedsItsRole) {
    for (const Resource& resource : s_resources) {
        m_host.calls.clear();
        const std::string role = inWords(resource.role);
        const std::string less = inWords(static_cast<ERole>(static_cast<int>(resource.role) - 1));
        const std::string answer = call(resource.method, resource.target, resource.body,
                                        static_cast<ERole>(static_cast<int>(resource.role) - 1));
        if (resource.role == ERole::View)
            EXPECT_EQ(
                "403 {\"error\":{\"code\":\"not-allowed\",\"text\":\"anna has no role here; \\\"view\\\" is "
                "needed at least\",\"nearest\":[]}}",
                answer)
                << resource.target;
        else
            EXPECT_EQ("403 {\"error\":{\"code\":\"not-allowed\",\"text\":\"the role \\\"" + role +
                          "\\\" is needed; anna has \\\"" + less + "\\\"\",\"nearest\":[]}}",
                      answer)
                << resource.target;
        EXPECT_THAT(m_host.calls, IsEmpty());
        EXPECT_THAT(m_host.posted, IsEmpty());
    }
}

TEST_F(ApiHandlerTest, MetricsAreTextForWhoMayView) {
    EXPECT_THAT(get("/metrics"), StartsWith("200 # HELP mf_build_info "));
    EXPECT_EQ("text/plain; version=0.0.4; charset=utf-8", m_contentType);
    EXPECT_THAT(get("/metrics", ERole::None), StartsWith("403 "));
    EXPECT_EQ("application/json", m_contentType);
    EXPECT_THAT(call("POST", "/metrics"), StartsWith("405 "));
    EXPECT_EQ("GET", m_allow);
    EXPECT_THAT(get("/api/v1/metrics"), StartsWith("404 "));
}

TEST_F(ApiHandlerTest, FidNeedsTheRoleOperate) {
    EXPECT_THAT(call("POST", "/api/v1/fid", R"({"fid":"A.B"})", ERole::View), StartsWith("403 "));
    EXPECT_THAT(m_host.sentFids, IsEmpty());
    begin("POST", "/api/v1/fid", R"({"fid":"A.B"})", ERole::Operate);
    EXPECT_EQ(1u, m_host.sentFids.size());
}

TEST_F(ApiHandlerTest, WithoutARoleNothingIsTold) {
    EXPECT_THAT(get("/api/v1/nothing", ERole::None), StartsWith("403 "));
    EXPECT_THAT(get("%", ERole::None), StartsWith("403 "));
}

TEST_F(ApiHandlerTest, UnknownResourceIsToldWithTheNearest) {
    EXPECT_EQ(
        "404 {\"error\":{\"code\":\"not-found\",\"text\":\"there is no resource /api/v1/drivrs\","
        "\"nearest\":[\"/api/v1/drivers\"]}}",
        get("/api/v1/drivrs"));
    EXPECT_THAT(call("POST", "/api/v1/drivers/AXIS1/relod"),
                HasSubstr("\"nearest\":[\"/api/v1/drivers/AXIS1/reload\"]"));
    for (const char* target :
         {"/", "/api", "/api/v2", "/healthz/x", "/api/v1/drivers/AXIS1/log", "/api/v1/macros/a"})
        EXPECT_THAT(get(target), StartsWith("404 ")) << target;
}

TEST_F(ApiHandlerTest, OtherMethodsAreRefusedWithThoseThatThereAre) {
    EXPECT_EQ(
        "405 {\"error\":{\"code\":\"method-not-allowed\",\"text\":\"/api/v1/fid takes POST, not GET\","
        "\"nearest\":[]}}",
        get("/api/v1/fid"));
    EXPECT_EQ("POST", m_allow);
    EXPECT_THAT(call("DELETE", "/api/v1/state"), StartsWith("405 "));
    EXPECT_EQ("GET, POST", m_allow);
    for (const char* method : {"HEAD", "OPTIONS", "get", ""})
        EXPECT_THAT(call(method, "/api/v1/drivers"), StartsWith("405 ")) << method;
    EXPECT_THAT(get("/api/v1/drivers"), StartsWith("200 "));
    EXPECT_EQ("", m_allow);
}

TEST_F(ApiHandlerTest, NamesInPathsAreDecoded) {
    m_host.drivers.processStarted("A/B \xff", 43);
    EXPECT_THAT(get("/api/v1/drivers/A%2FB%20%ff"), StartsWith("200 {\"id\":\"A/B \xef\xbf\xbd\""));
    EXPECT_THAT(get("/api/v1/drivers/A%2"), StartsWith("400 "));
    EXPECT_THAT(get("/api/v1/drivers/"), StartsWith("200 {\"drivers\""));
    EXPECT_THAT(get("/api/v1/drivers//"), StartsWith("404 {\"error\":{\"code\":\"driver-unknown\""));
}

TEST_F(ApiHandlerTest, QueryIsHeldAgainstTheResource) {
    EXPECT_THAT(get("/api/v1/state?glob=A&since=1"), StartsWith("200 "));
    EXPECT_EQ(
        "400 {\"error\":{\"code\":\"request-invalid\",\"text\":\"there is no parameter \\\"globb\\\"; known "
        "are counts, glob, since\",\"nearest\":[\"glob\"]}}",
        get("/api/v1/state?globb=A"));
    EXPECT_THAT(get("/api/v1/drivers?a=1"), HasSubstr("there is no parameter \\\"a\\\"; none is known"));
    EXPECT_THAT(call("POST", "/api/v1/plan?a=1"), StartsWith("400 "));
    EXPECT_THAT(get("/api/v1/state?glob=A&glob=A"), HasSubstr("stands twice"));
}

TEST_F(ApiHandlerTest, GetTakesNoBody) {
    EXPECT_EQ("400 {\"error\":{\"code\":\"request-invalid\",\"text\":\"GET takes no body\",\"nearest\":[]}}",
              call("GET", "/api/v1/drivers", "{}"));
}

TEST_F(ApiHandlerTest, BodyIsJson) {
    for (const char* type :
         {"application/json", "Application/JSON", "application/json; charset=utf-8", "application/json ;x"})
        EXPECT_THAT(call("POST", "/api/v1/plan", "{}", ERole::Admin, type), StartsWith("200 ")) << type;
    for (const char* type : {"", "text/plain", "application/x-www-form-urlencoded", "application/jsonp"})
        EXPECT_THAT(call("POST", "/api/v1/plan", "{}", ERole::Admin, type), StartsWith("415 ")) << type;
    EXPECT_EQ(
        "415 {\"error\":{\"code\":\"media-type\",\"text\":\"the body is of the type \\\"text/plain\\\" where "
        "application/json is needed\",\"nearest\":[]}}",
        call("POST", "/api/v1/plan", "{}", ERole::Admin, "text/plain"));
    EXPECT_THAT(call("POST", "/api/v1/plan", "", ERole::Admin, ""), StartsWith("200 ")) << "none is needed";
}

TEST_F(ApiHandlerTest, BodyHasTheMembersOfItsAction) {
    EXPECT_EQ(
        "400 {\"error\":{\"code\":\"request-invalid\",\"text\":\"there is no member \\\"fdi\\\"; known are "
        "fid, "
        "parameters, wait, request, timeoutMs\",\"nearest\":[\"fid\"]}}",
        call("POST", "/api/v1/fid", R"({"fdi":"A.B"})"));
    EXPECT_THAT(call("POST", "/api/v1/plan", R"({"plan":"x"})"), HasSubstr("known are request, timeoutMs"));
    EXPECT_THAT(call("POST", "/api/v1/plan", "{"), HasSubstr("the body is no JSON"));
    EXPECT_THAT(call("POST", "/api/v1/plan", std::string(65537, ' ')), StartsWith("413 "));
    EXPECT_THAT(call("GET", '/' + std::string(8192, 'a')), StartsWith("413 "));
}

TEST_F(ApiHandlerTest, RepeatedRequestIsDoneOnce) {
    const std::string body = R"({"request":"r1","timeoutMs":100})";
    m_host.outcome.output = "first";
    EXPECT_THAT(call("POST", "/api/v1/drivers/AXIS1/reload", body), StartsWith("200 {\"output\":\"first\""));
    m_host.outcome.output = "second";
    EXPECT_THAT(call("POST", "/api/v1/drivers/AXIS1/reload", R"({"timeoutMs":7,"request":"r1"})"),
                StartsWith("200 {\"output\":\"first\""));
    EXPECT_EQ(Texts{"reload AXIS1"}, m_host.calls);
    EXPECT_EQ(
        "409 {\"error\":{\"code\":\"request-differs\",\"text\":\"the request r1 was something else when it "
        "came "
        "first\",\"nearest\":[]}}",
        call("POST", "/api/v1/drivers/AXIS1/park", body));
    EXPECT_THAT(call("POST", "/api/v1/drivers/AXIS1/reload", "{}"), StartsWith("200 {\"output\":\"second\""));
}

TEST_F(ApiHandlerTest, RepetitionWaitsForTheFirst) {
    const std::string body = R"({"request":"r1"})";
    begin("POST", "/api/v1/drivers/AXIS1/reload", body);
    begin("POST", "/api/v1/drivers/AXIS1/reload", body);
    EXPECT_EQ(1u, m_host.posted.size());
    EXPECT_THAT(m_answers, IsEmpty());
    m_host.runPosted();
    ASSERT_EQ(2u, m_answers.size());
    EXPECT_EQ(m_answers[0], m_answers[1]);
    EXPECT_EQ(Texts{"reload AXIS1"}, m_host.calls);
}

TEST_F(ApiHandlerTest, RefusedRoleIsNotRemembered) {
    const std::string body = R"({"request":"r1"})";
    EXPECT_THAT(call("POST", "/api/v1/drivers/AXIS1/reload", body, ERole::View), StartsWith("403 "));
    EXPECT_THAT(call("POST", "/api/v1/drivers/AXIS1/reload", body), StartsWith("200 "));
}

TEST_F(ApiHandlerTest, WhatCouldNotBeBegunMayBeSentAgain) {
    const std::string body = R"({"request":"r1"})";
    m_host.isPosting = false;
    EXPECT_THAT(call("POST", "/api/v1/plan", body), StartsWith("503 "));
    m_host.isPosting = true;
    EXPECT_THAT(call("POST", "/api/v1/plan", body), StartsWith("200 "));
}

TEST_F(ApiHandlerTest, RequestsOfTwoUsersAreTwo) {
    for (const unsigned user : {1000, 1001})
        begin("POST", "/api/v1/plan", R"({"request":"r1"})", ERole::Admin, "application/json", user);
    EXPECT_EQ(2u, m_host.posted.size());
}

TEST_F(ApiHandlerTest, AnswerToARoleIsNotForTheSameUserWithLess) {
    m_host.webCode.code = "of an admin";
    EXPECT_THAT(call("POST", "/api/v1/panel", R"({"request":"r1"})"), HasSubstr("of an admin"));
    m_host.webCode.code = "of a viewer";
    EXPECT_THAT(call("POST", "/api/v1/panel", R"({"request":"r1"})", ERole::View), HasSubstr("of a viewer"));
}

TEST_F(ApiHandlerTest, RequestsOfAUserWithAnotherNameAreStillHis) {
    begin("POST", "/api/v1/plan", R"({"request":"r1"})");
    name = "uid 1000";
    begin("POST", "/api/v1/plan", R"({"request":"r1"})");
    EXPECT_EQ(1u, m_host.posted.size());
}

TEST_F(ApiHandlerTest, WhatTakesLongerThanTheCallerWaitsGoesOn) {
    begin("POST", "/api/v1/drivers/AXIS1/reload", R"({"request":"r1","timeoutMs":300})");
    ASSERT_EQ(1u, m_host.limits.size());
    EXPECT_EQ(std::chrono::milliseconds(300), m_host.limits[0].time);
    m_host.passLimits();
    EXPECT_EQ(Texts{"202 {\"request\":\"r1\",\"text\":\"it goes on\"}"}, m_answers);
    m_host.runPosted();
    EXPECT_EQ(1u, m_answers.size()) << "a call is answered once";
    EXPECT_THAT(call("POST", "/api/v1/drivers/AXIS1/reload", R"({"request":"r1"})"),
                StartsWith("200 {\"output\""));
    EXPECT_EQ(Texts{"reload AXIS1"}, m_host.calls);
}

TEST_F(ApiHandlerTest, RepetitionHasATimeLimitOfItsOwn) {
    begin("POST", "/api/v1/plan", R"({"request":"r1","timeoutMs":60000})");
    begin("POST", "/api/v1/plan", R"({"request":"r1","timeoutMs":10})");
    ASSERT_EQ(2u, m_host.limits.size());
    EXPECT_EQ(std::chrono::milliseconds(10), m_host.limits[1].time);
    m_host.limits[1].call();
    EXPECT_EQ(Texts{"202 {\"request\":\"r1\",\"text\":\"it goes on\"}"}, m_answers);
    m_host.runPosted();
    ASSERT_EQ(2u, m_answers.size());
    EXPECT_THAT(m_answers[1], StartsWith("200 {\"plan\""));
}

TEST_F(ApiHandlerTest, AnsweredCallNeedsNoLimit) {
    get("/api/v1/drivers");
    call("POST", "/api/v1/shutdown");
    call("POST", "/api/v1/macros/none/play");
    EXPECT_THAT(m_host.limits, IsEmpty());
}

TEST_F(ApiHandlerTest, SenderOfAFidHasASecondMoreToTellHowFarItCame) {
    begin("POST", "/api/v1/fid", R"({"fid":"A.B","wait":"taken","timeoutMs":300})");
    ASSERT_EQ(1u, m_host.limits.size());
    EXPECT_EQ(std::chrono::milliseconds(1300), m_host.limits[0].time);
    m_host.passLimits();
    EXPECT_EQ(Texts{"202 {\"text\":\"it goes on\"}"}, m_answers);
    FidOutcome outcome;
    outcome.stage = EFidStage::Taken;
    m_host.sentFids[0].told(outcome);
    EXPECT_EQ(1u, m_answers.size());
}

TEST_F(ApiHandlerTest, WhatAFidCameToAfterItsLimitIsTheAnswerToTheSameRequest) {
    const std::string body = R"({"fid":"A.B","wait":"taken","timeoutMs":300,"request":"r1"})";
    begin("POST", "/api/v1/fid", body);
    ASSERT_EQ(1u, m_host.sentFids.size());
    FidOutcome outcome;
    outcome.stage = EFidStage::Written;
    outcome.driverID = "A";
    outcome.isInterim = true;
    m_host.sentFids[0].told(outcome);
    EXPECT_EQ(Texts{R"(202 {"request":"r1","fid":"A.B","driver":"A","stage":"written","tookUs":0})"},
              m_answers);
    begin("POST", "/api/v1/fid", body);
    EXPECT_EQ(1u, m_answers.size()) << "it waits for the end";
    outcome.stage = EFidStage::Taken;
    outcome.isInterim = false;
    outcome.isFinal = true;
    m_host.sentFids[0].told(outcome);
    const std::string taken = R"(200 {"request":"r1","fid":"A.B","driver":"A","stage":"taken","tookUs":0})";
    ASSERT_EQ(2u, m_answers.size());
    EXPECT_EQ(taken, m_answers[1]);
    EXPECT_EQ(taken, call("POST", "/api/v1/fid", body));
    EXPECT_EQ(1u, m_host.sentFids.size());
}

TEST_F(ApiHandlerTest, HistoryOfABusyHostIsNotWaitedForEndlessly) {
    m_host.activity.what = "reload of AXIS1";
    begin("GET", "/api/v1/history", "", ERole::View);
    ASSERT_EQ(1u, m_host.limits.size());
    EXPECT_EQ(std::chrono::seconds(5), m_host.limits[0].time);
    m_host.passLimits();
    EXPECT_EQ(
        Texts{"503 {\"error\":{\"code\":\"busy\",\"text\":\"the host is busy with \\\"reload of AXIS1\\\"\","
              "\"nearest\":[]}}"},
        m_answers);
    m_host.runPosted();
    EXPECT_EQ(1u, m_answers.size());
}

TEST_F(ApiHandlerTest, ReadingLeavesTheCommandThreadRoomForCommands) {
    for (int i = 0; i < 40; ++i)
        begin("GET", i % 2 == 0 ? "/api/v1/history" : "/api/v1/history/1", "", ERole::View);
    EXPECT_EQ(32u, m_host.posted.size());
    ASSERT_EQ(8u, m_answers.size());
    EXPECT_EQ(
        "503 {\"error\":{\"code\":\"busy\",\"text\":\"too many requests wait for the history already\","
        "\"nearest\":[]}}",
        m_answers[0]);
    m_host.runPosted();
    EXPECT_EQ(40u, m_answers.size());
    EXPECT_THAT(get("/api/v1/history"), StartsWith("200 "));
}

TEST_F(ApiHandlerTest, HistoryHasNumbers) {
    for (const char* number : {"x", "-1", "1x", "99999999999", "%00"})
        EXPECT_THAT(get(std::string("/api/v1/history/") + number), StartsWith("404 ")) << number;
    EXPECT_THAT(get("/api/v1/history/7"), StartsWith("404 "));
}

TEST_F(ApiHandlerTest, FaultOfTheHostIsAnswered) {
    ApiContext context = m_host.context();
    context.queues = []() -> std::vector<sal::MessageQueue::Status> {
        throw std::runtime_error("no memory");
    };
    ApiHandler sut(std::move(context));
    ApiCall call;
    call.method = "GET";
    call.target = "/api/v1/queues";
    call.caller.role = ERole::View;
    std::string body;
    sut.handle(call, [&](const ApiAnswer& answer) { body = answer.body; });
    EXPECT_EQ("{\"error\":{\"code\":\"internal\",\"text\":\"no memory\",\"nearest\":[]}}", body);
    EXPECT_THAT(m_log.text(), HasSubstr("the request GET /api/v1/queues is broken off: no memory\n"));
}

TEST_F(ApiHandlerTest, CallIsAnsweredWhenTheHostStopsInTheMiddle) {
    begin("POST", "/api/v1/plan", R"({"request":"r1"})");
    begin("POST", "/api/v1/plan", R"({"request":"r1"})");
    m_host.posted.clear();
    ASSERT_EQ(2u, m_answers.size());
    for (const std::string& answer : m_answers)
        EXPECT_THAT(answer, StartsWith("503 {\"error\":{\"code\":\"stopping\""));
    m_host.passLimits();
    EXPECT_EQ(2u, m_answers.size());
}

TEST_F(ApiHandlerTest, RecordingIsReadElsewhereAndItsFaultsAreAnswered) {
    begin("GET", "/api/v1/drivers/LAMP/runs", {}, ERole::View);
    EXPECT_THAT(m_answers, IsEmpty());
    EXPECT_EQ(1, m_host.looks);
    ASSERT_EQ(1u, m_host.posted.size());
    EXPECT_EQ("reading of the recording", m_host.posted.front().first);
    m_host.runPosted();
    ASSERT_EQ(1u, m_answers.size());
    EXPECT_THAT(m_answers[0], StartsWith("404 {\"error\":{\"code\":\"driver-unknown\""));
}

TEST_F(ApiHandlerTest, WhereTooManyWaitForTheRecordingItIsBusy) {
    m_host.isPosting = false;
    EXPECT_EQ(
        "503 {\"error\":{\"code\":\"busy\",\"text\":\"too many requests wait for the recording already\","
        "\"nearest\":[]}}",
        get("/api/v1/drivers/AXIS1/runs"));
}

TEST_F(ApiHandlerTest, RecordingThatTakesTooLongIsNotWaitedFor) {
    begin("GET", "/api/v1/state/A/history", {}, ERole::View);
    ASSERT_EQ(1u, m_host.limits.size());
    EXPECT_EQ(std::chrono::seconds(10), m_host.limits.front().time);
    m_host.passLimits();
    EXPECT_EQ((Texts{"503 {\"error\":{\"code\":\"busy\",\"text\":\"the recording is still being read\","
                     "\"nearest\":[]}}"}),
              m_answers);
    m_host.runPosted();
    EXPECT_EQ(1u, m_answers.size());
}
