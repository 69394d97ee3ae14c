#include "SignalWatch.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <future>

#include "HangGuard.h"

namespace {

class SignalWatch_ : public testing::TestWithParam<int> {};

TEST_P(SignalWatch_, CallsOnce) {
    ::signal(GetParam(), SIG_DFL);
    std::promise<int> called;
    auto signal = called.get_future();
    const SignalWatch sut([&](int number) { called.set_value(number); });
    kill(getpid(), GetParam());
    ASSERT_EQ(signal.wait_for(c_hangGuard), std::future_status::ready);
    EXPECT_EQ(signal.get(), GetParam());
}

INSTANTIATE_TEST_SUITE_P(SignalWatch, SignalWatch_, testing::Values(SIGTERM, SIGINT, SIGHUP));

TEST(SignalWatch, WithoutASignalNothingIsCalled) {
    bool called = false;
    {
        const SignalWatch sut([&](int) { called = true; });
    }
    EXPECT_FALSE(called);
}

TEST(SignalWatch, IgnoresBrokenPipes) {
    const SignalWatch sut([](int) {});
    kill(getpid(), SIGPIPE);
    SUCCEED();
}

TEST(SignalWatch, IgnoresThatAFileReachesItsLimit) {
    const SignalWatch sut([](int) {});
    kill(getpid(), SIGXFSZ);
    SUCCEED();
}

TEST(SignalWatchDeathTest, SecondSignalEndsTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            std::promise<void> first;
            const SignalWatch sut([&](int) {
                first.set_value();
                for (;;)
                    pause();
            });
            kill(getpid(), SIGTERM);
            first.get_future().wait();
            kill(getpid(), SIGTERM);
        },
        testing::ExitedWithCode(128 + SIGTERM), "");
}

TEST(SignalWatchDeathTest, HangUpStaysIgnoredWhereItWas) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            ::signal(SIGHUP, SIG_IGN);
            bool called = false;
            {
                const SignalWatch sut([&](int) { called = true; });
                kill(getpid(), SIGHUP);
            }
            _exit(called ? 1 : 0);
        },
        testing::ExitedWithCode(0), "");
}

}  // namespace
