#include "HistoryFile.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>

#include "TemporaryDirectory.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class HistoryFileTest : public testing::Test {
protected:
    std::vector<std::string> lines() const {
        std::vector<std::string> lines;
        EXPECT_EQ("", m_sut.read(lines));
        return lines;
    }
    mode_t mode(const std::string& name) const {
        struct stat status {};
        EXPECT_EQ(0, ::stat(m_directory.path(name).c_str(), &status));
        return status.st_mode & 07777;
    }

    const TemporaryDirectory m_directory;
    const HistoryFile m_sut{m_directory.path("state/mfhost/history")};
};

}  // namespace

TEST_F(HistoryFileTest, KeepsTheLinesInTheirOrder) {
    EXPECT_THAT(lines(), IsEmpty());
    EXPECT_EQ("", m_sut.add("drivers"));
    EXPECT_EQ("", m_sut.add("state SYS.*"));
    EXPECT_THAT(lines(), ElementsAre("drivers", "state SYS.*"));
}

TEST_F(HistoryFileTest, IsTheUsersAlone) {
    EXPECT_EQ("", m_sut.add("drivers"));
    EXPECT_EQ(0600u, mode("state/mfhost/history"));
    EXPECT_EQ(0700u, mode("state/mfhost"));
}

TEST_F(HistoryFileTest, LineThatBeginsWithABlankOrCannotBeShownIsNotKept) {
    EXPECT_EQ("", m_sut.add(" sendFID SAFE.OPEN code=1234"));
    EXPECT_EQ("", m_sut.add("a\x1b[2J"));
    EXPECT_EQ("", m_sut.add(""));
    EXPECT_EQ("", m_sut.add(std::string(5000, 'x')));
    EXPECT_THAT(lines(), IsEmpty());
}

TEST_F(HistoryFileTest, HasABound) {
    for (int i = 0; i < 1200; ++i)
        ASSERT_EQ("", m_sut.add("line " + std::to_string(i)));
    std::string text = m_directory.read("state/mfhost/history");
    EXPECT_LE(std::count(text.begin(), text.end(), '\n'), 1000);
    const auto kept = lines();
    ASSERT_EQ(500u, kept.size());
    EXPECT_EQ("line 700", kept.front());
    EXPECT_EQ("line 1199", kept.back());
}

TEST_F(HistoryFileTest, LineThatWasCutShortSpoilsNoOther) {
    m_directory.write("state/mfhost/history", "drivers\nsta");
    EXPECT_EQ("", m_sut.add("quit"));
    EXPECT_THAT(lines(), ElementsAre("drivers", "sta", "quit"));
}

TEST_F(HistoryFileTest, WhatOthersPutIntoTheFileReachesNoTerminal) {
    m_directory.write("state/mfhost/history", "drivers\n\x1b[2J\nquit\n");
    EXPECT_THAT(lines(), ElementsAre("drivers", "quit"));
}

TEST_F(HistoryFileTest, SeveralHostsAtOnceSpoilNothing) {
    constexpr int writers = 4;
    constexpr int each = 300;
    for (int writer = 0; writer < writers; ++writer) {
        if (::fork() == 0) {
            int refused = 0;
            for (int i = 0; i < each; ++i) {
                while (!m_sut.add("writer " + std::to_string(writer) + " line " + std::to_string(i)).empty())
                    ++refused;
            }
            ::_exit(0);
        }
    }
    for (int writer = 0; writer < writers; ++writer)
        ::wait(nullptr);
    const auto kept = lines();
    ASSERT_EQ(500u, kept.size());
    std::vector<int> last(writers, -1);
    for (const std::string& line : kept) {
        int writer = -1;
        int number = -1;
        ASSERT_EQ(2, std::sscanf(line.c_str(), "writer %d line %d", &writer, &number)) << line;
        // Of each writer there is everything from some line on, in order.
        EXPECT_TRUE(last.at(writer) == -1 || last.at(writer) + 1 == number) << line;
        last.at(writer) = number;
    }
    for (const int number : last)
        EXPECT_TRUE(number == each - 1 || number == -1) << number;
}

TEST_F(HistoryFileTest, WhatCannotBeKeptIsSaidWithItsReason) {
    m_directory.write("file", "");
    const HistoryFile sut(m_directory.path("file/history"));
    EXPECT_EQ(m_directory.path("file/history") + ": Not a directory", sut.add("drivers"));
    const HistoryFile directory(m_directory.path());
    EXPECT_EQ(m_directory.path() + ": Is a directory", directory.add("drivers"));
    std::vector<std::string> none;
    EXPECT_EQ(m_directory.path() + ": not a regular file", directory.read(none));
}

TEST_F(HistoryFileTest, HostThatHoldsTheFileIsNotWaitedForLong) {
    ASSERT_EQ("", m_sut.add("drivers"));
    const int held = ::open(m_directory.path("state/mfhost/history").c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(0, ::flock(held, LOCK_EX));
    EXPECT_EQ(m_directory.path("state/mfhost/history") + ": another process holds it", m_sut.add("quit"));
    ::close(held);
    EXPECT_THAT(lines(), ElementsAre("drivers"));
}

TEST(HistoryFile, WithoutAPathNothingIsKept) {
    const HistoryFile sut("");
    EXPECT_EQ("", sut.add("drivers"));
    std::vector<std::string> lines;
    EXPECT_EQ("", sut.read(lines));
    EXPECT_THAT(lines, IsEmpty());
}

TEST(HistoryFile, LiesInTheUsersStateDirectory) {
    ::setenv("XDG_STATE_HOME", "/state", 1);
    EXPECT_EQ("/state/mfhost/history", HistoryFile::usualPath());
    // A relative one does not count.
    ::setenv("XDG_STATE_HOME", "state", 1);
    ::setenv("HOME", "/users/anna", 1);
    EXPECT_EQ("/users/anna/.local/state/mfhost/history", HistoryFile::usualPath());
    ::unsetenv("XDG_STATE_HOME");
    ::unsetenv("HOME");
    EXPECT_EQ("", HistoryFile::usualPath());
}
