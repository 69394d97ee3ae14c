#include "DriverCommands.h"

#include "RemoteFixture.h"

namespace {

constexpr const char* s_sys =
    R"({"id":"SYS","type":"SysMon","version":"1.0","mode":"queue","state":"Running","status":"running",
        "alive":true,"pid":4712,"byHand":false,"start":1,"since":"2026-11-22T12:00:00.000Z","cause":"",
        "restarts":0,"nextTryMs":null,"receivedPerSecond":3,"sentPerSecond":1,"queuedIn":2,"queuedOut":0,
        "valuesLost":0})";
constexpr const char* s_lamp =
    R"j({"id":"LAMP","type":"Lamp","version":"2.0","mode":"queue","state":"Waiting","status":"ended",
         "alive":false,"pid":null,"byHand":false,"start":2,"since":"2026-11-22T12:00:05.000Z",
         "cause":"signal 11 (Segmentation fault)","restarts":4,"nextTryMs":3200,"valuesLost":0})j";

class DriverCommandsTest : public RemoteFixture {
protected:
    DriverCommandsTest() {
        ::setenv("TZ", "UTC", 1);
        m_host.answer("GET /drivers", std::string(R"({"drivers":[)") + s_sys + "," + s_lamp + "]}");
    }
    ~DriverCommandsTest() override { ::unsetenv("TZ"); }
};

}  // namespace

TEST_F(DriverCommandsTest, ListTellsHowEachIs) {
    auto remote = control();
    EXPECT_EQ(EExit::Done, DriverCommands(remote).list(false));
    EXPECT_EQ(
        "ID    status   since                restarts  next try  last cause\n"
        "SYS   running  2026-11-22 12:00:00  0         -         -\n"
        "LAMP  ended    2026-11-22 12:00:05  4         in 4 s    signal 11 (Segmentation fault)\n",
        out());
}

TEST_F(DriverCommandsTest, LongListHasEverything) {
    auto remote = control();
    EXPECT_EQ(EExit::Done, DriverCommands(remote).list(true));
    EXPECT_THAT(out(),
                testing::HasSubstr("SYS   SysMon  1.0      queue  4712     running  2026-11-22 12:00:00  0"));
    EXPECT_THAT(out(), testing::HasSubstr("  3/1           2/0            0\n"));
}

TEST_F(DriverCommandsTest, ListFitsTheTerminal) {
    RemoteControl remote(Screen{m_out, m_err, {80, false}}, {m_host.path(), false});
    DriverCommands(remote).list(false);
    std::istringstream lines(out());
    for (std::string line; std::getline(lines, line);)
        EXPECT_LE(line.size(), 80u) << line;
    EXPECT_THAT(out(), testing::HasSubstr("signal 11 (Segmen"));
}

TEST_F(DriverCommandsTest, RunsAreListedNewestFirst) {
    m_host.answer(
        "GET /drivers/LAMP/runs",
        R"({"driver":"LAMP","more":false,"recorded":false,"since":null,"gaps":[],"steps":[)"
        R"({"time":"2026-11-22T12:00:05.000001Z","step":"end","pid":42,"start":1,"text":"signal 11"},)"
        R"({"time":"2026-11-22T12:00:00.000001Z","step":"start","pid":42,"start":1,"text":""}]})");
    auto remote = control();
    EXPECT_EQ(EExit::Done, DriverCommands(remote).runs("LAMP"));
    EXPECT_EQ(
        "time                 step   process  what\n"
        "2026-11-22 12:00:05  end    42       signal 11\n"
        "2026-11-22 12:00:00  start  42       -\n"
        "of the time before the host's start nothing is known: it does not record (--record-off)\n",
        out());
}

TEST_F(DriverCommandsTest, RunsOfADriverThatWasNeverStartedAreNone) {
    m_host.answer("GET /drivers/LAMP/runs",
                  R"({"driver":"LAMP","more":true,"recorded":true,"since":null,"gaps":[],"steps":[]})");
    auto remote = control();
    EXPECT_EQ(EExit::Done, DriverCommands(remote).runs("LAMP"));
    EXPECT_EQ("LAMP has not been started\nthere is more before that: mfctl recording show\n", out());
}

TEST_F(DriverCommandsTest, ThoseInTroubleAreShownWithoutBeingNamed) {
    m_host.answer("GET /drivers/LAMP", R"({"id":"LAMP","status":"ended","cause":"signal 11","restarts":4})");
    auto remote = control();
    EXPECT_EQ(EExit::Done, DriverCommands(remote).troubled());
    EXPECT_THAT(out(), testing::StartsWith("LAMP  ended\nlast cause  signal 11\n"));
    EXPECT_EQ(1u, m_host.requests("GET /drivers/LAMP").size());
    EXPECT_EQ(0u, m_host.requests("GET /drivers/SYS").size());
}

TEST_F(DriverCommandsTest, NobodyInTroubleIsSaid) {
    m_host.answer("GET /drivers", std::string(R"({"drivers":[)") + s_sys + "]}");
    auto remote = control();
    EXPECT_EQ(EExit::Done, DriverCommands(remote).troubled());
    EXPECT_EQ("no driver has ended or hangs\n", out());
}

TEST_F(DriverCommandsTest, ThoseInTroubleAreOneLineEachAsJson) {
    const std::string lamp = R"({"id":"LAMP","status":"ended"})";
    m_host.answer("GET /drivers/LAMP", lamp);
    auto remote = control(true);
    EXPECT_EQ(EExit::Done, DriverCommands(remote).troubled());
    EXPECT_EQ(lamp + "\n", out());
}

