#include "WebGate.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

namespace {

using testing::HasSubstr;

class WebGateTest : public testing::Test {
protected:
    /// The status of the refusal; 0 for none.
    unsigned refused(const std::string& host, const std::string& origin = {}) const {
        HttpRequest request;
        request.method = "POST";
        request.host = host;
        request.origin = origin;
        const auto refusal = sut.refusal(request, place);
        return refusal ? refusal->status : 0;
    }
    static HttpRequest asking(const std::string& method) {
        HttpRequest request;
        request.method = method;
        request.cookie = "a=1; __Host-mfhost-site=secret ;b=2";
        return request;
    }

    static std::string secure(const std::string& host) { return "https://" + host; }

    WebGate::Settings settings{.hasTls = true,
                               .names = {"panel.example", "panel"},
                               .isCertified = [](const std::string& name) { return name == "site.example"; },
                               .cookie = "__Host-mfhost-site"};
    WebGate sut{settings};
    WebGate::Connection place{
        .localAddress = "192.0.2.10", .remoteAddress = "192.0.2.7", .isLoopback = false};
};

TEST_F(WebGateTest, RequestIsForANameThatThePortHas) {
    for (const char* pHost :
         {"192.0.2.10", "192.0.2.10:8443", "panel.example:8443", "PANEL:1", "panel.example.", "site.example"})
        EXPECT_EQ(refused(pHost), 0u) << pHost;
    for (const char* pHost : {"", "evil.example", "evil.example:8443", "192.0.2.11", "localhost", "127.0.0.1",
                              "panel.example.evil.example", "[", "[]", ":8443", "panel:8443@evil.example",
                              "[panel", "[192.0.2.10]x"})
        EXPECT_EQ(refused(pHost), 421u) << pHost;
}

TEST_F(WebGateTest, MachineItselfIsCalledLocalhostOnlyByItself) {
    place = {.localAddress = "127.0.0.1", .remoteAddress = "127.0.0.1", .isLoopback = true};
    for (const char* pHost : {"localhost", "localhost:9000", "127.0.0.1:8080", "[::1]:8080"})
        EXPECT_EQ(refused(pHost), 0u) << pHost;
    EXPECT_EQ(refused("evil.example"), 421u);
}

TEST_F(WebGateTest, OtherPagesMayNotAsk) {
    EXPECT_EQ(refused("panel:8443", secure("panel:8443")), 0u);
    EXPECT_EQ(refused("panel:8443", secure("PANEL:8443")), 0u);
    for (const std::string& origin : std::vector<std::string>{
             "http://" + std::string("panel:8443"), secure("panel"), secure("panel:8444"),
             secure("evil.example"), "null", secure("panel:8443.evil.example")})
        EXPECT_EQ(refused("panel:8443", origin), 403u) << origin;
}

TEST_F(WebGateTest, TokenComesInTheHeaderWhateverTheMethodIs) {
    HttpRequest request;
    request.method = "POST";
    request.authorization = "Bearer abc ";
    EXPECT_EQ(sut.tokenOf(request, place), "abc");
    request.authorization = "bearer abc";
    EXPECT_EQ(sut.tokenOf(request, place), "abc");
    request.authorization = "Basic abc";
    EXPECT_EQ(sut.tokenOf(request, place), "");
}

TEST_F(WebGateTest, CookieIsFoundAmongOthers) {
    EXPECT_EQ(sut.tokenOf(asking("GET"), place), "secret");
    HttpRequest request = asking("GET");
    request.cookie = "x__Host-mfhost-site=1; __Host-mfhost-site2=2";
    EXPECT_EQ(sut.tokenOf(request, place), "");
}

TEST_F(WebGateTest, CookieCountsForThePagesOwnRequestsOnly) {
    HttpRequest action = asking("POST");
    EXPECT_EQ(sut.tokenOf(action, place), "");
    action.origin = secure("panel");
    EXPECT_EQ(sut.tokenOf(action, place), "secret");
    HttpRequest channel = asking("GET");
    channel.isWebSocket = true;
    EXPECT_EQ(sut.tokenOf(channel, place), "");
    channel.origin = secure("panel");
    EXPECT_EQ(sut.tokenOf(channel, place), "secret");
}

TEST_F(WebGateTest, OnTheMachineItselfNoCookieCounts) {
    place.isLoopback = true;
    EXPECT_EQ(sut.tokenOf(asking("GET"), place), "");
}

TEST_F(WebGateTest, CookieIsKeptFromScriptsAndOtherSites) {
    EXPECT_EQ(sut.cookieWith("t", 60),
              "__Host-mfhost-site=t; Path=/; Max-Age=60; HttpOnly; SameSite=Strict; Secure");
    settings.hasTls = false;
    EXPECT_EQ(WebGate(settings).cookieWith("t", 60),
              "__Host-mfhost-site=t; Path=/; Max-Age=60; HttpOnly; SameSite=Strict");
}

TEST_F(WebGateTest, CookieHasTheWorkplacesName) {
    EXPECT_EQ(WebGate::cookieName("/etc/mf/site 1;ä.xml", true), "__Host-mfhost-site_1___");
    EXPECT_EQ(WebGate::cookieName("site.xml", false), "mfhost-site");
    EXPECT_EQ(WebGate::cookieName("", true), "__Host-mfhost-panel");
}

}  // namespace
