#include "ProcessReading.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <ctime>

TEST(ProcessReading, ReadsTheProcessorTimeOfUserAndSystem) {
    const auto reading = ProcessReading::parse(
        "42 (a ) R b) S 1 42 42 0 -1 4194304 10 0 0 0 17 4 0 0 20 0 1 0", "Name:\ta\nTracerPid:\t0\n");
    ASSERT_TRUE(reading);
    EXPECT_EQ(21u, reading->cpuTicks);
    EXPECT_FALSE(reading->isRunnable);
    EXPECT_FALSE(reading->isTraced);
}

TEST(ProcessReading, KnowsWhoIsRunnable) {
    const auto reading = ProcessReading::parse("42 (a) R 1 42 42 0 -1 4194304 10 0 0 0 17 4 0 0", "");
    ASSERT_TRUE(reading);
    EXPECT_TRUE(reading->isRunnable);
}

TEST(ProcessReading, KnowsADebugger) {
    const auto reading =
        ProcessReading::parse("42 (a) S 1 42 42 0 -1 4194304 10 0 0 0 17 4 0 0", "TracerPid:\t77\n");
    ASSERT_TRUE(reading);
    EXPECT_TRUE(reading->isTraced);
}

TEST(ProcessReading, AnswersNothingForATextThatIsCut) {
    EXPECT_FALSE(ProcessReading::parse("42 (a) S 1 42", ""));
    EXPECT_FALSE(ProcessReading::parse("", ""));
}

TEST(ProcessReading, AnswersNothingForAProcessThatIsNotThere) {
    EXPECT_FALSE(ProcessReading::read(1 << 30));
}

TEST(ProcessReading, SeesThisProcessCompute) {
    const auto before = ProcessReading::read(::getpid());
    ASSERT_TRUE(before);
    const std::clock_t start = std::clock();
    while (std::clock() - start < CLOCKS_PER_SEC / 20) {
    }
    EXPECT_GT(ProcessReading::read(::getpid())->cpuTicks, before->cpuTicks);
}

TEST(ProcessReading, SeesATracedProcess) {
    const pid_t child = ::fork();
    if (child == 0) {
        ::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
        ::raise(SIGSTOP);
        ::_exit(0);
    }
    ASSERT_GT(child, 0);
    int status = 0;
    ::waitpid(child, &status, WUNTRACED);
    const auto reading = ProcessReading::read(child);
    ::kill(child, SIGKILL);
    ::waitpid(child, &status, 0);
    ASSERT_TRUE(reading);
    EXPECT_TRUE(reading->isTraced);
}

TEST(ProcessReading, KnowsWhoseThreadItIs) {
    EXPECT_TRUE(ProcessReading::hasThread(::getpid(), ::getpid()));
    EXPECT_FALSE(ProcessReading::hasThread(::getpid(), 1));
    EXPECT_FALSE(ProcessReading::hasThread(1 << 30, 1));
}
