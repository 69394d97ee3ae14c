#include "SeenTime.h"

#include <gtest/gtest.h>

using namespace std::chrono_literals;

namespace {

const SeenTime::Clock::time_point c_began{1000s};

}  // namespace

TEST(SeenTime, IsTheTimeThatHasPassedForWhoLooksOften) {
    SeenTime sut(200ms);
    EXPECT_EQ(sut.look(c_began, c_began), 0ms);
    EXPECT_EQ(sut.look(c_began, c_began + 50ms), 50ms);
    EXPECT_EQ(sut.look(c_began, c_began + 250ms), 250ms);
}

TEST(SeenTime, PauseCountsForSoMuchAtMost) {
    SeenTime sut(200ms);
    EXPECT_EQ(sut.look(c_began, c_began + 10s), 200ms);
    EXPECT_EQ(sut.look(c_began, c_began + 10s + 50ms), 250ms);
    EXPECT_EQ(sut.look(c_began, c_began + 20s), 450ms);
}

TEST(SeenTime, AnotherWaitBeginsAnew) {
    SeenTime sut(200ms);
    EXPECT_EQ(sut.look(c_began, c_began + 100ms), 100ms);
    EXPECT_EQ(sut.look(c_began + 1s, c_began + 1s + 10ms), 10ms);
}

TEST(SeenTime, LookBeforeTheBeginningSeesNothing) {
    SeenTime sut(200ms);
    EXPECT_EQ(sut.look(c_began, c_began - 1s), 0ms);
    EXPECT_EQ(sut.look(c_began, c_began + 100ms), 100ms);
}
