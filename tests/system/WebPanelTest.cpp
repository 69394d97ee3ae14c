#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>

#include <cstdint>
#include <string>
#include <vector>

#include "ControlledWorkplace.h"
#include "HttpClient.h"
#include "UniqueFd.h"
#include "WebSocketClient.h"

namespace {

using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

/// The web panel of a real host, as a browser and its page see it.
class WebPanel : public ControlledWorkplace {
protected:
    /// A thread of the host's own writes the log: the answer to what is logged may be there first.
    bool logs(const std::string& pattern) {
        return eventually([&] { return testing::Matches(ContainsRegex(pattern))(host().log()); });
    }
    HostProcess& startWithPanel(const std::vector<std::string>& more = {}) {
        workplace().addModule("Echo");
        workplace().configure(entry("E", "queue"));
        return startAgain(more);
    }
    HostProcess& startAgain(const std::vector<std::string>& more = {}) {
        std::vector<std::string> options{"--control", socket(), "--web", "0"};
        options.insert(options.end(), more.begin(), more.end());
        HostProcess& host = startAndWait(options);
        // "... the web panel is at http://127.0.0.1:40123/; mfctl panel ..."
        const std::string line = "the web panel is at http://127.0.0.1:";
        const auto at = host.log().find(line);
        EXPECT_NE(at, std::string::npos) << host.log();
        m_port =
            host.log().substr(at + line.size(), host.log().find('/', at + line.size()) - at - line.size());
        return host;
    }
    std::string url() const { return "http://127.0.0.1:" + m_port; }
    std::uint16_t port() const { return static_cast<std::uint16_t>(std::stoi(m_port)); }
    std::string page(const std::string& path, const std::string& words = {}) {
        return execute("curl -sS --max-time 60 " + words + " " + url() + path).text;
    }
    /// What a page gets for a code.
    std::string open(const std::string& code) {
        return page("/api/v1/session",
                    R"(-H 'Content-Type: application/json' -d '{"code":")" + code + "\"}'");
    }
    static std::string member(const std::string& json, const std::string& name) {
        const std::string begin = '"' + name + R"(":")";
        const auto at = json.find(begin);
        if (at == std::string::npos)
            return {};
        return json.substr(at + begin.size(), json.find('"', at + begin.size()) - at - begin.size());
    }
    std::string signIn() {
        const std::string text = mfctl("panel").text;
        const auto at = text.find("#code=");
        EXPECT_THAT(text, StartsWith(url() + "/#code="));
        return member(open(text.substr(at + 6, text.find('\n') - at - 6)), "token");
    }

    /// Makes it the channel of a page that has said who it is.
    void openLive(HttpClient& client, WebSocketClient& live, const std::string& token) const {
        ASSERT_TRUE(client.connectTo("127.0.0.1", port()));
        ASSERT_EQ(live.open(client, "/api/v1/live", "127.0.0.1:" + std::to_string(port())).status, 101);
        live.send(R"({"authorize":")" + token + R"(","page":"now"})");
    }

private:
    std::string m_port;
};

TEST_F(WebPanel, CodeOfTheRemoteControlOpensItOnce) {
    startWithPanel();
    EXPECT_THAT(page("/"), StartsWith("<!DOCTYPE html>"));
    EXPECT_THAT(page("/api/v1/drivers"), HasSubstr("session-needed"));
    const std::string token = signIn();
    ASSERT_EQ(token.size(), 43u);
    const std::string bearer = "-H 'Authorization: Bearer " + token + "'";
    EXPECT_THAT(page("/api/v1", bearer), HasSubstr(R"("role":"admin","user":"root")"));
    EXPECT_THAT(page("/api/v1/drivers", bearer), HasSubstr(R"({"id":"E",)"));
    EXPECT_THAT(page("/api/v1/drivers", bearer + " -H 'Host: evil.example'"), HasSubstr("host-unknown"));
    const std::string sessions = mfctl("sessions").text;
    ASSERT_THAT(sessions, ContainsRegex("\n[0-9]+ +root +admin +127\\.0\\.0\\.1 "));
    const std::string before = sessions.substr(0, sessions.find("127.0.0.1"));
    const std::string number = std::to_string(std::stoi(before.substr(before.rfind('\n') + 1)));
    EXPECT_EQ(mfctl("sessions revoke " + number).exitCode, 0);
    EXPECT_THAT(page("/api/v1", bearer), HasSubstr("session-needed"));
    EXPECT_EQ(mfctl("sessions revoke " + number).exitCode, 1);
    EXPECT_EQ(mfctl("sessions revoke").exitCode, 2);
    EXPECT_EQ(end(), 0);
}

