#include <signal.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "ControlledWorkplace.h"
#include "Terminal.h"

using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

// A driver in the host's process that sends to itself while it holds its lock: the command thread does not
// come back from it.
class HeldUp : public ControlledWorkplace {
protected:
    void prepare() override {
        giveAdapter();
        workplace().addModule("LocksItself");
        workplace().addModule("Echo");
        workplace().configure(TestWorkplace::entry("A", "LocksItself", "direct") +
                              TestWorkplace::entry("B", "Echo", "queue"));
    }

    HostProcess& startHeldUp() {
        HostProcess& host = start();
        EXPECT_TRUE(host.waitForLog("HOST: the workplace is started")) << host.log();
        host.type("sendFID A.PING to=5");
        return host;
    }
    /// What is said of the call, once.
    static constexpr const char* s_line =
        "warning  HOST: A: sendFID(PONG) has not come back for 5 s and holds up \"sendFID A.PING to=5\"; "
        "the driver runs in the host's process and cannot be ended alone\n";
};

TEST_F(HeldUp, CommandIsToldWithDriverAndCallAndStack) {
    HostProcess& host = startHeldUp();
    EXPECT_TRUE(host.waitForLog(s_line)) << host.log();
    if (std::system("eu-stack --version >/dev/null 2>&1") == 0) {
        EXPECT_TRUE(host.waitForLog("    TID ")) << host.log();
        EXPECT_TRUE(host.waitForLog("LocksItself")) << host.log();
    }
    const std::string log = host.log();
    EXPECT_EQ(log.find("has not come back"), log.rfind("has not come back")) << log;
}

TEST_F(HeldUp, DriversAndTheRestAnswerMeanwhile) {
    HostProcess& host = startHeldUp();
    ASSERT_TRUE(host.waitForLog(s_line)) << host.log();
    host.type("drivers");
    EXPECT_TRUE(host.waitForOutput("\"sendFID A.PING to=5\" has not come back yet; meanwhile:\nID "))
        << host.output();
    EXPECT_TRUE(host.waitForOutput("LocksItself  1.0")) << host.output();
    host.type("queues");
    EXPECT_TRUE(host.waitForOutput("meanwhile:\nqueue ")) << host.output();
    host.type("events");
    EXPECT_TRUE(host.waitForOutput("meanwhile:\nno events\n")) << host.output();
    host.type("state A.*");
    EXPECT_TRUE(host.waitForOutput("meanwhile:\nno state value matches A.*\n")) << host.output();
    host.type("help quit");
    EXPECT_TRUE(host.waitForOutput("meanwhile:\nquit\n")) << host.output();
    host.signal(SIGTERM);
    EXPECT_EQ(host.waitForEnd(), 0);
    EXPECT_THAT(host.log(),
                HasSubstr("A: sendFID(PONG) holds up the shutdown for 5 s; the host ends without it\n"));
}

TEST_F(HeldUp, AnotherTerminalIsAnsweredMeanwhile) {
    HostProcess& host = start({"--control", socket()});
    ASSERT_TRUE(host.waitForLog("HOST: the workplace is started")) << host.log();
    host.type("sendFID A.PING to=5");
    ASSERT_TRUE(host.waitForLog(s_line)) << host.log();
    const Answer attached =
        execute("printf 'drivers\\nstate A.*\\n' | " + (TestWorkplace::build() / "bin/mfctl").string() +
                " --host " + socket() + " attach");
    EXPECT_EQ(attached.exitCode, 0) << attached.text;
    EXPECT_THAT(
        attached.text,
        ContainsRegex("\"sendFID A.PING to=5\" has not come back yet; meanwhile:\nID (.*\n)*A .*running"));
    EXPECT_THAT(attached.text, HasSubstr("meanwhile:\nno state value matches A.*\n"));
    const Answer health = mfctl("health");
    EXPECT_EQ(health.exitCode, 1);
    EXPECT_THAT(health.text, ContainsRegex("; sendFID A.PING to=5 has been under way for [0-9]+ s, in "
                                           "sendFID\\(PING\\) of A\n"));
    const Answer doctor = mfctl("doctor");
    EXPECT_EQ(doctor.exitCode, 1);
    EXPECT_THAT(doctor.text,
                ContainsRegex("mfhost, process [0-9]+: answers, but sendFID A.PING to=5 has been "
                              "under way for [0-9]+ s, in sendFID\\(PING\\) of A\n"));
    host.signal(SIGTERM);
    EXPECT_EQ(host.waitForEnd(), 0);
}

