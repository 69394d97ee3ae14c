#include "FIDHelper.h"

#include <gtest/gtest.h>

namespace {

TEST(FIDHelper, SplitsAtTheFirstDot) {
    const FIDHelper sut("SITE2.AXIS1.MOVE");
    EXPECT_TRUE(sut.hasFunction());
    EXPECT_EQ(sut.getDriverID(), "SITE2");
    EXPECT_EQ(sut.getFunction(), "AXIS1.MOVE");
}

TEST(FIDHelper, WithoutDotAllIsTheDriverID) {
    const FIDHelper sut("AXIS1");
    EXPECT_FALSE(sut.hasFunction());
    EXPECT_EQ(sut.getDriverID(), "AXIS1");
    EXPECT_EQ(sut.getFunction(), "");
}

TEST(FIDHelper, DotAtTheEndIsAnEmptyFunction) {
    const FIDHelper sut("AXIS1.");
    EXPECT_TRUE(sut.hasFunction());
    EXPECT_EQ(sut.getDriverID(), "AXIS1");
    EXPECT_EQ(sut.getFunction(), "");
}

TEST(FIDHelper, DotAtTheFrontIsAnEmptyDriverID) {
    const FIDHelper sut(".MOVE");
    EXPECT_TRUE(sut.hasFunction());
    EXPECT_EQ(sut.getDriverID(), "");
    EXPECT_EQ(sut.getFunction(), "MOVE");
}

TEST(FIDHelper, EmptyTextIsEmpty) {
    const FIDHelper sut("");
    EXPECT_FALSE(sut.hasFunction());
    EXPECT_EQ(sut.getDriverID(), "");
    EXPECT_EQ(sut.getFunction(), "");
}

}  // namespace
