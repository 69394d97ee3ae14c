#include "LocalTime.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

namespace {

/// Times in Berlin, as long as it lives.
class LocalTimeTest : public testing::Test {
protected:
    LocalTimeTest() {
        ::setenv("TZ", "CET-1", 1);
        ::tzset();
    }
    ~LocalTimeTest() override {
        ::unsetenv("TZ");
        ::tzset();
    }
};

}  // namespace

TEST_F(LocalTimeTest, IsInTheZoneOfTheProcess) {
    EXPECT_EQ("2026-11-22 13:15:16", localTime("2026-11-22T12:15:16.123Z"));
    EXPECT_EQ("2027-01-01 00:30:00", localTime("2026-12-31T23:30:00Z"));
    EXPECT_EQ("13:15:16", localTimeOfDay("2026-11-22T12:15:16.123Z"));
}

TEST_F(LocalTimeTest, WhatIsNoTimeStaysAsItIs) {
    EXPECT_EQ("", localTime(""));
    EXPECT_EQ("soon", localTime("soon"));
    EXPECT_EQ("2026-11-22T12:15:16+01:00", localTime("2026-11-22T12:15:16+01:00"));
}
