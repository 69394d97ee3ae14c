#include "Fault.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <chrono>
#include <stdexcept>

namespace {

using testing::HasSubstr;

Fault fault(const std::string& text) {
    std::string error;
    const auto parsed = Fault::parse(text, error);
    EXPECT_TRUE(parsed) << error;
    return parsed.value();
}

std::string errorOf(const std::string& text) {
    std::string error;
    EXPECT_FALSE(Fault::parse(text, error)) << text;
    return error;
}

/// How a process ends that does it.
int endOf(const std::string& text) {
    const Fault sut = fault(text);
    const pid_t pid = ::fork();
    if (pid == 0) {
        sut.strike();
        ::_exit(77);
    }
    int status = 0;
    ::waitpid(pid, &status, 0);
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

TEST(Fault, CrashIsASegmentationFault) {
    EXPECT_EQ(endOf("crash"), 128 + SIGSEGV);
}

TEST(Fault, AbortAborts) {
    EXPECT_EQ(endOf("abort"), 128 + SIGABRT);
}

TEST(Fault, KillKills) {
    EXPECT_EQ(endOf("kill"), 128 + SIGKILL);
}

TEST(Fault, ExitEndsWithItsCode) {
    EXPECT_EQ(endOf("exit 3"), 3);
    EXPECT_EQ(endOf("exit"), 0);
}

TEST(Fault, ThrowThrowsAnException) {
    EXPECT_THROW(fault("throw").strike(), std::runtime_error);
}

TEST(Fault, ThrowNumberThrowsWhatIsNoException) {
    EXPECT_THROW(fault("thrownumber").strike(), int);
}

TEST(Fault, FailSaysSo) {
    EXPECT_FALSE(fault("fail").strike());
}

TEST(Fault, SleepLastsAsLongAsSaid) {
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_TRUE(fault("sleep 50").strike());
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(50));
}

TEST(Fault, BusyUsesTheProcessorAllTheTime) {
    timespec before{};
    timespec after{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &before);
    EXPECT_TRUE(fault("busy 200").strike());
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &after);
    const auto used = (after.tv_sec - before.tv_sec) * 1000 + (after.tv_nsec - before.tv_nsec) / 1000000;
    // Another process may have had the processor for a part of it.
    EXPECT_GT(used, 5);
}

TEST(Fault, TextNamesIt) {
    EXPECT_EQ(fault(" sleep  20 ").text(), "sleep 20");
    EXPECT_EQ(fault("crash").text(), "crash");
}

TEST(Fault, UnknownWordIsNamedWithTheKnownOnes) {
    EXPECT_EQ(
        errorOf("explode"),
        "\"explode\" is no fault; there are crash, abort, exit (exit code), kill, busy (milliseconds, 0 "
        "for ever), sleep (milliseconds, 0 for ever), throw, thrownumber, fail");
}

TEST(Fault, NumberOutOfItsRangeIsNamed) {
    EXPECT_EQ(errorOf("exit 256"), "\"exit 256\": exit takes a number from 0 to 255");
    EXPECT_EQ(errorOf("sleep -1"), "\"sleep -1\": sleep takes a number from 0 to 86400000");
    EXPECT_EQ(errorOf("sleep 1s"), "\"sleep 1s\": sleep takes a number from 0 to 86400000");
}

TEST(Fault, NumberTooManyIsNamed) {
    EXPECT_EQ(errorOf("crash 1"), "\"crash 1\": crash takes nothing");
    EXPECT_THAT(errorOf("exit 1 2"), HasSubstr("exit takes a number"));
}

}  // namespace
