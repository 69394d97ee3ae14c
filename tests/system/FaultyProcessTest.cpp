#include <sys/ptrace.h>
#include <sys/wait.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>
#include <thread>

#include "FaultyWorkplace.h"
#include "RefusedCalls.h"

using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

/// Why no stack of a driver that dies can be expected here; empty where it can.
std::string whyNoStacks() {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    return "under a sanitizer the faulty driver dies without any handler";
#endif
    return std::system("command -v eu-stack >/dev/null") == 0
               ? ""
               : "needs the command eu-stack (package elfutils)";
}

// A driver in a process of its own that fails: the process is gone, the host and the others go on.
class FaultyProcess : public FaultyWorkplace {
protected:
    HostProcess& startServing(const std::string& faults = {}) {
        configure("queue");
        HostProcess& host = startWith(faults);
        settle(host);
        return host;
    }

    /// Its process dies so and another comes up; the number of the one that died.
    static std::string die(HostProcess& host, const std::string& fault) {
        expectServes(host, "BAD");
        const std::string driver = std::to_string(host.driverProcess("BAD"));
        host.type("sendFID BAD.FAULT." + fault);
        EXPECT_TRUE(host.waitForLog("BAD: is started again")) << host.log();
        return driver;
    }

    void expectHostServes(HostProcess& host) {
        host.type("sendFID GOOD.alive");
        settle(host);
        EXPECT_THAT(readFile(workplace().workdir() / "nvram/GOOD/record.txt"), HasSubstr("sendFID alive\n"));
        EXPECT_EQ(end(), 0) << host.log() << host.output();
    }
};

/// FIDs that end the driver's process.
class FaultyProcessEnds : public FaultyProcess, public testing::WithParamInterface<std::string> {};

TEST_P(FaultyProcessEnds, AndTheHostGoesOn) {
    HostProcess& host = startServing();
    expectServes(host, "BAD");
    const pid_t driver = host.driverProcess("BAD");
    ASSERT_NE(driver, 0);
    host.type("sendFID BAD.FAULT." + GetParam());
    EXPECT_TRUE(endsInTime(driver)) << host.log();
    EXPECT_TRUE(host.waitForLog("BAD: process " + std::to_string(driver) + " ended")) << host.log();
    expectHostServes(host);
}

INSTANTIATE_TEST_SUITE_P(By, FaultyProcessEnds,
                         testing::Values("CRASH", "ABORT", "KILL", "EXIT code=0", "EXIT code=3"),
                         [](const auto& test) {
                             std::string name = test.param;
                             name.erase(std::remove_if(name.begin(), name.end(),
                                                       [](char c) { return c == ' ' || c == '='; }),
                                        name.end());
                             return name;
                         });

/// FIDs that it survives: it still answers.
class FaultyProcessSurvives : public FaultyProcess, public testing::WithParamInterface<std::string> {};

TEST_P(FaultyProcessSurvives, AndServes) {
    HostProcess& host = startServing();
    const pid_t driver = host.driverProcess("BAD");
    host.type("sendFID BAD.FAULT." + GetParam());
    expectServes(host, "BAD");
    EXPECT_EQ(host.driverProcess("BAD"), driver);
    expectHostServes(host);
}

INSTANTIATE_TEST_SUITE_P(It, FaultyProcessSurvives,
                         testing::Values("THROW", "THROWNUMBER", "FAIL", "SLEEP ms=20", "BUSY ms=20",
                                         "GARBAGE count=300 seed=7", "LEAK mib=4 descriptors=20",
                                         "FLOODSTATE count=2000", "FLOODFIDS fid=GOOD.PING count=2000"),
                         [](const auto& test) { return test.param.substr(0, test.param.find(' ')); });

TEST_F(FaultyProcess, DeathWhileItIsMadeLeavesTheHostRunning) {
    HostProcess& host = startServing("load crash");
    EXPECT_TRUE(host.waitForLog("BAD: process ")) << host.log();
    expectHostServes(host);
}

TEST_F(FaultyProcess, DeathInsideDeinitializeLeavesTheShutdownInOrder) {
    HostProcess& host = startServing("deinitialize crash");
    const pid_t driver = host.driverProcess("BAD");
    EXPECT_EQ(end(), 0);
    EXPECT_TRUE(endsWithin(driver, 0));
    EXPECT_THAT(host.output(), HasSubstr("Deinitializing MF driver ID: GOOD...OK\n"));
}

TEST_F(FaultyProcess, StacksOfOneThatHangsStandInTheLog) {
    if (std::system("command -v eu-stack >/dev/null") != 0)
        GTEST_SKIP() << "needs the command eu-stack (package elfutils)";
    configure("queue");
    HostProcess& host = start(call({"--hang-timeout", "1", "--restart-delay", "0.1", "--log-level", "5"}));
    expectServes(host, "BAD");
    const std::string driver = std::to_string(host.driverProcess("BAD"));
    host.type("sendFID BAD.FAULT.SLEEP");
    host.type("sendFID BAD.PING value=late");
    // Neither the reading of the stacks nor their reader keeps it from being ended and started again.
    ASSERT_TRUE(host.waitForLog("BAD: is started again")) << host.log();
    const std::string log = host.log();
    std::size_t at = 0;
    for (const std::string& text :
         {"BAD: process " + driver + " hangs: ", " TID " + driver + ":", std::string(" Fault::strike"),
          "BAD: process " + driver + " ended: hung for "}) {
        at = log.find(text, at);
        ASSERT_NE(at, std::string::npos) << text << "\n" << log;
    }
    expectServes(host, "BAD");
    EXPECT_EQ(end(), 0);
}

