#include "AgeText.h"

#include <gtest/gtest.h>

#include <chrono>

using base::ageText;
using namespace std::chrono_literals;

TEST(AgeText, IsInTheLargestUnitThatLeavesTwo) {
    EXPECT_EQ("119 s", ageText(119999ms));
    EXPECT_EQ("2 min", ageText(120s));
    EXPECT_EQ("119 min", ageText(7199s));
    EXPECT_EQ("2 h", ageText(7200s));
    EXPECT_EQ("47 h", ageText(48h - 1s));
    EXPECT_EQ("2 d", ageText(48h));
}

TEST(AgeText, WhatLiesAheadHasNoAge) {
    EXPECT_EQ("0 s", ageText(-5s));
}
