#include "LogLevel.h"

#include <gtest/gtest.h>

TEST(LogLevel, LevelComesBackAsItWent) {
    for (int level = 1; level <= 5; ++level)
        EXPECT_EQ(level, sal::fromSpdlog(sal::toSpdlog(level))) << level;
    EXPECT_EQ(spdlog::level::critical, sal::toSpdlog(1));
    EXPECT_EQ(spdlog::level::warn, sal::toSpdlog(3));
    EXPECT_EQ(spdlog::level::trace, sal::toSpdlog(5));
}

TEST(LogLevel, WhatIsBeyondTheScaleCountsAsItsEnd) {
    EXPECT_EQ(spdlog::level::critical, sal::toSpdlog(0));
    EXPECT_EQ(spdlog::level::trace, sal::toSpdlog(6));
    EXPECT_EQ(5, sal::fromSpdlog(spdlog::level::debug));
    EXPECT_EQ(1, sal::withinScale(-1));
    EXPECT_EQ(5, sal::withinScale(6));
}