TEST_F(WebPanel, PairedDeviceHasTheRoleThatItWasGiven) {
    startWithPanel();
    const std::string digits = mfctl("pair --role view").text.substr(0, 6);
    const std::string bearer = "-H 'Authorization: Bearer " + member(open(digits), "token") + "'";
    EXPECT_THAT(page("/api/v1", bearer), HasSubstr(R"("role":"view")"));
    EXPECT_THAT(page("/api/v1/drivers/E/reload", bearer + " -X POST"), HasSubstr("not-allowed"));
    EXPECT_THAT(
        page("/api/v1/pair", bearer + R"( -H 'Content-Type: application/json' -d '{"role":"operate"}')"),
        HasSubstr("can give no more than that"));
    EXPECT_THAT(open(digits), HasSubstr("no digits hold now"));
    EXPECT_EQ(end(), 0);
}

TEST_F(WebPanel, OpenPageIsToldOfValuesDriversAndWhatHappens) {
    startWithPanel({"--restart-delay", "60"});
    const std::string token = signIn();
    HttpClient client;
    WebSocketClient live;
    ASSERT_NO_FATAL_FAILURE(openLive(client, live, token));
    EXPECT_THAT(live.receive(), HasSubstr(R"("role":"admin","user":"root","session":")"));
    const std::string all = live.receive();
    EXPECT_THAT(all, HasSubstr(R"({"kind":"chunk","from":0,)"));
    EXPECT_THAT(all, HasSubstr(R"("drivers":[{"id":"E","type":"Echo",)"));
    EXPECT_THAT(all, HasSubstr(R"("text":"the workplace is started"})"));
    EXPECT_EQ(mfctl("send E.INT name=N value=7 --wait taken").exitCode, 0);
    EXPECT_THAT(live.receiveWith(R"("key":"E.N")"), HasSubstr(R"({"key":"E.N","type":"int","value":7,)"));
    EXPECT_EQ(mfctl("event E.NEWS today").exitCode, 0);
    EXPECT_THAT(live.receiveWith(R"("kind":"event")"), HasSubstr(R"("value":"today"})"));
    ASSERT_EQ(::kill(host().driverProcess("E"), SIGKILL), 0);
    EXPECT_THAT(live.receiveWith(R"("stale":{)"), HasSubstr(R"x("stale":{"cause":"signal 9 (Killed)")x"));
    EXPECT_EQ(mfctl("shutdown").exitCode, 0);
    EXPECT_THAT(live.receiveWith(R"("kind":"bye")"), HasSubstr(R"("code":"stopping")"));
    EXPECT_EQ(host().waitForEnd(), 0);
}

TEST_F(WebPanel, SessionHoldsAfterTheHostWasStartedAnew) {
    startWithPanel();
    const std::string token = signIn();
    EXPECT_EQ(mfctl("shutdown").exitCode, 0);
    EXPECT_EQ(host().waitForEnd(), 0);
    startAgain();
    EXPECT_THAT(page("/api/v1", "-H 'Authorization: Bearer " + token + "'"), HasSubstr(R"("role":"admin")"));
    EXPECT_EQ(end(), 0);
}

TEST_F(WebPanel, OperatorShelvesAndAcknowledgesAnAlarmInTheNameOfTheWebSession) {
    startWithPanel({"--restart-delay", "60", "--record-size", "1M"});
    const std::string token = member(open(mfctl("pair --role operate").text.substr(0, 6)), "token");
    const std::string bearer = "-H 'Authorization: Bearer " + token + "' ";
    ASSERT_EQ(::kill(host().driverProcess("E"), SIGKILL), 0);
    ASSERT_TRUE(eventually([&] {
        return page("/api/v1/alarms", bearer).find(R"({"key":"E.DRIVER","text":"ended: signal 9)") !=
               std::string::npos;
    }));
    const std::string keys = R"(-H 'Content-Type: application/json' -d '{"keys":["E.DRIVER"]}')";
    ASSERT_EQ(page("/api/v1/shelve", bearer + keys), R"({"shelved":["E.DRIVER"]})");
    ASSERT_EQ(page("/api/v1/shelve",
                   bearer + R"(-H 'Content-Type: application/json' -d '{"keys":["E.DRIVER"],"seconds":60}')"),
              R"({"shelved":["E.DRIVER"]})");
    EXPECT_THAT(page("/api/v1/alarms", bearer),
                ContainsRegex(R"x("shelvedForMs":[0-9]+,"shelvedBy":"root"})x"));
    EXPECT_TRUE(
        logs("HOST: E[.]DRIVER: the alarm is shelved for 60 s by root "
             "\\(web session [0-9]+ from 127[.]0[.]0[.]1\\)\n"))
        << host().log();
    ASSERT_EQ(page("/api/v1/acknowledge", bearer + keys), R"({"acknowledged":["E.DRIVER"]})");
    EXPECT_EQ(page("/api/v1/alarms", bearer), R"({"alarms":[]})");
    EXPECT_THAT(page("/api/v1/acknowledge", bearer + keys), HasSubstr("there is no alarm E.DRIVER"));
    EXPECT_TRUE(
        logs("HOST: E[.]DRIVER: the alarm is acknowledged by root "
             "\\(web session [0-9]+ from 127[.]0[.]0[.]1\\)\n"))
        << host().log();
    // It is recorded by then; the limit is for a host that has not.
    const std::string monitor =
        (TestWorkplace::build() / "bin/mfctl").string() + " monitor --host " + socket();
    // Each with its end, but for the last; the code and the session that it has opened are the first two.
    const std::string commands =
        execute("timeout 60 " + monitor + " --from oldest --kind command --count 9").text;
    for (const char* pLine : {"shelve E[.]DRIVER 0", "shelve E[.]DRIVER 60", "acknowledge E[.]DRIVER"})
        EXPECT_THAT(commands,
                    ContainsRegex("command " + std::string(pLine) + " .*root \\(web session [0-9]+ from "));
    EXPECT_EQ(end(), 0);
}

TEST_F(WebPanel, ControlsAreTakenOverInTheNameOfBothAndAPageIsTold) {
    startWithPanel({"--record-size", "1M"});
    const std::string token = signIn();
    HttpClient client;
    WebSocketClient live;
    ASSERT_NO_FATAL_FAILURE(openLive(client, live, token));
    const std::string take = R"(-H 'Content-Type: application/json' -d '{"take":true}')";
    const std::string bearer = "-H 'Authorization: Bearer " + token + "' ";
    EXPECT_EQ(page("/api/v1/controls", bearer), R"({"controls":null})");
    EXPECT_THAT(page("/api/v1/controls", bearer + take),
                ContainsRegex(
                    R"x([{]"controls":[{]"name":"root","from":"web session [0-9]+ from 127[.]0[.]0[.]1",)x"));
    EXPECT_THAT(live.receiveWith(R"("controls":{)"),
                HasSubstr(R"("controls":{"name":"root","from":"web session )"));
    EXPECT_THAT(
        execute("curl -sS --unix-socket " + socket() + " " + take + " http://localhost/api/v1/controls").text,
        HasSubstr(R"("from":"the control socket","session":null,)"));
    EXPECT_THAT(live.receiveWith(R"("controls":{)"), HasSubstr(R"("from":"the control socket")"));
    EXPECT_TRUE(
        logs("HOST: root takes the controls over from root "
             "\\(web session [0-9]+ from 127[.]0[.]0[.]1\\)\n"))
        << host().log();
    const std::string monitor =
        (TestWorkplace::build() / "bin/mfctl").string() + " monitor --host " + socket();
    // Each with its end, but for the last; the code and the session that it has opened are the first two.
    EXPECT_THAT(execute("timeout 60 " + monitor + " --from oldest --kind command --count 7").text,
                ContainsRegex("command take the controls over from root \\(web session .*root"));
    EXPECT_EQ(end(), 0);
}

/// The panel of an address that other machines reach, with TLS.
class WebPanelElsewhere : public WebPanel {
protected:
    void startElsewhere() {
        ASSERT_EQ(execute("ip address add 192.0.2.10/32 dev lo").text, "");
        const std::string file = certificate();
        execute(
            "umask 077; openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 2 "
            "-subj /CN=panel -addext subjectAltName=IP:192.0.2.10 -keyout " +
            file + ".key -out " + file);
        workplace().addModule("Echo");
        workplace().configure(entry("E", "queue"));
        startAndWait({"--control", socket(), "--web", "192.0.2.10:8443", "--web-cert", file, "--web-key",
                      file + ".key"});
    }
    std::string certificate() { return workplace().directory() / "panel.pem"; }
    /// All of the answer, or of those that the command gives; cookies are kept as a browser keeps them.
    std::string browse(const std::string& path, const std::string& words = {}) {
        const std::string jar = workplace().directory() / "cookies";
        return execute("curl -sSi --max-time 60 --cacert " + certificate() + " -b " + jar + " -c " + jar +
                       " " + words + " https:" + "//192.0.2.10:8443" + path)
            .text;
    }
    std::string signInByDigits() {
        const std::string digits = mfctl("pair --role operate").text.substr(0, 6);
        return browse("/api/v1/session",
                      R"(-H 'Content-Type: application/json' -d '{"code":")" + digits + "\"}'");
    }
    static constexpr const char* s_origin =
        "-H 'Origin: https:"
        "//192.0.2.10:8443' ";
    static constexpr const char* s_webSocket =
        "--http1.1 -H 'Connection: Upgrade' -H 'Upgrade: websocket' -H 'Sec-WebSocket-Version: 13' "
        "-H 'Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==' ";
};

TEST_F(WebPanelElsewhere, SessionIsACookieThatNoScriptAndNoOtherSiteGetsToSee) {
    startElsewhere();
    EXPECT_THAT(browse("/api/v1"), HasSubstr("session-needed"));
    const std::string opened = signInByDigits();
    EXPECT_THAT(opened, Not(HasSubstr(R"("token")")));
    // A name with __Host- is taken by browsers with Secure, Path=/ and no domain alone.
    EXPECT_THAT(opened, ContainsRegex("\r\nSet-Cookie: __Host-mfhost-[a-z]+=[-_A-Za-z0-9]{43}; Path=/; "
                                      "Max-Age=2592000; HttpOnly; SameSite=Strict; Secure\r\n"));
    EXPECT_THAT(browse("/api/v1"), HasSubstr(R"("role":"operate","user":"root")"));
    EXPECT_EQ(end(), 0);
}

TEST_F(WebPanelElsewhere, CookieCountsForThePanelsOwnPageAlone) {
    startElsewhere();
    ASSERT_THAT(signInByDigits(), HasSubstr(" 200 "));
    const std::string event = R"(-H 'Content-Type: application/json' -d '{"id":"E.NEWS","value":"x"}' )";
    EXPECT_THAT(browse("/api/v1/event", event + s_origin), HasSubstr(" 200 "));
    EXPECT_THAT(browse("/api/v1/event", event), HasSubstr("session-needed"));
    EXPECT_THAT(browse("/api/v1/event", event + "-H 'Origin: null' "), HasSubstr("may not ask here"));
    EXPECT_THAT(browse("/api/v1/live", s_webSocket), HasSubstr("session-needed"));
    EXPECT_THAT(browse("/api/v1/live", std::string(s_webSocket) + "-H 'Origin: https:" + "//evil.example' "),
                HasSubstr("may not ask here"));
    // It ends by itself: this page never says who it is.
    EXPECT_THAT(browse("/api/v1/live", std::string(s_webSocket) + s_origin), HasSubstr(" 101 "));
    EXPECT_EQ(end(), 0);
}

TEST_F(WebPanelElsewhere, SigningOutTakesTheCookieBack) {
    startElsewhere();
    ASSERT_THAT(signInByDigits(), HasSubstr(" 200 "));
    EXPECT_THAT(browse("/api/v1/session", std::string("-X DELETE ") + s_origin),
                ContainsRegex("\r\nSet-Cookie: __Host-mfhost-[a-z]+=; Path=/; Max-Age=0; HttpOnly; "
                              "SameSite=Strict; Secure\r\n"));
    EXPECT_THAT(browse("/api/v1"), HasSubstr("session-needed"));
    EXPECT_THAT(mfctl("sessions").text, Not(HasSubstr("192.0.2.10")));
    EXPECT_EQ(end(), 0);
}

TEST_F(WebPanel, ScriptUsesATokenOfTheFile) {
    const std::string file = workplace().directory() / "tokens";
    const std::string token(40, 'k');
    execute("umask 077; echo 'view " + token + " backup' > " + file);
    startWithPanel({"--web-tokens", file});
    EXPECT_THAT(page("/api/v1", "-H 'Authorization: Bearer " + token + "'"),
                HasSubstr(R"("role":"view","user":"backup")"));
    EXPECT_EQ(end(), 0);
}

TEST_F(WebPanel, HostGoesOnWithoutAPanelWhereThePortIsTaken) {
    const base::UniqueFd other(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in place{};
    place.sin_family = AF_INET;
    place.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    place.sin_port = htons(8099);
    ASSERT_EQ(::bind(other.get(), reinterpret_cast<const sockaddr*>(&place), sizeof place), 0);
    ASSERT_EQ(::listen(other.get(), 1), 0);
    workplace().addModule("Echo");
    workplace().configure(entry("E", "queue"));
    HostProcess& host = startAndWait({"--control", socket(), "--web", "8099"});
    EXPECT_THAT(host.log(),
                HasSubstr("mfhost: runs without the web panel: 127.0.0.1:8099 is taken by another "
                          "program\n"));
    expectSets(host, "E");
    EXPECT_EQ(end(), 0);
}

TEST_F(WebPanel, PanelIsServedFromWithinASandbox) {
    startWithPanel({"--sandbox"});
    EXPECT_EQ(signIn().size(), 43u);
    EXPECT_EQ(end(), 0);
}

TEST_F(WebPanel, HostWithoutAPanelSaysHowItGetsOne) {
    startControlled();
    const Answer answer = mfctl("panel");
    EXPECT_EQ(answer.exitCode, 1);
    EXPECT_THAT(answer.text, HasSubstr("the host has no web panel; --web PORT at its start gives it one"));
    EXPECT_EQ(end(), 0);
}

}  // namespace
