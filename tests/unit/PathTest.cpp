#include "sal/Path.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "TemporaryDirectory.h"

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

class PathWorkingDirectory : public testing::Test {
protected:
    void TearDown() override { std::filesystem::current_path(m_before); }
    std::filesystem::path m_before = std::filesystem::current_path();
    TemporaryDirectory directory;
};

TEST_F(PathWorkingDirectory, CanBeSetAndRead) {
    EXPECT_TRUE(sal::Path::setCurrentWorkingDirPath(sal::Path(directory.path())));
    EXPECT_EQ(sal::Path::getCurrentWorkingDirPath().getPathString(), directory.path());
}

TEST_F(PathWorkingDirectory, MissingDirectoryIsRefused) {
    EXPECT_FALSE(sal::Path::setCurrentWorkingDirPath(sal::Path(directory.path("none"))));
    EXPECT_EQ(sal::Path::getCurrentWorkingDirPath().getPathString(), m_before.string());
}

TEST_F(PathWorkingDirectory, IsEmptyWhenItIsGone) {
    std::filesystem::create_directory(directory.path("gone"));
    sal::Path::setCurrentWorkingDirPath(sal::Path(directory.path("gone")));
    std::filesystem::remove(directory.path("gone"));
    EXPECT_EQ(sal::Path::getCurrentWorkingDirPath().getPathString(), "");
}

TEST(Path, ExecutableDirectoryHoldsTheExecutable) {
    EXPECT_TRUE(std::filesystem::exists(sal::Path::getExeBasePath().getPathString() + "/unit_hostlinux"));
}

}  // namespace
