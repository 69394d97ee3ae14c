#include "PanelCommands.h"

#include "RemoteFixture.h"

namespace {
class PanelCommandsTest : public RemoteFixture {};
}  // namespace

TEST_F(PanelCommandsTest, PanelPrintsTheAddressThatOpensIt) {
    m_host.answer("POST /panel",
                  R"({"code":"abc","url":"http://127.0.0.1:8080","role":"admin","validMs":120000})");
    auto remote = control();
    EXPECT_EQ(EExit::Done, PanelCommands(remote).open());
    EXPECT_EQ("http://127.0.0.1:8080/#code=abc\n", out());
}

TEST_F(PanelCommandsTest, PairPrintsTheDigitsAndWhereTheyAreTyped) {
    m_host.answer("POST /pair",
                  R"({"code":"012345","url":"https://127.0.0.1:8443","role":"view","validMs":120000})");
    auto remote = control();
    EXPECT_EQ(EExit::Done, PanelCommands(remote).pair("view"));
    EXPECT_EQ(
        "012345\n"
        "for 2 min, once, with the role view; the panel is at https://127.0.0.1:8443/\n",
        out());
}

TEST_F(PanelCommandsTest, HostWithoutAPanelSaysHowItGetsOne) {
    m_host.answer("POST /panel",
                  R"({"error":{"code":"refused","text":"the host has no web panel","nearest":[]}})", 409);
    auto remote = control();
    EXPECT_EQ(std::pair(EExit::Failed, std::string("the host has no web panel")),
              errorOf([&] { PanelCommands(remote).open(); }));
}

TEST_F(PanelCommandsTest, SessionsAreThoseOfTheSocketAndThoseOfThePanel) {
    ::setenv("TZ", "UTC", 1);
    m_host.answer("GET /sessions",
                  R"({"sessions":[
                      {"id":4,"user":"anna","uid":1000,"pid":77,"role":"operate","address":"","used":null,
                       "since":"2026-11-22T12:00:05.000Z","expires":null,"requests":12},
                      {"id":5,"user":"anna","uid":1000,"pid":null,"role":"view","address":"192.0.2.7",
                       "since":"2026-11-22T12:00:05.000Z","used":"2026-11-22T12:01:05.000Z",
                       "expires":"2026-12-22T12:00:05.000Z","requests":3},
                      {"id":6,"user":"backup","uid":0,"pid":null,"role":"view","address":"",
                       "since":"2026-11-22T12:00:05.000Z","used":"2026-11-22T12:01:05.000Z",
                       "expires":null,"requests":3}]})");
    auto remote = control();
    EXPECT_EQ(EExit::Done, PanelCommands(remote).sessions());
    EXPECT_EQ(
        "session  user    role     from        since                until                requests\n"
        "4        anna    operate  process 77  2026-11-22 12:00:05                       12\n"
        "5        anna    view     192.0.2.7   2026-11-22 12:00:05  2026-12-22 12:00:05  3\n"
        "6        backup  view     token file  2026-11-22 12:00:05                       3\n",
        out());
}

TEST_F(PanelCommandsTest, RevokeEndsASessionAndNeedsItsNumber) {
    m_host.answer("POST /sessions/2/revoke", "{}");
    auto remote = control();
    EXPECT_EQ(EExit::Done, PanelCommands(remote).revoke(2));
    EXPECT_EQ("session 2 is ended\n", out());
    EXPECT_EQ(std::pair(EExit::WrongUsage,
                        std::string("which session? mfctl sessions revoke N; mfctl sessions lists their "
                                    "numbers")),
              errorOf([&] { PanelCommands(remote).revoke(0); }));
}
