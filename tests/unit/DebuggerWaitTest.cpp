#include "DebuggerWait.h"

#include <gtest/gtest.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>

#include "sal/LogManager.h"

namespace {

/// A child that this process can trace: it ends with 7 when it was, with 8 when nobody came.
pid_t childThatWaits(std::chrono::seconds patience) {
    const pid_t child = ::fork();
    if (child == 0) {
        sal::LogManager log;
        ::_exit(waitForDebugger(patience, *log.getLogOutput("MFD")) ? 7 : 8);
    }
    return child;
}

int exitCodeOf(pid_t child) {
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace

TEST(DebuggerWaitTest, GoesOnOnceADebuggerHoldsTheProcess) {
    const pid_t child = childThatWaits(std::chrono::seconds(600));
    ASSERT_EQ(0, ::ptrace(PTRACE_SEIZE, child, nullptr, nullptr)) << std::strerror(errno);
    EXPECT_EQ(7, exitCodeOf(child));
}

TEST(DebuggerWaitTest, WhatTheDriverStartsIsNotToldToWait) {
    const sal::LogManager log;
    ::setenv("MFD_WAIT_FOR_DEBUGGER", "5", 1);
    EXPECT_FALSE(
        waitForDebugger(std::chrono::seconds(0), *sal::LogManager::getInstance()->getLogOutput("MFD")));
    EXPECT_EQ(nullptr, std::getenv("MFD_WAIT_FOR_DEBUGGER"));
}

TEST(DebuggerWaitTest, GoesOnWithoutOneWhenItsTimeIsOver) {
    EXPECT_EQ(8, exitCodeOf(childThatWaits(std::chrono::seconds(0))));
}
