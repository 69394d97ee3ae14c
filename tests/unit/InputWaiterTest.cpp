#include "InputWaiter.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <future>

namespace {

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
    EXPECT_TRUE(sut.wait());
}

TEST_F(InputWaiterTest, SaysThatInputHasEnded) {
    InputWaiter sut(m_ends[0]);
    ::close(m_ends[1]);
    m_ends[1] = -1;
    EXPECT_TRUE(sut.wait());
}

TEST_F(InputWaiterTest, StopReleasesTheWait) {
    InputWaiter sut(m_ends[0]);
    auto waited = std::async(std::launch::async, [&] { return sut.wait(); });
    EXPECT_EQ(std::future_status::timeout, waited.wait_for(std::chrono::milliseconds(50)));
    sut.stop();
    EXPECT_FALSE(waited.get());
    EXPECT_TRUE(sut.isStopped());
}

TEST_F(InputWaiterTest, WaitsForNothingOnceStopped) {
    InputWaiter sut(m_ends[0]);
    ASSERT_EQ(1, ::write(m_ends[1], "x", 1));
    sut.stop();
    EXPECT_FALSE(sut.wait());
}