TEST_F(DriverCommandsTest, DriverThatDoesNotRunIsRed) {
    RemoteControl remote(Screen{m_out, m_err, {0, true}}, {m_host.path(), false});
    DriverCommands(remote).list(false);
    EXPECT_THAT(out(), testing::HasSubstr("\nLAMP  \x1b[31mended\x1b[0m  "));
    EXPECT_THAT(out(), testing::HasSubstr("\nSYS   \x1b[32mrunning\x1b[0m  "));
}

TEST_F(DriverCommandsTest, NoDriversAreSaid) {
    m_host.answer("GET /drivers", R"({"drivers":[]})");
    auto remote = control();
    DriverCommands(remote).list(false);
    EXPECT_EQ("no drivers\n", out());
}

TEST_F(DriverCommandsTest, CardHasCauseFilesQueuesLogAndLastWords) {
    m_host.answer("GET /drivers/LAMP",
                  R"({"id":"LAMP","type":"Lamp","version":"2.0","mode":"queue","status":"ended","alive":false,
                      "since":"2026-11-22T12:00:05.000Z","cause":"signal 11","restarts":4,"nextTryMs":0,
                      "module":"/usr/lib/mfdrivers/lamp.so","descriptor":"/usr/lib/mfdrivers/lamp.xml",
                      "directory":"/srv/data/LAMP","networkAdapter":"",
                      "queues":[{"name":"LAMP_INQ","depth":3,"capacity":64,"receiver":false}],
                      "log":[{"time":"2026-11-22T12:00:05.000Z","level":2,"output":"HOST","driver":"LAMP",
                              "text":"process 4711 ended"}],
                      "lastWords":["terminate called\u001b[2J"]})");
    auto remote = control();
    EXPECT_EQ(EExit::Done, DriverCommands(remote).card("LAMP"));
    EXPECT_EQ(
        "LAMP  ended, since 2026-11-22 12:00:05\n"
        "last cause  signal 11\n"
        "next try    now\n"
        "type        Lamp 2.0, queue\n"
        "restarts    4\n"
        "module      /usr/lib/mfdrivers/lamp.so\n"
        "descriptor  /usr/lib/mfdrivers/lamp.xml\n"
        "directory   /srv/data/LAMP\n"
        "\nqueues\n"
        "queue     depth  capacity  highest  messages  bytes  waits  waiting  holders  receiver\n"
        "LAMP_INQ  3      64                                         -                 no\n"
        "\nlast log lines\n"
        "12:00:05 error HOST LAMP  process 4711 ended\n"
        "\nwhat it said last\n"
        "terminate called\\x1b[2J\n",
        out());
}

TEST_F(DriverCommandsTest, IdIsEncodedInTheTarget) {
    auto remote = control();
    errorOf([&] { DriverCommands(remote).card("A/B"); });
    EXPECT_EQ("/drivers/A%2FB", m_host.requests().back().target);
}

TEST_F(DriverCommandsTest, ReloadWaitsAndTellsHowTheDriverIs) {
    m_host.answer(
        "POST /drivers/SYS/reload",
        R"({"output":"Loading MF driver ...OK\n","driver":{"id":"SYS","status":"running","alive":true}})");
    auto remote = control();
    EXPECT_EQ(EExit::Done, DriverCommands(remote).change("SYS", "reload", std::chrono::seconds(9)));
    EXPECT_EQ(Json::object(), members("POST /drivers/SYS/reload"));
    EXPECT_EQ(9000, timeoutOf("POST /drivers/SYS/reload"));
    EXPECT_EQ("Loading MF driver ...OK\nSYS: running\n", out());
}

TEST_F(DriverCommandsTest, WhatGoesOnIsToldWithItsDriverAndWhereTheHostIs) {
    m_host.answer("POST /drivers/SYS/park", R"({"text":"it goes on"})", 202);
    m_host.answer("POST /drivers/SYS/reload", R"({"text":"it goes on"})", 202);
    auto remote = control();
    EXPECT_EQ(std::pair(EExit::NotFinished, std::string("stop SYS is not finished in time; it goes on")),
              errorOf([&] { DriverCommands(remote).change("SYS", "park", std::chrono::seconds(9)); }));
    m_host.answer("GET /health", R"({"command":{"what":"reloadDriver SYS","forMs":9000,"driver":"SYS",
                                     "operation":"deinitialize"}})");
    EXPECT_EQ(std::pair(EExit::NotFinished,
                        std::string("reload SYS is not finished in time; it goes on; reloadDriver SYS has "
                                    "been under way for 9 s, in deinitialize of SYS")),
              errorOf([&] { DriverCommands(remote).change("SYS", "reload", std::chrono::seconds(9)); }));
}

TEST_F(DriverCommandsTest, RefusedReloadFailsWithTheHostsReason) {
    m_host.answer("POST /drivers/SYS/park",
                  R"({"error":{"code":"refused","text":"SYS is not stopped: it is parked","nearest":[]}})",
                  409);
    auto remote = control();
    EXPECT_EQ(std::pair(EExit::Failed, std::string("SYS is not stopped: it is parked")),
              errorOf([&] { DriverCommands(remote).change("SYS", "park", std::chrono::seconds(9)); }));
}
