#include <signal.h>

#include <string>

#include "ControlledWorkplace.h"

namespace {

namespace fs = std::filesystem;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

/// The real remote control at the control socket of a real host.
class Control : public ControlledWorkplace {};

TEST_F(Control, DriversAreListedWithWhatTheTableKnows) {
    startControlled();
    const Answer answer = mfctl("drivers");
    EXPECT_EQ(answer.exitCode, 0) << answer.text;
    EXPECT_THAT(answer.text, ContainsRegex("E +running"));
    EXPECT_THAT(answer.text, ContainsRegex("G +running"));
    EXPECT_EQ(end(), 0);
}

TEST_F(Control, FidIsTakenByItsDriverProcessAndTheValueComesBack) {
    startControlled();
    const Answer sent = mfctl("send E.INT name=N value=7 --wait taken");
    EXPECT_EQ(sent.exitCode, 0) << sent.text;
    EXPECT_THAT(sent.text, HasSubstr("E.INT taken"));
    EXPECT_TRUE(eventually(
        [&] { return testing::Matches(ContainsRegex("E\\.N +int +7 +E "))(mfctl("state E.N").text); }));
    EXPECT_EQ(end(), 0);
}

TEST_F(Control, FidThatWasSentCompletesAtTheConsoles) {
    startControlled();
    EXPECT_EQ(mfctl("send E.INT name=N value=7 --wait taken").exitCode, 0);
    EXPECT_EQ(mfctl("send EE.INT name=N").exitCode, 1);
    EXPECT_EQ(ask("/api/v1/completion?line=sendFID%20E").text, R"({"words":["E.","E.INT"]})");
    EXPECT_EQ(end(), 0);
}

TEST_F(Control, FidThatReachesNobodyFailsWithTheNearestName) {
    startControlled();
    const Answer answer = mfctl("send EE.INT name=N");
    EXPECT_EQ(answer.exitCode, 1);
    EXPECT_THAT(answer.text, HasSubstr("there is no driver EE"));
    EXPECT_THAT(answer.text, HasSubstr("E?"));
    EXPECT_EQ(end(), 0);
}

TEST_F(Control, DriverIsStoppedAndStartedAgain) {
    HostProcess& host = startControlled();
    EXPECT_EQ(mfctl("stop E").exitCode, 0);
    EXPECT_THAT(host.listed("E"), ContainsRegex("  parked +[0-9].*  parked by root  "));
    const Answer again = mfctl("stop E");
    EXPECT_EQ(again.exitCode, 1);
    EXPECT_THAT(again.text, HasSubstr("it is parked already"));
    EXPECT_EQ(mfctl("start E").exitCode, 0);
    expectSets(host, "E");
    EXPECT_EQ(end(), 0);
}

TEST_F(Control, ReloadThatIsAskedForTwiceIsDoneOnce) {
    HostProcess& host = startControlled();
    for (int i = 0; i < 2; ++i)
        EXPECT_THAT(ask("/api/v1/drivers/G/reload", R"({"request":"once"})").text, HasSubstr(R"("id":"G")"));
    EXPECT_EQ(end(), 0);
    EXPECT_EQ(count(host.log(), "HOST: reload of G, asked for by root\n"), 1) << host.log();
}

TEST_F(Control, PlanIsAppliedAndUndone) {
    HostProcess& host = startControlled();
    EXPECT_EQ(mfctl("plan --exit-code").exitCode, 0);
    workplace().configure(entry("E", "queue") + entry("G", "direct") + entry("N", "direct"));
    const Answer plan = mfctl("plan --exit-code");
    EXPECT_EQ(plan.exitCode, 6) << plan.text;
    EXPECT_THAT(plan.text, HasSubstr("N"));
    EXPECT_EQ(mfctl("apply").exitCode, 0);
    expectSets(host, "N");
    EXPECT_EQ(mfctl("undo").exitCode, 0);
    EXPECT_EQ(host.listed("N"), "") << host.log();
    EXPECT_EQ(end(), 0);
}

TEST_F(Control, ValuesAreThoseOfTheConsole) {
    HostProcess& host = startControlled();
    EXPECT_EQ(mfctl("set ROOM.LIGHT 3").exitCode, 0);
    EXPECT_THAT(host.ask("state ROOM.LIGHT"), ContainsRegex("ROOM\\.LIGHT +int +3 +console "));
    EXPECT_EQ(mfctl("unset ROOM.LIGHT").exitCode, 0);
    EXPECT_THAT(host.ask("state ROOM.LIGHT"), HasSubstr("no state value matches"));
    EXPECT_EQ(end(), 0);
}

TEST_F(Control, WhatADriverProcessWritesToStandardErrorIsInItsLogAndTheHostsLinesInTheHosts) {
    workplace().addModule("Talks");
    HostProcess& host = startControlled(entry("T", "queue", "Talks"));
    EXPECT_EQ(mfctl("send T.SAY value='out of paper' --wait taken").exitCode, 0);
    ASSERT_TRUE(host.waitForLog("warning  T: out of paper\n")) << host.log();
    const Answer ofDriver = mfctl("log T");
    EXPECT_EQ(ofDriver.exitCode, 0) << ofDriver.text;
    EXPECT_THAT(ofDriver.text, ContainsRegex("(^|\n)[0-9:]{8} info T MFD  Runs "));
    EXPECT_THAT(ofDriver.text, ContainsRegex("\n[0-9:]{8} warning T  out of paper\n"));
    EXPECT_THAT(ofDriver.text, Not(HasSubstr("the workplace is started")));
    const std::string ofAll = mfctl("log --level 4").text;
    EXPECT_THAT(ofAll, ContainsRegex("(^|\n)[0-9:]{8} info HOST  the workplace is started\n"));
    EXPECT_THAT(ofAll, ContainsRegex("\n[0-9:]{8} warning T  out of paper\n"));
    EXPECT_THAT(ask("/api/v1/log?driver=T&lines=1").text,
                ContainsRegex(R"("level":3,"output":"T","driver":"T","text":"out of paper")"));
    EXPECT_EQ(mfctl("log NONE").exitCode, 1);
    EXPECT_EQ(end(), 0);
}

TEST_F(Control, CardOfADriverThatWasKilledHasItsLastWordsAndLines) {
    workplace().addModule("Talks");
    workplace().configure(entry("T", "queue", "Talks"));
    HostProcess& host = startAndWait({"--control", socket(), "--restart-delay", "60"});
    EXPECT_EQ(mfctl("send T.SAY value='one more' --wait taken").exitCode, 0);
    ASSERT_TRUE(host.waitForLog("warning  T: one more\n")) << host.log();
    ASSERT_EQ(::kill(host.driverProcess("T"), SIGKILL), 0);
    ASSERT_TRUE(host.waitForLog("ended unexpectedly: signal 9 (Killed)")) << host.log();
    const Answer card = mfctl("driver T");
    EXPECT_EQ(card.exitCode, 0) << card.text;
    EXPECT_THAT(card.text, HasSubstr("\nlast cause  signal 9 (Killed)\n"));
    EXPECT_THAT(card.text, ContainsRegex("\nlast log lines\n([^\n]+\n)*[0-9:]{8} warning T  one more\n"
                                         "[0-9:]{8} error HOST  T: process [0-9]+ ended unexpectedly: "));
    EXPECT_THAT(card.text, HasSubstr("\nwhat it said last\none more\n"));
    EXPECT_EQ(end(), 0);
}

TEST_F(Control, MetricsTellWhatTheHostCounts) {
    HostProcess& host = startControlled();
    EXPECT_EQ(mfctl("send E.INT name=N value=7 --wait taken").exitCode, 0);
    EXPECT_EQ(mfctl("send EE.INT name=N").exitCode, 1);
    EXPECT_EQ(mfctl("stop G").exitCode, 0);
    ASSERT_EQ(::kill(host.driverProcess("E"), SIGKILL), 0);
    ASSERT_TRUE(host.waitForLog("E: is started again")) << host.log();
    const Answer answer = ask("/metrics");
    for (const char* line :
         {"\nmf_driver_up{driver=\"E\"} 1\n", "\nmf_driver_state{driver=\"G\",state=\"parked\"} 1\n",
          "\nmf_driver_restarts_total{driver=\"E\",cause=\"signal\"} 1\n",
          "\nmf_driver_hangs_total{driver=\"E\"} 0\n", "\nmf_queue_capacity{driver=\"E\",direction=\"in\"} ",
          "\nmf_fids_total{driver=\"E\",outcome=\"written\"} 1\n",
          "\nmf_fids_total{outcome=\"no-such-driver\"} ", "\nmf_api_requests_total{code=\"409\"} 1\n"})
        EXPECT_THAT(answer.text, HasSubstr(line));
    EXPECT_THAT(answer.text, Not(HasSubstr("mf_driver_up{driver=\"G\"}")));
    EXPECT_EQ(end(), 0);
}

TEST_F(Control, FunctionThatADriverOfTheHostDoesNotKnowIsToldWithTheNearest) {
    workplace().configure(entry("S", "direct", "SysMon"));
    startAndWait({"--control", socket()});
    const Answer answer = mfctl("send S.MAKR text=1");
    EXPECT_EQ(answer.exitCode, 1) << answer.text;
    EXPECT_THAT(answer.text, HasSubstr("unknown FID \"MAKR\"; known are "));
    EXPECT_THAT(answer.text, HasSubstr("MARK?"));
    EXPECT_EQ(end(), 0);
}

TEST_F(Control, ShutdownEndsTheHostInOrderAndRemovesTheSocket) {
    HostProcess& host = startControlled();
    const Answer answer = mfctl("shutdown");
    EXPECT_EQ(answer.exitCode, 0) << answer.text;
    EXPECT_EQ(host.waitForEnd(), 0);
    EXPECT_THAT(host.log(), HasSubstr("HOST: shutting down: shutdown by root\n"));
    EXPECT_FALSE(fs::exists(socket()));
    EXPECT_EQ(mfctl("drivers").exitCode, 3);
}

TEST_F(Control, StreamOfAHostThatRecordsTellsFidsStartsAndTheLog) {
    workplace().addModule("Echo");
    workplace().configure(entry("E", "queue") + entry("G", "direct"));
    startAndWait({"--control", socket()});
    ASSERT_EQ(mfctl("send E.INT name=N value=7 --wait taken").exitCode, 0);
    EXPECT_THAT(mfctl("events --kind fid --driver E").text,
                ContainsRegex(" host fid E.INT name=N value=7 from api root to E: written\n$"));
    EXPECT_THAT(mfctl("events --kind start").text, ContainsRegex(" E start process [0-9]+\n"));
    EXPECT_EQ(mfctl("events --kind fid --driver G").text, "no events\n");
    const std::string last = ask(R"(/api/v1/stream?kinds=log\&drivers=E\&last=1\&follow=0)").text;
    EXPECT_THAT(last, testing::StartsWith(R"({"kind":"hello","instance":")"));
    EXPECT_THAT(last, HasSubstr(R"("kind":"log","driver":"E","level":4,"output":"E MFD","text":"Runs )"));
    EXPECT_EQ(count(last, "\n"), 2);

    // Who follows hears of it, and of what comes after a cut.
    const HostProcess follower({(TestWorkplace::build() / "bin/mfctl").string(),
                                {"--host", socket(), "events", "-f", "--kind", "fid", "-n", "1"},
                                {},
                                workplace().directory()});
    ASSERT_TRUE(follower.waitForOutput("E.INT name=N value=7 from api root to E: written\n"))
        << follower.log();
    ASSERT_EQ(mfctl("send G.INT name=N value=8 --wait taken").exitCode, 0);
    EXPECT_TRUE(follower.waitForOutput("fid G.INT name=N value=8 from api root to G: begins\n"))
        << follower.log();
    EXPECT_THAT(ask("/metrics").text,
                ContainsRegex("mf_delivery_seconds_count.driver=\"E\",direction=\"in\". "
                              "[1-9]"));
    EXPECT_THAT(ask("/metrics").text, HasSubstr("mf_stream_lapped_total{reader=\"client\"} 0\n"));
    EXPECT_EQ(end(), 0);
    EXPECT_TRUE(follower.waitForLog("waiting for it\n")) << follower.log();
}

TEST_F(Control, PastOfAValueAndOfADriverIsToldOverTheHostsEnd) {
    workplace().addModule("Echo");
    workplace().configure(entry("E", "queue"));
    HostProcess& host = startAndWait({"--control", socket(), "--restart-delay", "1"});
    const std::string history = "/api/v1/state/E.N/history";
    const std::string runs = "/api/v1/drivers/E/runs";
    const auto answers = [&](const std::string& path, const std::string& pattern) {
        return eventually([&] { return testing::Matches(ContainsRegex(pattern))(ask(path).text); });
    };
    // The thread that has sent the FID records that it is written; on a busy machine the value may be there
    // first.
    int sent = 0;
    std::string told;
    const auto isToldWithItsFid = [&] {
        const std::string value = std::to_string(6 + ++sent);
        EXPECT_EQ(mfctl("send E.INT name=N value=" + value + " --wait taken").exitCode, 0);
        EXPECT_TRUE(
            answers(history, R"("changes":)" + std::to_string(sent) + R"(,.*"value":)" + value + ","));
        told = ask(history).text;
        return testing::Matches(
            ContainsRegex(R"("value":)" + value + R"(,"text":")" + value +
                          R"x(","before":\[\{.*"fid":"E\.INT",.*"origin":"api","who":"root",)x"
                          R"x("outcome":"written","beforeUs":[0-9]+\}\])x"))(told);
    };
    while (!isToldWithItsFid() && sent < 20) {
    }
    EXPECT_LT(sent, 20) << told;
    EXPECT_THAT(ask("/api/v1/state/E.M/history").text, HasSubstr("\"code\":\"state-unknown\""));
    ASSERT_EQ(::kill(host.driverProcess("E"), SIGKILL), 0);
    EXPECT_TRUE(answers(runs,
                        R"x("step":"start","pid":[0-9]+,"start":2,"text":"again"\}.*"step":"restart",.*)x"
                        R"x("step":"end","pid":[0-9]+,"start":1,"text":"signal 9 \(Killed\)"\}.*)x"
                        R"x("step":"start","pid":[0-9]+,"start":1,"text":""\}\])x"))
        << ask(runs).text;
    EXPECT_EQ(mfctl("stop E").exitCode, 0);
    // The end of the process is told by another thread, before it or after it.
    EXPECT_THAT(ask(runs).text,
                ContainsRegex(R"x("steps":\[(\{"time":"[^"]*","step":"end",[^}]*\},)?)x"
                              R"x(\{"time":"[^"]*","step":"parked","pid":[^,]*,"start":2,)x"));
    EXPECT_THAT(mfctl("driver E --runs").text,
                ContainsRegex("\n[-0-9: ]{19}  end +[0-9]+ +signal 9 \\(Killed\\)"));
    EXPECT_EQ(end(), 0);

    // The next host knows it from what the first one has kept.
    startAndWait({"--control", socket()});
    EXPECT_TRUE(answers(runs,
                        R"x("step":"restart","pid":null,"start":null,"text":"none: [^"]*root[^"]*"\}.*)x"
                        R"x("step":"end","pid":null,"start":null,"text":"signal 9 \(Killed\)"\})x"))
        << ask(runs).text;
    EXPECT_THAT(ask(history).text,
                ContainsRegex(R"("changes":)" + std::to_string(sent) + R"x(,.*"now":null\})x"));
    EXPECT_EQ(end(), 0);
}

TEST_F(Control, MessagesOfADriverAreShownWhileSomebodyAsksForThem) {
    workplace().addModule("Echo");
    workplace().configure(entry("E", "queue") + entry("G", "direct"));
    startAndWait({"--control", socket()});
    ASSERT_EQ(mfctl("send E.INT name=BEFORE value=1 --wait taken").exitCode, 0);
    // What the driver says to it comes later than that.
    ASSERT_TRUE(eventually(
        [&] { return mfctl("state E.BEFORE --json").text.find("\"text\":\"1\"") != std::string::npos; }));
    const HostProcess monitor({(TestWorkplace::build() / "bin/mfctl").string(),
                               {"--host", socket(), "monitor", "--wire", "E"},
                               {},
                               workplace().directory()});
    int value = 1;
    // The first that is shown may be what the driver says to a FID that came before.
    ASSERT_TRUE(eventually([&] {
        mfctl("send E.INT name=N value=" + std::to_string(++value) + " --wait taken");
        const std::string shown = monitor.output();
        return shown.find(" E wire from driver SETVAI \"N\" ") != std::string::npos &&
               shown.find(" E wire to driver SNDFDP \"INT\" name=\"N\" value=\"") != std::string::npos;
    })) << monitor.log();
    EXPECT_THAT(monitor.output(), Not(HasSubstr("BEFORE")));
    EXPECT_EQ(mfctl("monitor --wire NOBODY").exitCode, 1);
    EXPECT_EQ(end(), 0);
}

TEST_F(Control, HostThatDoesNotRecordListsItsEvents) {
    startAndWait({"--control", socket(), "--record-off"});
    ASSERT_EQ(mfctl("event E.DONE now").exitCode, 0);
    EXPECT_THAT(mfctl("events").text, ContainsRegex("E\\.DONE +now"));
    const Answer refused = mfctl("events --kind fid");
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_THAT(refused.text, HasSubstr("the host does not record"));
    EXPECT_EQ(end(), 0);
}

TEST_F(Control, ProcessOfADriverIsRefused) {
    workplace().addModule("StartsProcesses");
    workplace().configure(entry("S", "queue", "StartsProcesses"));
    HostProcess& host = startAndWait({"--control", socket()});
    const pid_t driver = host.driverProcess("S");
    ASSERT_NE(driver, 0);
    // One that bears the mark of a driver's process, however it was started.
    const std::string environment = readFile("/proc/" + std::to_string(driver) + "/environ");
    const auto at = environment.find("MFD_PROCESS=");
    ASSERT_NE(at, std::string::npos);
    const std::string mark = environment.substr(at, environment.find('\0', at) - at);
    for (int i = 0; i < 10; ++i)
        EXPECT_THAT(execute("env '" + mark + "' curl -sS --max-time 60 --unix-socket " + socket() +
                            " http://localhost/api/v1")
                        .text,
                    HasSubstr("not-allowed"));
    EXPECT_THAT(ask("/api/v1").text, HasSubstr(R"("role":"admin")"));
    EXPECT_EQ(end(), 0);
}

}  // namespace
