#include "OutputFile.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "TemporaryDirectory.h"

namespace {

class OutputFileTest : public testing::Test {
protected:
    std::string path(const std::string& name = "f") const { return m_directory.path(name); }

    TemporaryDirectory m_directory;
    std::string m_error;
};

}  // namespace

TEST_F(OutputFileTest, ReadsAFileWhole) {
    const std::string text(200'000, 'x');
    m_directory.write("f", text);
    EXPECT_EQ(text, OutputFile::read(path(), m_error));
}

TEST_F(OutputFileTest, PipeIsNotWaitedFor) {
    ASSERT_EQ(0, ::mkfifo(path().c_str(), 0600));
    EXPECT_FALSE(OutputFile::read(path(), m_error));
    EXPECT_EQ("not a regular file", m_error);
}

TEST_F(OutputFileTest, FileOfMoreThanSixteenMegabytesIsRefused) {
    m_directory.write("f", "");
    std::filesystem::resize_file(path(), (16u << 20) + 1);
    EXPECT_FALSE(OutputFile::read(path(), m_error));
    EXPECT_EQ("larger than 16 MB", m_error);
}

TEST_F(OutputFileTest, CreateReplacesNothing) {
    EXPECT_EQ("", OutputFile::create(path(), "new", 0600));
    EXPECT_EQ(path() + ": File exists", OutputFile::create(path(), "newer", 0600));
    EXPECT_EQ("new", m_directory.read("f"));
}

TEST_F(OutputFileTest, ReplaceTakesTheNewContentAndLeavesNoDraft) {
    m_directory.write("f", "old");
    EXPECT_EQ("", OutputFile::replace(path(), "new"));
    EXPECT_EQ("new", m_directory.read("f"));
    const std::filesystem::directory_iterator entries(m_directory.path());
    EXPECT_EQ(1, std::distance(begin(entries), end(entries)));
}

TEST_F(OutputFileTest, ReplaceOverADirectoryFailsAndLeavesNoDraft) {
    std::filesystem::create_directory(path());
    EXPECT_EQ(path() + ": Is a directory", OutputFile::replace(path(), "new"));
    const std::filesystem::directory_iterator entries(m_directory.path());
    EXPECT_EQ(1, std::distance(begin(entries), end(entries)));
}
