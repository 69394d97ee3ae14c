#include "ApiClient.h"

#include "RemoteFixture.h"

namespace {
class ApiClientTest : public RemoteFixture {};
}  // namespace

TEST_F(ApiClientTest, AnswerIsGivenAsItCameAndRead) {
    m_host.answer("GET /drivers", R"({ "drivers" : [ ] })");
    const auto reply = ApiClient(m_host.path()).get("/drivers");
    EXPECT_EQ(200u, reply.status);
    EXPECT_EQ(R"({ "drivers" : [ ] })", reply.body);
    EXPECT_TRUE(reply.json["drivers"].is_array());
    EXPECT_FALSE(reply.isError());
}

TEST_F(ApiClientTest, AnswerThatIsNoJsonIsNull) {
    m_host.answer("GET /drivers", "<html>", 500);
    const auto reply = ApiClient(m_host.path()).get("/drivers");
    EXPECT_TRUE(reply.json.is_null());
    EXPECT_TRUE(reply.isError());
}

TEST_F(ApiClientTest, WhatIsNoAnswerOfAHostIsNone) {
    for (const char* pBody : {"", "hello", "null", "[]", "7"}) {
        m_host.answer("POST /event", pBody);
        EXPECT_EQ(std::pair(EExit::NoHost, "what answers at " + m_host.path() +
                                               " is no host: it answers 200 without a JSON object"),
                  errorOf([&] { ApiClient(m_host.path()).post("/event", Json::object()); }))
            << pBody;
    }
    for (const unsigned status : {100, 204, 302, 999}) {
        m_host.answer("GET /drivers", "{}", status);
        const auto error = errorOf([&] { ApiClient(m_host.path()).get("/drivers"); });
        EXPECT_EQ(EExit::NoHost, error.first) << status;
        EXPECT_THAT(error.second, testing::HasSubstr("is no host: it answers " + std::to_string(status)));
    }
}

TEST_F(ApiClientTest, EachActionHasARequestOfItsOwn) {
    m_host.answer("POST /event", "{}");
    ApiClient sut(m_host.path());
    sut.post("/event", {{"id", "A"}});
    sut.post("/event", {{"id", "A"}});
    const auto requests = m_host.requests("POST /event");
    ASSERT_EQ(2u, requests.size());
    const std::string first = Json::parse(requests[0].body)["request"];
    const std::string second = Json::parse(requests[1].body)["request"];
    EXPECT_THAT(first, testing::MatchesRegex("mfctl-[0-9A-F]+"));
    EXPECT_LE(first.size(), 64u);
    EXPECT_NE(first, second);
    EXPECT_EQ("A", Json::parse(requests[0].body)["id"]);
}

TEST_F(ApiClientTest, WhatBreaksOffIsAskedAgainUnderTheSameRequest) {
    m_host.answer("POST /event", "{}");
    m_host.breakOff(2);
    EXPECT_EQ(200u, ApiClient(m_host.path()).post("/event", {{"id", "A"}}).status);
    const auto requests = m_host.requests("POST /event");
    ASSERT_EQ(3u, requests.size());
    EXPECT_EQ(requests[0].body, requests[1].body);
    EXPECT_EQ(requests[0].body, requests[2].body);
}

TEST_F(ApiClientTest, HostThatKeepsBreakingOffIsNoHost) {
    m_host.breakOff(3);
    ApiClient sut(m_host.path());
    const auto [exit, text] = errorOf([&] { sut.post("/event", {{"id", "A"}}); });
    EXPECT_EQ(EExit::NoHost, exit);
    EXPECT_THAT(text, testing::EndsWith("; whether it has done what was asked is not known"));
    EXPECT_EQ(3u, m_host.requests().size());
}

TEST_F(ApiClientTest, NoHostSaysTheSocketAndTheReason) {
    const std::string path = m_directory.path("none");
    ApiClient sut(path);
    EXPECT_EQ(std::pair(EExit::NoHost, "no host answers at " + path + ": No such file or directory"),
              errorOf([&] { sut.get(""); }));
}

TEST_F(ApiClientTest, HostThatDoesNotAnswerIsNotFinished) {
    m_host.fallSilent();
    ApiClient sut(m_host.path());
    EXPECT_EQ(std::pair(EExit::NotFinished, "the host at " + m_host.path() +
                                                " does not answer within 1 s (no answer); mfctl doctor tells "
                                                "what it does"),
              errorOf([&] { sut.get("", std::chrono::milliseconds(50)); }));
}

TEST_F(ApiClientTest, BytesThatAreNoTextAreReplacedInAnAction) {
    m_host.answer("POST /event", "{}");
    ApiClient(m_host.path()).post("/event", {{"id", "A\x9b"}});
    EXPECT_EQ("A\xef\xbf\xbd", Json::parse(m_host.lastBody("POST /event"))["id"]);
}

TEST_F(ApiClientTest, PartsOfTargetsAreEncoded) {
    EXPECT_EQ("AZaz09-_.~", ApiClient::encoded("AZaz09-_.~"));
    EXPECT_EQ("a%2Fb%20%C3%A4%3F%2A%26", ApiClient::encoded("a/b \xc3\xa4?*&"));
}

TEST_F(ApiClientTest, LongWaitTakesSeveralRequestsUnderOneName) {
    m_host.answer("POST /apply", "{}", 202);
    EXPECT_EQ(202u,
              ApiClient(m_host.path()).post("/apply", Json::object(), std::chrono::milliseconds(500)).status);
    const auto requests = m_host.requests("POST /apply");
    ASSERT_GE(requests.size(), 2u);
    const Json first = Json::parse(requests.front().body);
    const Json last = Json::parse(requests.back().body);
    EXPECT_EQ(first["request"], last["request"]);
    EXPECT_GT(first["timeoutMs"], last["timeoutMs"]);
}

TEST_F(ApiClientTest, HostIsNotAskedToWaitLongerThanItDoes) {
    m_host.answer("POST /apply", "{}");
    ApiClient(m_host.path()).post("/apply", Json::object(), std::chrono::minutes(9));
    EXPECT_EQ(60000, timeoutOf("POST /apply"));
}