// It is ended as it died: the driver's own stack is read while it waits.
TEST_F(FaultyProcess, StackOfOneThatDiesStandsInTheLogAndInItsLastWords) {
    if (const std::string reason = whyNoStacks(); !reason.empty())
        GTEST_SKIP() << reason;
    configure("queue");
    HostProcess& host = start(call({"--restart-delay", "0.1", "--log-level", "5"}));
    const std::string driver = die(host, "CRASH");
    const std::string log = host.log();
    std::size_t at = 0;
    for (const std::string& text :
         {"BAD MFD: Dies of signal 11 on thread " + driver + "\n",
          "HOST: BAD: process " + driver + " dies here:\n", std::string(" Fault::strike"),
          "HOST: BAD: process " + driver + " ended unexpectedly: signal 11 (Segmentation fault); "}) {
        at = log.find(text, at);
        ASSERT_NE(at, std::string::npos) << text << "\n" << log;
    }
    EXPECT_THAT(log, ContainsRegex("error    HOST:     #[0-9]+ .* Fault::strike"));
    EXPECT_TRUE(host.repliesWith("log BAD", "^ +#[0-9]+ .* Fault::strike")) << host.output();
    expectServes(host, "BAD");
    EXPECT_EQ(end(), 0);
}

TEST_F(FaultyProcess, WithoutAReaderOfStacksItDiesAllTheSame) {
    configure("queue");
    HostProcess::Start start = call({"--restart-delay", "0.1", "--log-level", "5"});
    start.environment["PATH"] = "/nowhere";
    HostProcess& host = this->start(start);
    const std::string driver = die(host, "ABORT");
    EXPECT_THAT(host.log(),
                HasSubstr("BAD: process " + driver +
                          " dies; there is no stack of it: eu-stack (package elfutils) is missing "
                          "or too slow\n"));
    EXPECT_THAT(host.log(),
                HasSubstr("BAD: process " + driver + " ended unexpectedly: signal 6 (Aborted); "));
    EXPECT_EQ(end(), 0);
}

TEST_F(FaultyProcess, WhereNobodyMayLookIntoItItDiesAllTheSameAndItIsSaidWhy) {
    if (const std::string reason = whyNoStacks(); !reason.empty())
        GTEST_SKIP() << reason;
    configure("queue");
    HostProcess::Start start = call({"--restart-delay", "0.1", "--log-level", "5"});
    start.beforeExec = [] {
        refuseCall(SYS_ptrace, EPERM);
        if (::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) == 0)
            throw std::runtime_error("ptrace is not refused");
    };
    HostProcess& host = this->start(start);
    const std::string driver = die(host, "CRASH");
    EXPECT_THAT(host.log(), ContainsRegex("BAD: process " + driver +
                                          " dies; its stack cannot be read: .*Operation not permitted\n"));
    EXPECT_THAT(host.log(), HasSubstr("BAD: process " + driver +
                                      " ended unexpectedly: signal 11 (Segmentation fault); "));
    expectServes(host, "BAD");
    EXPECT_EQ(end(), 0);
}

TEST_F(FaultyProcess, OneThatADebuggerHoldsIsNotTakenForHung) {
    configure("queue");
    HostProcess& host = start(call({"--hang-timeout", "2", "--log-level", "5"}));
    expectServes(host, "BAD");
    const pid_t driver = host.driverProcess("BAD");
    if (ptrace(PTRACE_SEIZE, driver, nullptr, nullptr) != 0)
        GTEST_SKIP() << "needs the right to trace processes: " << std::strerror(errno);
    host.type("sendFID BAD.FAULT.SLEEP");
    host.type("sendFID BAD.PING value=late");
    settle(host);
    std::this_thread::sleep_for(std::chrono::milliseconds(5000));
    EXPECT_THAT(host.log(), Not(HasSubstr(" hangs: ")));
    // It lets go of a process only while that stands still.
    ptrace(PTRACE_INTERRUPT, driver, nullptr, nullptr);
    waitpid(driver, nullptr, __WALL);
    ptrace(PTRACE_DETACH, driver, nullptr, nullptr);
    EXPECT_TRUE(host.waitForLog("BAD: process " + std::to_string(driver) + " hangs: ")) << host.log();
    EXPECT_EQ(end(), 0);
}

TEST_F(FaultyProcess, SlowStartIsWaitedFor) {
    HostProcess& host = startServing("load sleep 500; start sleep 500");
    expectServes(host, "BAD");
    expectHostServes(host);
}
