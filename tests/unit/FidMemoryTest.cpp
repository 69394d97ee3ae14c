#include "FidMemory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::ElementsAre;
using testing::IsEmpty;

TEST(FidMemory, GivesEachFidOnceInByteOrder) {
    FidMemory sut;
    sut.add("SYS.MARK");
    sut.add("AXIS1.MOVE");
    sut.add("SYS.MARK");
    EXPECT_THAT(sut.fids(""), ElementsAre("AXIS1.MOVE", "SYS.MARK"));
    EXPECT_THAT(sut.fids("SYS."), ElementsAre("SYS.MARK"));
}

TEST(FidMemory, LearnsFromTheAnswerToAnUnknownFid) {
    FidMemory sut;
    sut.add("SYS.DANCE");
    sut.learn(
        "2026-11-22 13:00:00.000 \x1b[33mwarning \x1b[0m SYS: unknown FID \"DANCE\"; known are FORWARD, "
        "MARK\n");
    EXPECT_THAT(sut.fids(""), ElementsAre("SYS.FORWARD", "SYS.MARK"));
}

TEST(FidMemory, LearnsNothingFromOtherLines) {
    FidMemory sut;
    sut.learn("SYS: unknown FID");
    sut.learn("known are FORWARD, MARK");
    sut.learn(": unknown FID \"DANCE\"; known are FORWARD");
    sut.learn("SYS: unknown FID \"DANCE\"; known are ");
    sut.learn("");
    EXPECT_THAT(sut.fids(""), IsEmpty());
}

TEST(FidMemory, WhatCannotBeShownIsNotOffered) {
    FidMemory sut;
    sut.add("SYS.\x1b[2J");
    sut.add("");
    EXPECT_THAT(sut.fids(""), IsEmpty());
}

TEST(FidMemory, FirstOfTooManyIsForgotten) {
    FidMemory sut;
    for (int i = 0; i < 1001; ++i)
        sut.add("A." + std::to_string(i));
    EXPECT_EQ(1000u, sut.fids("").size());
    EXPECT_THAT(sut.fids("A.0"), IsEmpty());
    EXPECT_THAT(sut.fids("A.1000"), ElementsAre("A.1000"));
}
