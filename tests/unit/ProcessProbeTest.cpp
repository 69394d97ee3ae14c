#include "ProcessProbe.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <ctime>

TEST(ProcessProbe, ReadsTheProcessorTimeOfUserAndSystem) {
    const auto reading = ProcessProbe::parse("42 (a ) R b) S 1 42 42 0 -1 4194304 10 0 0 0 17 4 0 0 20 0 1 0",
                                             "Name:\ta\nTracerPid:\t0\n");
    ASSERT_TRUE(reading);
    EXPECT_EQ(21u, reading->cpuTicks);
    EXPECT_FALSE(reading->isRunnable);
    EXPECT_FALSE(reading->isTraced);
}

TEST(ProcessProbe, KnowsWhoIsRunnable) {
    const auto reading = ProcessProbe::parse("42 (a) R 1 42 42 0 -1 4194304 10 0 0 0 17 4 0 0", "");
    ASSERT_TRUE(reading);
    EXPECT_TRUE(reading->isRunnable);
}

TEST(ProcessProbe, KnowsADebugger) {
    const auto reading =
        ProcessProbe::parse("42 (a) S 1 42 42 0 -1 4194304 10 0 0 0 17 4 0 0", "TracerPid:\t77\n");
    ASSERT_TRUE(reading);
    EXPECT_TRUE(reading->isTraced);
}

TEST(ProcessProbe, AnswersNothingForATextThatIsCut) {
    EXPECT_FALSE(ProcessProbe::parse("42 (a) S 1 42", ""));
    EXPECT_FALSE(ProcessProbe::parse("", ""));
}

TEST(ProcessProbe, AnswersNothingForAProcessThatIsNotThere) {
    EXPECT_FALSE(ProcessProbe::read(1 << 30));
}

TEST(ProcessProbe, SeesThisProcessCompute) {
    const auto before = ProcessProbe::read(::getpid());
    ASSERT_TRUE(before);
    const std::clock_t start = std::clock();
    while (std::clock() - start < CLOCKS_PER_SEC / 20) {
    }
    EXPECT_GT(ProcessProbe::read(::getpid())->cpuTicks, before->cpuTicks);
}

TEST(ProcessProbe, SeesATracedProcess) {
    const pid_t child = ::fork();
    if (child == 0) {
        ::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
        ::raise(SIGSTOP);
        ::_exit(0);
    }
    ASSERT_GT(child, 0);
    int status = 0;
    ::waitpid(child, &status, WUNTRACED);
    const auto reading = ProcessProbe::read(child);
    ::kill(child, SIGKILL);
    ::waitpid(child, &status, 0);
    ASSERT_TRUE(reading);
    EXPECT_TRUE(reading->isTraced);
}
