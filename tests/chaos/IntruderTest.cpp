#include "Intruder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

/// Waits for some rounds of it.
void letItTry(const Intruder& sut) {
    const std::uint64_t before = sut.attempts();
    for (int i = 0; i < 2000 && sut.attempts() < before + 200; ++i)
        ::usleep(5000);
    ASSERT_GE(sut.attempts(), before + 200);
}

/// A process that waits for ever, as that user or as ours.
pid_t victim(bool isTheirs) {
    const pid_t pid = ::fork();
    if (pid != 0)
        return pid;
    if (isTheirs && ::setresuid(Intruder::s_user, Intruder::s_user, Intruder::s_user) != 0)
        ::_exit(1);
    for (;;)
        ::pause();
}

}  // namespace

TEST(Intruder, CanDoNothingToProcessesOfOthers) {
    Intruder sut(1);
    if (!sut.isUnprivileged())
        GTEST_SKIP() << "needs root, who may become another user";
    const pid_t pid = victim(false);
    sut.setHost(pid);
    letItTry(sut);
    EXPECT_THAT(sut.successes(), IsEmpty());
    EXPECT_EQ(::waitpid(pid, nullptr, WNOHANG), 0) << "it has ended it";
    ::kill(pid, SIGKILL);
    ::waitpid(pid, nullptr, 0);
}

TEST(Intruder, WhatItCouldDoIsTold) {
    Intruder sut(1);
    if (!sut.isUnprivileged())
        GTEST_SKIP() << "needs root, who may become another user";
    const pid_t pid = victim(true);
    sut.setHost(pid);
    ::waitpid(pid, nullptr, 0);
    for (int i = 0; i < 2000 && sut.successes().empty(); ++i)
        ::usleep(5000);
    EXPECT_THAT(sut.successes(),
                Contains(HasSubstr("could send signal 19 to process " + std::to_string(pid))));
}
