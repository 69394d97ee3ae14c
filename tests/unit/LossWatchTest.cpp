#include "LossWatch.h"

#include <gtest/gtest.h>

namespace {

using namespace std::chrono_literals;

constexpr LossWatch::Time s_watchBegin = LossWatch::Time() + 1h;

}  // namespace

TEST(LossWatch, LossIsASumThatIsWrongTwiceInARow) {
    LossWatch sut;
    EXPECT_FALSE(sut.compare("A", false, s_watchBegin));
    EXPECT_FALSE(sut.compare("B", false, s_watchBegin));
    EXPECT_FALSE(sut.compare("A", true, s_watchBegin + 5s));
    EXPECT_FALSE(sut.compare("A", false, s_watchBegin + 10s));
    EXPECT_TRUE(sut.compare("A", false, s_watchBegin + 15s));
}

TEST(LossWatch, WhatAskingDoesNotHelpIsAskedForLessAndLessOften) {
    LossWatch sut;
    int asked = 0;
    for (auto time = 0s; time < 1h; time += 5s)
        asked += sut.compare("A", false, s_watchBegin + time) ? 1 : 0;
    EXPECT_EQ(asked, 6) << "after 5 s, and 1, 2, 4, 8, 16 minutes later each";
}

TEST(LossWatch, AfterAGoodMinuteItIsAskedForSoonAgain) {
    LossWatch sut;
    EXPECT_FALSE(sut.compare("A", false, s_watchBegin));
    EXPECT_TRUE(sut.compare("A", false, s_watchBegin + 5s));
    EXPECT_FALSE(sut.compare("A", true, s_watchBegin + 70s));
    EXPECT_FALSE(sut.compare("A", false, s_watchBegin + 75s));
    EXPECT_TRUE(sut.compare("A", false, s_watchBegin + 80s));
    EXPECT_FALSE(sut.compare("A", false, s_watchBegin + 85s));
    EXPECT_TRUE(sut.compare("A", false, s_watchBegin + 141s));
}

TEST(LossWatch, DriverWhoseValuesAreNotAllKeptIsNotJudged) {
    LossWatch sut;
    sut.exclude("A");
    EXPECT_FALSE(sut.compare("A", false, s_watchBegin));
    EXPECT_FALSE(sut.compare("A", false, s_watchBegin + 5s));
}
