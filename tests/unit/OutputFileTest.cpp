#include "OutputFile.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "TemporaryDirectory.h"

namespace {

class OutputFileTest : public testing::Test {
protected:
    std::string path(const std::string& name = "f") const { return m_directory.path(name); }

    TemporaryDirectory m_directory;
};

}  // namespace

TEST_F(OutputFileTest, CreateReplacesNothing) {
    EXPECT_EQ("", createFile(path(), "new", 0600));
    EXPECT_EQ(path() + ": File exists", createFile(path(), "newer", 0600));
    EXPECT_EQ("new", m_directory.read("f"));
}

TEST_F(OutputFileTest, ReplaceTakesTheNewContentAndLeavesNoDraft) {
    m_directory.write("f", "old");
    EXPECT_EQ("", replaceFile(path(), "new"));
    EXPECT_EQ("new", m_directory.read("f"));
    const std::filesystem::directory_iterator entries(m_directory.path());
    EXPECT_EQ(1, std::distance(begin(entries), end(entries)));
}

TEST_F(OutputFileTest, ReplaceOverADirectoryFailsAndLeavesNoDraft) {
    std::filesystem::create_directory(path());
    EXPECT_EQ(path() + ": Is a directory", replaceFile(path(), "new"));
    const std::filesystem::directory_iterator entries(m_directory.path());
    EXPECT_EQ(1, std::distance(begin(entries), end(entries)));
}
