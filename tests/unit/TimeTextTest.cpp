#include "TimeText.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>

using namespace std::chrono_literals;

namespace {

class TimeTextTest : public testing::Test {
protected:
    TimeTextTest() {
        ::setenv("TZ", "CET-1", 1);
        ::tzset();
    }
    ~TimeTextTest() override {
        ::unsetenv("TZ");
        ::tzset();
    }

    /// 2026-11-22 12:15:16.900 in UTC.
    const std::chrono::system_clock::time_point m_when{1795349716900ms};
};

}  // namespace

TEST_F(TimeTextTest, TimeIsInTheTimeZoneOfTheProcess) {
    EXPECT_EQ("2026-11-22 13:15:16", base::timeText(m_when));
    EXPECT_EQ("13:15:16", base::timeOfDayText(m_when));
}

TEST(TimeText, SecondsLeftAreCountedWhenTheyHaveBegun) {
    EXPECT_EQ("in 4 s", base::dueText(3200ms));
    EXPECT_EQ("in 3 s", base::dueText(3s));
    EXPECT_EQ("in 1 s", base::dueText(1ns));
}

TEST(TimeText, WhatHasNoTimeLeftIsDueNow) {
    EXPECT_EQ("now", base::dueText(0s));
    EXPECT_EQ("now", base::dueText(-90s));
}
