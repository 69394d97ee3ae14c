#include "LineDiff.h"

#include <gtest/gtest.h>

#include <string>

TEST(LineDiff, SameLinesAreNoDifference) {
    EXPECT_EQ("", lineDiff("a\nb\n", "a\nb\n"));
    EXPECT_EQ("", lineDiff("", ""));
}

TEST(LineDiff, ChangedLineStandsBetweenItsNeighbours) {
    EXPECT_EQ("@@ line 2\n b\n c\n-d\n+D\n e\n f\n",
              lineDiff("a\nb\nc\nd\ne\nf\ng\n", "a\nb\nc\nD\ne\nf\ng\n"));
}

TEST(LineDiff, AddedAndRemovedLinesAreFound) {
    EXPECT_EQ("@@ line 1\n a\n+x\n b\n c\n", lineDiff("a\nb\nc\n", "a\nx\nb\nc\n"));
    EXPECT_EQ("@@ line 1\n a\n-b\n c\n", lineDiff("a\nb\nc\n", "a\nc\n"));
    EXPECT_EQ("@@ line 1\n+a\n", lineDiff("", "a\n"));
    EXPECT_EQ("@@ line 1\n-a\n", lineDiff("a\n", ""));
}

TEST(LineDiff, DifferencesFarApartAreTwoGroups) {
    EXPECT_EQ("@@ line 1\n-a\n+A\n b\n c\n@@ line 6\n f\n g\n-h\n+H\n",
              lineDiff("a\nb\nc\nd\ne\nf\ng\nh\n", "A\nb\nc\nd\ne\nf\ng\nH\n"));
}

TEST(LineDiff, MovedLineIsOneThatIsGoneAndOneThatIsNew) {
    EXPECT_EQ("@@ line 1\n-a\n b\n c\n+a\n", lineDiff("a\nb\nc\n", "b\nc\na\n"));
}

TEST(LineDiff, TextsTooLongToCompareAreReplacedWhole) {
    std::string before;
    std::string after;
    for (int i = 0; i < 3000; ++i) {
        before += "b" + std::to_string(i) + "\n";
        after += "a" + std::to_string(i) + "\n";
    }
    const std::string text = lineDiff("same\n" + before, "same\n" + after);
    EXPECT_EQ(0u, text.find("@@ line 1\n same\n-b0\n-b1\n"));
    EXPECT_NE(std::string::npos, text.find("-b2999\n+a0\n"));
}
