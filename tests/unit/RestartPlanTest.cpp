#include "RestartPlan.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using namespace std::chrono_literals;

/// Without any variation.
RestartPlan::Settings exact() {
    return {.random = [] { return 0.5; }};
}

}  // namespace

TEST(RestartPlan, DelaysDoubleFromASecondToAMinute) {
    const RestartPlan::Settings settings = exact();
    RestartPlan sut(settings);
    std::vector<long> seconds;
    for (int i = 0; i < 9; ++i)
        seconds.push_back(static_cast<long>(sut.ended(0ms)->count() / 1000));
    EXPECT_EQ((std::vector<long>{1, 2, 4, 8, 16, 32, 60, 60, 60}), seconds);
}

TEST(RestartPlan, GoesOnWithoutEnd) {
    const RestartPlan::Settings settings = exact();
    RestartPlan sut(settings);
    for (int i = 0; i < 100000; ++i)
        sut.ended(0ms);
    EXPECT_EQ(60s, sut.ended(0ms));
}

TEST(RestartPlan, BeginsAnewAndAtOnceAfterAMinuteOfRunning) {
    const RestartPlan::Settings settings = exact();
    RestartPlan sut(settings);
    sut.ended(0ms);
    sut.ended(0ms);
    EXPECT_EQ(4s, sut.ended(59999ms));
    EXPECT_EQ(0s, sut.ended(60000ms));
    EXPECT_EQ(1s, sut.ended(0ms));
    EXPECT_EQ(2s, sut.ended(0ms));
}

TEST(RestartPlan, EachMinuteOfRunningGivesAStartAtOnce) {
    const RestartPlan::Settings settings = exact();
    RestartPlan sut(settings);
    EXPECT_EQ(0s, sut.ended(60s));
    EXPECT_EQ(0s, sut.ended(61s));
    EXPECT_EQ(1s, sut.ended(0ms));
}

TEST(RestartPlan, BeginsAnewWhenReset) {
    const RestartPlan::Settings settings = exact();
    RestartPlan sut(settings);
    sut.ended(0ms);
    sut.ended(0ms);
    sut.reset();
    EXPECT_EQ(1s, sut.ended(0ms));
}

TEST(RestartPlan, VariesADelayByATenthEitherWay) {
    RestartPlan::Settings settings{.random = [] { return 0.0; }};
    EXPECT_EQ(900ms, RestartPlan(settings).ended(0ms));
    settings.random = [] { return 1.0; };
    EXPECT_EQ(1100ms, RestartPlan(settings).ended(0ms));
}

TEST(RestartPlan, VariesByItself) {
    const RestartPlan::Settings settings;
    bool isVaried = false;
    const auto first = RestartPlan(settings).ended(0ms);
    for (int i = 0; i < 100 && !isVaried; ++i)
        isVaried = RestartPlan(settings).ended(0ms) != first;
    EXPECT_TRUE(isVaried);
}

TEST(RestartPlan, StopsAtTheLimit) {
    RestartPlan::Settings settings = exact();
    settings.limit = 2;
    RestartPlan sut(settings);
    EXPECT_EQ(1s, sut.ended(0ms));
    EXPECT_EQ(2s, sut.ended(0ms));
    EXPECT_EQ(std::nullopt, sut.ended(0ms));
}

TEST(RestartPlan, LimitCountsTriesInARow) {
    RestartPlan::Settings settings = exact();
    settings.limit = 1;
    RestartPlan sut(settings);
    EXPECT_EQ(1s, sut.ended(0ms));
    EXPECT_EQ(0s, sut.ended(60s));
    EXPECT_EQ(std::nullopt, sut.ended(0ms));
}

TEST(RestartPlan, WhatIsPutOffWaitsEverLongerAndCountsForNoLimit) {
    RestartPlan::Settings settings = exact();
    settings.limit = 2;
    RestartPlan sut(settings);
    EXPECT_EQ(1s, sut.ended(0ms));
    EXPECT_EQ(2s, sut.putOff());
    EXPECT_EQ(4s, sut.putOff());
    EXPECT_EQ(8s, sut.ended(0ms));
    EXPECT_EQ(16s, sut.putOff());
    EXPECT_EQ(std::nullopt, sut.ended(0ms));
    sut.reset();
    EXPECT_EQ(1s, sut.putOff());
}

TEST(RestartPlan, LimitOfNoneStartsNothing) {
    RestartPlan::Settings settings = exact();
    settings.limit = 0;
    EXPECT_EQ(std::nullopt, RestartPlan(settings).ended(60s));
}
