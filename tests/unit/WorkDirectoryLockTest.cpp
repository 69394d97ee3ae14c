#include "WorkDirectoryLock.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "LogCapture.h"
#include "TemporaryDirectory.h"

namespace {

using testing::HasSubstr;
using testing::MatchesRegex;

/// The test's process works in a directory of its own while it lives.
class WorkDirectoryLockTest : public testing::Test {
protected:
    WorkDirectoryLockTest() { std::filesystem::current_path(m_directory.path()); }
    ~WorkDirectoryLockTest() override { std::filesystem::current_path(m_before); }

    const std::filesystem::path m_before = std::filesystem::current_path();
    const TemporaryDirectory m_directory;
    LogCapture m_log;
};

TEST_F(WorkDirectoryLockTest, KeepsTheDirectoryFromOthers) {
    int ready[2];
    ASSERT_EQ(::pipe(ready), 0);
    const pid_t other = ::fork();
    if (other == 0) {
        WorkDirectoryLock sut;
        const char answer = sut.acquire().empty() ? 'y' : 'n';
        static_cast<void>(!::write(ready[1], &answer, 1));
        ::pause();
    }
    char answer = 0;
    ASSERT_EQ(::read(ready[0], &answer, 1), 1);
    EXPECT_EQ(answer, 'y');
    WorkDirectoryLock sut;
    EXPECT_EQ(sut.acquire(), "another host runs with " + m_directory.path() + " (process " +
                                 std::to_string(other) + "); name another working directory with --workdir");
    ::kill(other, SIGKILL);
    ::waitpid(other, nullptr, 0);
    WorkDirectoryLock next;
    EXPECT_EQ(next.acquire(), "") << "one that was killed keeps nothing";
    ::close(ready[0]);
    ::close(ready[1]);
}

TEST_F(WorkDirectoryLockTest, LeavesTheDirectoryAsItWas) {
    {
        WorkDirectoryLock sut;
        EXPECT_EQ(sut.acquire(), "");
        EXPECT_TRUE(m_directory.contains(".mfhost/lock"));
    }
    EXPECT_TRUE(std::filesystem::is_empty(m_directory.path()));
    EXPECT_EQ(m_log.finish(), "");
}

TEST_F(WorkDirectoryLockTest, DirectoryThatCannotBeLockedIsUsedAllTheSame) {
    m_directory.write(".mfhost", "in its place");
    WorkDirectoryLock sut;
    EXPECT_EQ(sut.acquire(), "");
    EXPECT_THAT(m_log.finish(),
                HasSubstr("warning  HOST: the working directory is not kept from other hosts: " +
                          m_directory.path() + "/.mfhost is not a directory; remove it\n"));
}

}  // namespace
