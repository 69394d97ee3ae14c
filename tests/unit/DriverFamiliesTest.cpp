#include "DriverFamilies.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <thread>

#include "LiveProcess.h"
#include "LogCapture.h"
#include "NoDescriptors.h"
#include "TemporaryDirectory.h"

namespace {

using testing::ContainsRegex;
using testing::HasSubstr;

/// Shell scripts in place of driver processes.
class DriverFamiliesTest : public testing::Test, private sal::Process::Observer {
protected:
    DriverFamiliesTest() { sal::Process::setObserver(this); }
    ~DriverFamiliesTest() override {
        sal::Process::setObserver(nullptr);
        if (m_process.pid <= 0)
            return;
        ::kill(m_process.pid, SIGKILL);
        ::waitpid(m_process.pid, nullptr, 0);
        ::close(m_process.pidFd);
    }

    /// Starts a process that has so many children, and returns the number of the last one.
    pid_t startWithChildren(int count) {
        sal::Path shell("/bin/sh");
        EXPECT_TRUE(sal::Process::createProcess(
            "sh", shell,
            {"-c", "cd " + m_directory.path() + "; for i in $(seq " + std::to_string(count) +
                       "); do sleep 1000 & done; echo $! > draft; mv draft child; wait"}));
        m_sut.add("AXIS1", m_process);
        for (int i = 0; i < 1500 && m_directory.read("child").empty(); ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        return std::atoi(m_directory.read("child").c_str());
    }
    void killProcess() {
        ASSERT_GT(m_process.pid, 0);
        ::kill(m_process.pid, SIGKILL);
        pollfd end{m_process.pidFd, POLLIN, 0};
        ASSERT_EQ(::poll(&end, 1, 30'000), 1);
    }

    TemporaryDirectory m_directory;
    LogCapture m_log;
    DriverFamilies m_sut;
    sal::Process::Started m_process;

private:
    void processStarted(const sal::Process::Started& process) override { m_process = process; }
};

TEST_F(DriverFamiliesTest, WhatAProcessHasLeftEndsWithOneLine) {
    const pid_t child = startWithChildren(1);
    ASSERT_GT(child, 0);
    killProcess();
    m_sut.end(m_process.pid);
    for (int i = 0; i < 1500 && isAlive(child); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_FALSE(isAlive(child));
    const std::string log = m_log.finish();
    EXPECT_THAT(log, HasSubstr("warning  HOST: AXIS1: process " + std::to_string(m_process.pid) +
                               " left 1 process behind, ended with it: " + std::to_string(child) + " ("));
    EXPECT_EQ(log.find('\n'), log.size() - 1);
}

TEST_F(DriverFamiliesTest, OfManyTenAreNamed) {
    ASSERT_GT(startWithChildren(12), 0);
    killProcess();
    m_sut.end(m_process.pid);
    const std::string one = "[0-9]+ [(][a-z]+[)]";
    EXPECT_THAT(m_log.finish(), ContainsRegex(" left 12 processes behind, ended with it: " + one + "(, " +
                                              one + "){9}, [.][.][.]\n"));
}

TEST_F(DriverFamiliesTest, NothingIsSaidOfAProcessThatLeavesNothing) {
    sal::Path program("/bin/true");
    ASSERT_TRUE(sal::Process::createProcess("true", program, {}));
    m_sut.add("AXIS1", m_process);
    m_sut.look();
    killProcess();
    m_sut.end(m_process.pid);
    EXPECT_EQ(m_log.finish(), "");
}

TEST_F(DriverFamiliesTest, WhatCouldNotBeLookedForEndsLater) {
    const pid_t child = startWithChildren(1);
    ASSERT_GT(child, 0);
    killProcess();
    {
        const NoDescriptors none;
        m_sut.end(m_process.pid);
    }
    EXPECT_TRUE(isAlive(child));
    m_sut.look();
    for (int i = 0; i < 1500 && isAlive(child); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_FALSE(isAlive(child));
    const std::string log = m_log.finish();
    EXPECT_THAT(log, HasSubstr("AXIS1: what process " + std::to_string(m_process.pid) +
                               " may have left behind cannot be looked for; it is tried again\n"));
    EXPECT_THAT(log, HasSubstr("left 1 process behind, ended with it: " + std::to_string(child) + " ("));
}

TEST_F(DriverFamiliesTest, ProcessIsForgottenWithItsEnd) {
    const pid_t child = startWithChildren(1);
    killProcess();
    m_sut.end(m_process.pid);
    m_sut.end(m_process.pid);
    ASSERT_GT(child, 0);
    const std::string log = m_log.finish();
    EXPECT_THAT(log, HasSubstr("left 1 process"));
    EXPECT_EQ(log.find("left 1 process"), log.rfind("left 1 process"));
}

TEST_F(DriverFamiliesTest, UnknownProcessIsNoneOfItsAffair) {
    m_sut.end(1);
    EXPECT_EQ(m_log.finish(), "");
}

}  // namespace
