#include "OverviewCommands.h"

#include "RemoteFixture.h"

namespace {
class OverviewCommandsTest : public RemoteFixture {};
}  // namespace

TEST_F(OverviewCommandsTest, HealthIsDoneOnlyWhereAllIsWell) {
    auto remote = control();
    m_host.answer("GET /health", R"({"status":"ok","configured":3,"running":3,"parked":0,"command":null})");
    EXPECT_EQ(EExit::Done, OverviewCommands(remote).health());
    m_host.answer("GET /health",
                  R"({"status":"busy","configured":3,"running":1,"parked":1,"alarms":2,
                      "command":{"what":"reloadDriver SYS","driver":"LAMP","operation":"deinit","forMs":7000}})");
    EXPECT_EQ(EExit::Failed, OverviewCommands(remote).health());
    EXPECT_EQ(
        "ok: 3 of 3 drivers run\n"
        "busy: 1 of 3 drivers run, 1 parked, 2 alarms; reloadDriver SYS has been under way for 7 s, in "
        "deinit of "
        "LAMP\n",
        out());
}

TEST_F(OverviewCommandsTest, HealthAsJsonHasTheSameExitCode) {
    m_host.answer("GET /health", R"({"status":"degraded"})");
    auto remote = control(true);
    EXPECT_EQ(EExit::Failed, OverviewCommands(remote).health());
    EXPECT_EQ("{\"status\":\"degraded\"}\n", out());
}

TEST_F(OverviewCommandsTest, ListsMacrosAndQueues) {
    m_host.answer("GET /macros", R"({"macros":[{"name":"evening"},{"name":"a\nb"}]})");
    m_host.answer("GET /queues", R"({"queues":[]})");
    auto remote = control();
    OverviewCommands sut(remote);
    EXPECT_EQ(EExit::Done, sut.macros());
    EXPECT_EQ(EExit::Done, sut.queues());
    EXPECT_EQ("evening\na\\nb\nno queues\n", out());
}

TEST_F(OverviewCommandsTest, PlaysAMacro) {
    m_host.answer("POST /macros/late%20evening/play", R"({"output":"done\n"})");
    auto remote = control();
    EXPECT_EQ(EExit::Done, OverviewCommands(remote).play("late evening", std::chrono::seconds(5)));
    EXPECT_EQ(5000, timeoutOf("POST /macros/late%20evening/play"));
    EXPECT_EQ("done\n", out());
}

TEST_F(OverviewCommandsTest, ShutdownIsForWhoMay) {
    m_host.answer("POST /shutdown",
                  R"({"error":{"code":"not-allowed","text":"this needs the role admin","nearest":[]}})", 403);
    auto remote = control();
    EXPECT_EQ(std::pair(EExit::NotAllowed, std::string("this needs the role admin")),
              errorOf([&] { OverviewCommands(remote).shutdown(); }));
    m_host.answer("POST /shutdown", "{}");
    EXPECT_EQ(EExit::Done, OverviewCommands(remote).shutdown());
    EXPECT_EQ("the host stops all drivers and ends\n", out());
}

TEST_F(OverviewCommandsTest, WordsOfACompletionArePrintedOneALine) {
    m_host.answer("GET /completion?line=sendFID%20S", R"({"words":["SYS.","SYS.MARK"]})");
    auto remote = control();
    EXPECT_EQ(EExit::Done, OverviewCommands(remote).complete("sendFID S"));
    EXPECT_EQ("/completion?line=sendFID%20S", m_host.requests().back().target);
    EXPECT_EQ("SYS.\nSYS.MARK\n", out());
}
