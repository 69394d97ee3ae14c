#include "sal/Path.h"

#include <gtest/gtest.h>

#include <string>

namespace {

std::string joined(const std::string& path, const std::string& text) {
    sal::Path sut(path);
    sut.expand(text);
    return sut.getPathString();
}

TEST(Path, KeepsItsTextAsItIs) {
    EXPECT_EQ(sal::Path("a//b\\..").getPathString(), "a//b\\..");
}

TEST(Path, JoinPutsOneSeparatorBetween) {
    EXPECT_EQ(joined("/var/data", "AXIS1"), "/var/data/AXIS1");
    EXPECT_EQ(joined("/var/data/", "AXIS1"), "/var/data/AXIS1");
    EXPECT_EQ(joined("/var/data", "/AXIS1"), "/var/data/AXIS1");
    EXPECT_EQ(joined("/var/data/", "/AXIS1"), "/var/data/AXIS1");
}

TEST(Path, BackslashCountsAsSeparator) {
    EXPECT_EQ(joined("/var", "\\data\\AXIS1"), "/var/data/AXIS1");
}

TEST(Path, BackslashOfThePathItselfStays) {
    EXPECT_EQ(joined("a\\", "b"), "a\\/b");
}

TEST(Path, OnlyOneLeadingSeparatorIsDropped) {
    EXPECT_EQ(joined("/var/", "//x"), "/var//x");
}

TEST(Path, EmptyTextChangesNothing) {
    sal::Path sut("/var");
    EXPECT_FALSE(sut.expand(""));
    EXPECT_EQ(sut.getPathString(), "/var");
}

TEST(Path, EmptyPathStaysEmpty) {
    sal::Path sut;
    EXPECT_FALSE(sut.expand("data"));
    EXPECT_EQ(sut.getPathString(), "");
}

TEST(Path, JoinSaysThatItDid) {
    sal::Path sut("/");
    EXPECT_TRUE(sut.expand("/"));
    EXPECT_EQ(sut.getPathString(), "/");
}

}  // namespace
