#include "InputWaiter.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <future>

namespace {

using EResult = InputWaiter::EResult;

class InputWaiterTest : public testing::Test {
protected:
    InputWaiterTest() { EXPECT_EQ(0, ::pipe(m_ends)); }
    ~InputWaiterTest() override {
        ::close(m_ends[0]);
        if (m_ends[1] >= 0)
            ::close(m_ends[1]);
    }
    int m_ends[2] = {-1, -1};
};

}  // namespace

TEST_F(InputWaiterTest, SaysThatInputIsThere) {
    InputWaiter sut(m_ends[0]);
    ASSERT_EQ(1, ::write(m_ends[1], "x", 1));
    EXPECT_EQ(EResult::Input, sut.wait());
}

TEST_F(InputWaiterTest, SaysThatInputHasEnded) {
    InputWaiter sut(m_ends[0]);
    ::close(m_ends[1]);
    m_ends[1] = -1;
    EXPECT_EQ(EResult::Input, sut.wait());
}

TEST_F(InputWaiterTest, StopReleasesTheWait) {
    InputWaiter sut(m_ends[0]);
    auto waited = std::async(std::launch::async, [&] { return sut.wait(); });
    EXPECT_EQ(std::future_status::timeout, waited.wait_for(std::chrono::milliseconds(50)));
    sut.stop();
    EXPECT_EQ(EResult::Stopped, waited.get());
    EXPECT_TRUE(sut.isStopped());
}

TEST_F(InputWaiterTest, WaitsForNothingOnceStopped) {
    InputWaiter sut(m_ends[0]);
    ASSERT_EQ(1, ::write(m_ends[1], "x", 1));
    sut.stop();
    EXPECT_EQ(EResult::Stopped, sut.wait());
}

TEST_F(InputWaiterTest, NudgeReleasesOneWait) {
    InputWaiter sut(m_ends[0]);
    sut.nudge();
    sut.nudge();
    EXPECT_EQ(EResult::Nudged, sut.wait());
    auto waited = std::async(std::launch::async, [&] { return sut.wait(); });
    EXPECT_EQ(std::future_status::timeout, waited.wait_for(std::chrono::milliseconds(50)));
    sut.stop();
    EXPECT_EQ(EResult::Stopped, waited.get());
}

TEST_F(InputWaiterTest, NudgeIsKeptBehindInput) {
    InputWaiter sut(m_ends[0]);
    sut.nudge();
    ASSERT_EQ(1, ::write(m_ends[1], "x", 1));
    EXPECT_EQ(EResult::Input, sut.wait());
    char byte = 0;
    ASSERT_EQ(1, ::read(m_ends[0], &byte, 1));
    EXPECT_EQ(EResult::Nudged, sut.wait());
}

TEST_F(InputWaiterTest, SaysThatNothingHasComeForThatLong) {
    InputWaiter sut(m_ends[0]);
    EXPECT_EQ(EResult::Idle, sut.wait(std::chrono::milliseconds(10)));
}

TEST_F(InputWaiterTest, SaysThatTheTerminalHasAnotherSizeAndKeepsTheRest) {
    InputWaiter sut(m_ends[0]);
    sut.watchSize();
    ::raise(SIGWINCH);
    sut.nudge();
    ASSERT_EQ(1, ::write(m_ends[1], "x", 1));
    EXPECT_EQ(EResult::Resized, sut.wait());
    EXPECT_EQ(EResult::Input, sut.wait());
    char byte = 0;
    ASSERT_EQ(1, ::read(m_ends[0], &byte, 1));
    EXPECT_EQ(EResult::Nudged, sut.wait());
}