TEST_F(HeldUp, QuitIsHeardMeanwhile) {
    HostProcess& host = startHeldUp();
    ASSERT_TRUE(host.waitForLog(s_line)) << host.log();
    host.type("quit");
    EXPECT_EQ(host.waitForEnd(), 0);
    EXPECT_THAT(host.log(), HasSubstr("HOST: shutting down: quit\n"));
}

TEST_F(HeldUp, TerminalIsAnsweredAsSoonAsTheCommandGoesOn) {
    const HostProcess::Start call = workplace().host();
    Terminal terminal([&] { becomeProgram(call); });
    ASSERT_TRUE(terminal.awaitPrompt()) << terminal.screen();
    ASSERT_TRUE(terminal.type("sendFID A.PING to=5\r"));
    ASSERT_TRUE(terminal.shows("\"sendFID A.PING to=5\" goes on; its reply comes later"))
        << terminal.screen();
    ASSERT_TRUE(terminal.type("drivers\r"));
    EXPECT_TRUE(terminal.shows("\"sendFID A.PING to=5\" has not come back yet; meanwhile:"))
        << terminal.screen();
    EXPECT_TRUE(terminal.shows("LocksItself")) << terminal.screen();
    ASSERT_TRUE(terminal.type("quit\r"));
    EXPECT_EQ(terminal.waitForEnd(), 0);
}

TEST_F(HeldUp, FidThatReachesNobodyIsToldAtTheConsole) {
    HostProcess& host = start();
    ASSERT_TRUE(host.waitForLog("HOST: the workplace is started")) << host.log();
    host.type("sendFID C.PRINT value=x");
    EXPECT_TRUE(host.waitForOutput("\"C.PRINT\" has reached nobody: there is no driver C")) << host.output();
    host.type("sendFID A.PONG to = 5 at once");
    EXPECT_TRUE(host.waitForOutput(
        "sent \"A.PONG\" with \"to\"=\"5\" \"at\"=\"once\"; a value with blanks stands in quotes\n"))
        << host.output();
    host.type("stopDriver B");
    host.type("sendFID B.PRINT value=x");
    EXPECT_TRUE(host.waitForOutput("\"B.PRINT\" has reached nobody: B is parked\n")) << host.output();
    EXPECT_THAT(host.output(), Not(HasSubstr("\"A.PONG\" has reached nobody")));
    EXPECT_EQ(end(), 3);
}

// A driver process that takes nothing, and a script that sends to it more than its queue holds.
class HeldUpScript : public ControlledWorkplace {
protected:
    void prepare() override {
        giveAdapter();
        workplace().addModule("HangsInSendFID");
        workplace().addModule("Echo");
        workplace().configure(TestWorkplace::entry("H", "HangsInSendFID", "queue") +
                              TestWorkplace::entry("B", "Echo", "queue"));
    }
};

TEST_F(HeldUpScript, HoldsUpNeitherOtherTerminalsNorOtherDrivers) {
    HostProcess& host = start({"--control", socket(), "--hang-timeout", "0", "--stop-timeout", "60"});
    ASSERT_TRUE(host.waitForLog("HOST: the workplace is started")) << host.log();
    for (int i = 0; i < 300; ++i)
        host.type("sendFID H.GO");
    host.type("sendFID B.PRINT value=later");
    const auto isFull = [this] {
        return testing::Value(mfctl("queues").text, ContainsRegex("H_INQ +256 +256 "));
    };
    ASSERT_TRUE(eventually(isFull)) << mfctl("queues").text;
    const Answer reload = mfctl("reload B");
    EXPECT_EQ(reload.exitCode, 0) << reload.text;
    const Answer sent = mfctl("send B.PRINT value=now --wait taken");
    EXPECT_EQ(sent.exitCode, 0) << sent.text;
    const Answer health = mfctl("health");
    EXPECT_THAT(health.text, Not(HasSubstr("has been under way")));
    EXPECT_THAT(host.log(), Not(HasSubstr("it is ended")));
    host.signal(SIGTERM);
    EXPECT_EQ(host.waitForEnd(), 0);
}
