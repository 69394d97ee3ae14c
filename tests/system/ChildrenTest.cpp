#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "FaultyWorkplace.h"

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using testing::HasSubstr;
using testing::Not;

// What drivers start themselves: with a driver process ends all that it has started, and what a driver in the
// host's process starts is its own.
class Children : public FaultyWorkplace {
protected:
    void prepare() override {
        FaultyWorkplace::prepare();
        workplace().addModule("StartsProcesses");
        workplace().addModule("Echo");
    }

    void TearDown() override {
        for (const pid_t child : m_started)
            ::kill(child, SIGKILL);
    }

    /// S starts processes, in that mode; E is a driver process beside it.
    HostProcess& startWith(const std::string& modeOfS, const std::vector<std::string>& options = {}) {
        workplace().configure(TestWorkplace::entry("S", "StartsProcesses", modeOfS) +
                              TestWorkplace::entry("E", "Echo", "queue"));
        HostProcess::Start start = call({"--log-level", "5", "--restart-delay", "0.1"});
        start.arguments.insert(start.arguments.end(), options.begin(), options.end());
        HostProcess& host = this->start(start);
        EXPECT_TRUE(host.waitForLog("HOST: the workplace is started")) << host.log();
        return host;
    }
    /// Lets S start a process; its number.
    pid_t startChild(HostProcess& host, const std::string& how) {
        const fs::path file = workplace().directory() / ("child" + std::to_string(++m_number));
        host.type("sendFID S." + how + " file=" + file.string());
        const pid_t child = numberIn(file);
        if (child > 0)
            m_started.push_back(child);
        return child;
    }
    static pid_t numberIn(const fs::path& file) {
        for (int i = 0; i < 1500 && !fs::exists(file); ++i)
            std::this_thread::sleep_for(20ms);
        return fs::exists(file) ? std::atoi(readFile(file).c_str()) : 0;
    }
    static bool isAlive(pid_t pid) { return !endsWithin(pid, 0); }
    static void expectEnds(pid_t pid) { EXPECT_TRUE(endsWithin(pid, 30'000)) << pid; }
    static void expectEchoes(HostProcess& host) {
        static int s_number = 0;
        const std::string text = "echo" + std::to_string(++s_number);
        host.type("sendFID E.PRINT value=" + text);
        EXPECT_TRUE(host.waitForOutput(text + "\n")) << host.log();
    }

private:
    int m_number = 0;
    std::vector<pid_t> m_started;
};

/// How the process is made that the driver process leaves behind.
class ChildrenOfADriverProcess : public Children, public testing::WithParamInterface<std::string> {};

TEST_P(ChildrenOfADriverProcess, EndWhenItIsKilled) {
    HostProcess& host = startWith("queue");
    const pid_t child = startChild(host, GetParam());
    ASSERT_TRUE(isAlive(child));
    const pid_t driver = host.driverProcess("S");
    ::kill(driver, SIGKILL);
    expectEnds(child);
    EXPECT_TRUE(host.waitForLog("HOST: S: process " + std::to_string(driver) +
                                " left 1 process behind, ended with it: " + std::to_string(child) + " ("))
        << host.log();
    // Nor does the child keep the driver's queues.
    EXPECT_TRUE(host.waitForLog("HOST: S: is started again\n")) << host.log();
    EXPECT_EQ(end(), 0);
}

TEST_P(ChildrenOfADriverProcess, EndWithItsReload) {
    HostProcess& host = startWith("queue");
    const pid_t child = startChild(host, GetParam());
    ASSERT_TRUE(isAlive(child));
    host.type("reloadDriver S");
    settle(host);
    expectEnds(child);
    EXPECT_TRUE(isAlive(startChild(host, GetParam())));
    EXPECT_EQ(end(), 0);
}

TEST_P(ChildrenOfADriverProcess, EndWithTheHost) {
    HostProcess& host = startWith("queue");
    const pid_t child = startChild(host, GetParam());
    ASSERT_TRUE(isAlive(child));
    EXPECT_EQ(end(), 0);
    expectEnds(child);
}

TEST_P(ChildrenOfADriverProcess, EndWhenTheHostIsKilled) {
    HostProcess& host = startWith("queue");
    const pid_t child = startChild(host, GetParam());
    ASSERT_TRUE(isAlive(child));
    const pid_t driver = host.driverProcess("S");
    host.signal(SIGKILL);
    host.waitForEnd();
    expectEnds(driver);
    expectEnds(child);
}

INSTANTIATE_TEST_SUITE_P(MadeBy, ChildrenOfADriverProcess,
                         testing::Values("FORK", "CLONE", "SLEEP", "SESSION", "DAEMON"),
                         [](const auto& test) { return test.param; });

TEST_F(Children, WithoutMarkAndSessionEndOnceTheyWereSeen) {
    HostProcess& host = startWith("queue");
    // Each second the host looks; how soon a loaded machine does so nobody can tell.
    bool hasEnded = false;
    for (int round = 1; round <= 10 && !hasEnded; ++round) {
        const pid_t child = startChild(host, "BARE");
        ASSERT_TRUE(isAlive(child));
        const pid_t driver = host.driverProcess("S");
        std::this_thread::sleep_for(round * 1500ms);
        ::kill(driver, SIGKILL);
        ASSERT_TRUE(host.waitForLog("HOST: S: process " + std::to_string(driver) + " ended")) << host.log();
        hasEnded = endsWithin(child, 1000);
        ::kill(child, SIGKILL);
        for (int i = 0; i < 1500 && (host.driverProcess("S") == 0 || host.driverProcess("S") == driver); ++i)
            std::this_thread::sleep_for(20ms);
    }
    EXPECT_TRUE(hasEnded);
    EXPECT_EQ(end(), 0);
}

TEST_F(Children, OfADriverThatHangsWhenItsHostIsKilledEndWithIt) {
    HostProcess& host = startWith("queue");
    const pid_t child = startChild(host, "DAEMON");
    const pid_t awaited = startChild(host, "FORK");
    ASSERT_TRUE(isAlive(child));
    const pid_t driver = host.driverProcess("S");
    // For a child that never ends.
    host.type("sendFID S.WAIT file=" + (workplace().directory() / "code").string());
    settle(host);
    host.signal(SIGKILL);
    host.waitForEnd();
    expectEnds(awaited);
    expectEnds(driver);
    expectEnds(child);
}

/// Processes that a driver in the host's process has started.
class ChildrenOfTheHost : public Children, public testing::WithParamInterface<std::string> {};

TEST_P(ChildrenOfTheHost, AreLeftAloneWhenADriverProcessEnds) {
    HostProcess& host = startWith("direct");
    const pid_t child = startChild(host, GetParam());
    ASSERT_TRUE(isAlive(child));
    ::kill(host.driverProcess("E"), SIGKILL);
    EXPECT_TRUE(host.waitForLog("HOST: E: is started again\n")) << host.log();
    expectEchoes(host);
    EXPECT_EQ(end(), 0);
    EXPECT_TRUE(isAlive(child));
    EXPECT_THAT(host.log(), Not(HasSubstr(" behind")));
}

INSTANTIATE_TEST_SUITE_P(MadeBy, ChildrenOfTheHost,
                         testing::Values("FORK", "CLONE", "SLEEP", "SESSION", "DAEMON", "BARE"),
                         [](const auto& test) { return test.param; });

TEST_F(Children, OfTheHostAreCollectedByTheirDriver) {
    HostProcess& host = startWith("direct");
    const fs::path file = workplace().directory() / "exited";
    host.type("sendFID S.EXIT code=7 file=" + file.string());
    ASSERT_GT(numberIn(file), 0);
    // The host has collected a process of its own and looked around meanwhile.
    ::kill(host.driverProcess("E"), SIGKILL);
    EXPECT_TRUE(host.waitForLog("HOST: E: is started again\n")) << host.log();
    std::this_thread::sleep_for(2500ms);
    const fs::path code = workplace().directory() / "code";
    host.type("sendFID S.WAIT file=" + code.string());
    EXPECT_EQ(numberIn(code), 7);
    EXPECT_EQ(end(), 0);
}

TEST_F(Children, OfTheHostThatHoldTheLocksKeepNoDriverProcessOfADeadHostAlive) {
    HostProcess& host = startWith("direct");
    // The queues of E are there already, so that it holds them.
    const pid_t holder = startChild(host, "CLONE");
    ASSERT_TRUE(isAlive(holder));
    const pid_t driver = host.driverProcess("E");
    host.signal(SIGKILL);
    host.waitForEnd();
    EXPECT_TRUE(endsWithin(driver, 30'000));
    EXPECT_TRUE(isAlive(holder));
}

TEST_F(Children, OfTheHostThatHoldTheLocksDoNotHoldUpAReload) {
    HostProcess& host = startWith("direct");
    const pid_t child = startChild(host, "CLONE");
    ASSERT_TRUE(isAlive(child));
    for (int i = 0; i < 2; ++i) {
        host.type("reloadDriver E");
        settle(host);
        expectEchoes(host);
    }
    EXPECT_EQ(end(), 0);
    EXPECT_THAT(host.log(), Not(HasSubstr("does not become free")));
    EXPECT_TRUE(isAlive(child));
}
