#include "SeenIDs.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(SeenIDs, WhatComesTwiceIsNewOnce) {
    SeenIDs sut;
    EXPECT_TRUE(sut.isNew("boot", "boot:1"));
    EXPECT_FALSE(sut.isNew("boot", "boot:1"));
    EXPECT_TRUE(sut.isNew("boot", "boot:2"));
    EXPECT_TRUE(sut.isNew("other", "boot:1"));
}

TEST(SeenIDs, LastFourThousandAndNinetySixOfEachSenderAreRemembered) {
    SeenIDs sut;
    for (int i = 0; i < 4096; ++i)
        EXPECT_TRUE(sut.isNew("boot", std::to_string(i)));
    EXPECT_FALSE(sut.isNew("boot", "0"));
    EXPECT_TRUE(sut.isNew("boot", "4096"));
    EXPECT_FALSE(sut.isNew("boot", "1"));
    EXPECT_TRUE(sut.isNew("boot", "0"));
}

TEST(SeenIDs, SenderThatWasSilentForLongestGivesWay) {
    SeenIDs sut;
    for (int i = 0; i < 256; ++i)
        EXPECT_TRUE(sut.isNew(std::to_string(i), "x"));
    EXPECT_FALSE(sut.isNew("0", "x"));
    EXPECT_TRUE(sut.isNew("256", "x"));
    EXPECT_FALSE(sut.isNew("0", "x"));
    EXPECT_TRUE(sut.isNew("1", "x"));
}

}  // namespace
