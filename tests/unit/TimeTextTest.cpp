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

TEST_F(TimeTextTest, UtcHasMillisecondsAndNoTimeZone) {
    EXPECT_EQ("2026-11-22T12:15:16.900Z", base::utcText(m_when));
    EXPECT_EQ("2026-11-22T12:15:16.007Z", base::utcText(m_when - 893ms));
    EXPECT_EQ("1969-12-31T23:59:59.999Z", base::utcText(std::chrono::system_clock::time_point(-1ms)));
}

TEST_F(TimeTextTest, UtcIsReadBack) {
    EXPECT_EQ(m_when, base::utcTime("2026-11-22T12:15:16.900Z"));
    EXPECT_EQ(m_when, base::utcTime("2026-11-22T12:15:16.9Z"));
    EXPECT_EQ(m_when - 900ms, base::utcTime("2026-11-22T12:15:16Z"));
    EXPECT_EQ(m_when + 1us, base::utcTime("2026-11-22T12:15:16.900001Z"));
    EXPECT_EQ(std::chrono::system_clock::time_point(-1ms), base::utcTime("1969-12-31T23:59:59.999Z"));
}

TEST(TimeText, WhatIsNoUtcTimeIsNone) {
    for (const char* pText :
         {"", "Z", "soon", "2026-11-22", "2026-11-22T12:15:16", "2026-11-22T12:15:16+01:00",
          "2026-11-22T12:15:16.Z", "2026-11-22T12:15:16.x0Z", "2026-11-22T12:15:16.1234567890Z",
          "2026-11-22T12:15:16.900Z and more", "2026-13-22T12:15:16.900Z"})
        EXPECT_FALSE(base::utcTime(pText)) << pText;
}

TEST(TimeText, TimeThatTheClockCannotTellIsNone) {
    for (const char* pText : {"1600-01-01T00:00:00Z", "2262-04-12T00:00:00Z", "9999-12-31T23:59:59.999Z"})
        EXPECT_FALSE(base::utcTime(pText)) << pText;
    EXPECT_TRUE(base::utcTime("2262-04-11T00:00:00Z"));
    EXPECT_TRUE(base::utcTime("1678-01-01T00:00:00Z"));
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
