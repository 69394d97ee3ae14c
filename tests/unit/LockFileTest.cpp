#include "LockFile.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "TemporaryDirectory.h"
#include "sal/File.h"

namespace {

using testing::HasSubstr;

constexpr uid_t c_nobody = 65534;

/// A directory with a descriptor of its own.
class OpenDirectory {
public:
    explicit OpenDirectory(const std::string& path)
        : m_fd(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {}
    ~OpenDirectory() { ::close(m_fd); }
    OpenDirectory(const OpenDirectory&) = delete;
    OpenDirectory& operator=(const OpenDirectory&) = delete;
    int fd() const { return m_fd; }

private:
    const int m_fd;
};

/// A process that does something and then waits until it is told to end, or is killed.
class Peer {
public:
    /// True from the first step lets it wait; it ends by itself, with code 1, otherwise. As that user.
    explicit Peer(const std::function<bool()>& first, uid_t user = 0,
                  const std::function<void()>& last = {}) {
        int toPeer[2];
        int toTest[2];
        if (::pipe2(toPeer, O_CLOEXEC) != 0 || ::pipe2(toTest, O_CLOEXEC) != 0)
            return;
        m_pid = ::fork();
        if (m_pid == 0) {
            ::close(toPeer[1]);
            ::close(toTest[0]);
            if (user != 0 && (::setgid(user) != 0 || ::setuid(user) != 0))
                ::_exit(2);
            char byte = 0;
            if (!first() || ::write(toTest[1], &byte, 1) != 1)
                ::_exit(1);
            while (::read(toPeer[0], &byte, 1) < 0) {
            }
            if (last)
                last();
            ::_exit(0);
        }
        ::close(toPeer[0]);
        ::close(toTest[1]);
        m_end = toPeer[1];
        char byte = 0;
        m_isReady = ::read(toTest[0], &byte, 1) == 1;
        ::close(toTest[0]);
    }
    ~Peer() {
        if (!m_isEnded)
            end(SIGKILL);
    }
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;

    bool isReady() const { return m_isReady; }
    pid_t pid() const { return m_pid; }
    /// In order, or by that signal; what waitpid says.
    int end(int signal = 0) {
        if (signal != 0)
            ::kill(m_pid, signal);
        ::close(m_end);
        int status = 0;
        ::waitpid(m_pid, &status, 0);
        m_isEnded = true;
        return status;
    }

private:
    pid_t m_pid = -1;
    int m_end = -1;
    bool m_isReady = false;
    bool m_isEnded = false;
};

class LockFileTest : public testing::Test {
protected:
    LockFileTest() { ::chmod(m_directory.path().c_str(), 0755); }

    std::string path() const { return m_directory.path(); }
    std::string place() const { return path() + "/.mfhost"; }
    std::string file() const { return place() + "/lock"; }

    /// What another process is told that wants the lock; "free" when it got it.
    std::string answer() const {
        int ends[2];
        EXPECT_EQ(::pipe(ends), 0);
        const pid_t child = ::fork();
        if (child == 0) {
            const OpenDirectory directory(path());
            LockFile sut(path());
            const std::string reason = sut.acquire(directory.fd());
            const std::string text = reason.empty() ? "free" : reason;
            static_cast<void>(!::write(ends[1], text.data(), text.size()));
            ::_exit(0);
        }
        ::close(ends[1]);
        std::string text;
        char buffer[512];
        for (ssize_t count = 0; (count = ::read(ends[0], buffer, sizeof buffer)) > 0;)
            text.append(buffer, static_cast<std::size_t>(count));
        ::close(ends[0]);
        ::waitpid(child, nullptr, 0);
        return text;
    }
    std::string heldBy(pid_t pid) const {
        return "another host runs with " + path() + " (process " + std::to_string(pid) + ")";
    }

    /// In a peer: takes the lock and keeps it until release().
    bool hold() {
        m_pOpen = std::make_unique<OpenDirectory>(path());
        m_pLock = std::make_unique<LockFile>(path());
        return m_pLock->acquire(m_pOpen->fd()).empty();
    }
    void release() { m_pLock.reset(); }

    static mode_t modeOf(const std::string& path) {
        struct stat status {};
        return ::lstat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
    }
    static uid_t ownerOf(const std::string& path) {
        struct stat status {};
        return ::lstat(path.c_str(), &status) == 0 ? status.st_uid : static_cast<uid_t>(-1);
    }

    TemporaryDirectory m_directory;
    std::unique_ptr<OpenDirectory> m_pOpen;
    std::unique_ptr<LockFile> m_pLock;
};

TEST_F(LockFileTest, SecondProcessIsKeptOutAndToldWho) {
    Peer holder([&] { return hold(); });
    ASSERT_TRUE(holder.isReady());
    EXPECT_EQ(answer(), heldBy(holder.pid()));
}

TEST_F(LockFileTest, IsFreeAfterAnOrderlyEnd) {
    Peer holder([&] { return hold(); }, 0, [&] { release(); });
    ASSERT_TRUE(holder.isReady());
    EXPECT_EQ(holder.end(), 0);
    EXPECT_EQ(answer(), "free");
}

TEST_F(LockFileTest, LeavesNothingInTheDirectory) {
    ASSERT_TRUE(hold());
    EXPECT_TRUE(std::filesystem::exists(file()));
    release();
    EXPECT_TRUE(std::filesystem::is_empty(path()));
}

TEST_F(LockFileTest, IsFreeWhenItsProcessWasKilled) {
    Peer holder([&] { return hold(); });
    ASSERT_TRUE(holder.isReady());
    holder.end(SIGKILL);
    EXPECT_TRUE(std::filesystem::exists(file()));
    EXPECT_EQ(answer(), "free");
}

TEST_F(LockFileTest, StaysWithItsProcessWhenADriverThereHasReadTheFile) {
    // The kernel takes the lock from the process with any descriptor of the file that it closes.
    Peer holder([&] { return hold() && ::close(::open(file().c_str(), O_RDONLY | O_CLOEXEC)) == 0; });
    ASSERT_TRUE(holder.isReady());
    EXPECT_EQ(answer(), heldBy(holder.pid()));
    EXPECT_EQ(answer(), heldBy(holder.pid())) << "whoever asks changes nothing";
    holder.end(SIGKILL);
    EXPECT_EQ(answer(), "free");
}

TEST_F(LockFileTest, ProcessThatHasTheNumberOfADeadHolderKeepsNobodyOut) {
    const Peer other([] { return true; });
    ASSERT_TRUE(other.isReady());
    std::filesystem::create_directory(place());
    ::chmod(place().c_str(), 0700);
    m_directory.write(".mfhost/lock", std::to_string(other.pid()) + " 1 0\n");
    ::chmod(file().c_str(), 0600);
    EXPECT_EQ(answer(), "free");
}

TEST_F(LockFileTest, IsKeptWhereItsFileCannotSayWhoHasIt) {
    Peer holder([&] { return hold() && ::truncate(file().c_str(), 0) == 0; });
    ASSERT_TRUE(holder.isReady());
    EXPECT_EQ(answer(), heldBy(holder.pid()));
}

/// How a driver in the holder's process makes a child that keeps all of its descriptors.
class LockFileTestOfChildren : public LockFileTest, public testing::WithParamInterface<int> {
protected:
    /// In the peer.
    bool holdWithChild() {
        if (!hold())
            return false;
        const pid_t child =
            GetParam() == 0 ? ::fork() : static_cast<pid_t>(::syscall(SYS_clone, SIGCHLD, 0, 0, 0, 0));
        if (child == 0) {
            for (;;)
                ::pause();
        }
        m_directory.write("child", std::to_string(child));
        return child > 0;
    }
    pid_t child() const { return std::atoi(m_directory.read("child").c_str()); }
};

TEST_P(LockFileTestOfChildren, DoNotHoldItBeyondAnOrderlyEnd) {
    Peer holder([&] { return holdWithChild(); }, 0, [&] { release(); });
    ASSERT_TRUE(holder.isReady());
    EXPECT_EQ(answer(), heldBy(holder.pid()));
    EXPECT_EQ(holder.end(), 0);
    EXPECT_EQ(::kill(child(), 0), 0);
    EXPECT_EQ(answer(), "free");
    ::kill(child(), SIGKILL);
}

TEST_P(LockFileTestOfChildren, DoNotHoldItBeyondTheDeathOfTheirParent) {
    Peer holder([&] { return holdWithChild(); });
    ASSERT_TRUE(holder.isReady());
    holder.end(SIGKILL);
    EXPECT_EQ(::kill(child(), 0), 0);
    EXPECT_EQ(answer(), "free");
    ::kill(child(), SIGKILL);
}

TEST_P(LockFileTestOfChildren, DoNotReleaseItByTheirOwnEnd) {
    Peer holder([&] { return holdWithChild(); });
    ASSERT_TRUE(holder.isReady());
    ::kill(child(), SIGKILL);
    for (int i = 0; i < 1000; ++i) {
        const std::string stat = "/proc/" + std::to_string(child()) + "/exe";
        char target[16];
        if (::readlink(stat.c_str(), target, sizeof target) < 0)
            break;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    EXPECT_EQ(answer(), heldBy(holder.pid()));
}

INSTANTIATE_TEST_SUITE_P(MadeBy, LockFileTestOfChildren, testing::Values(0, 1),
                         [](const auto& test) { return test.param == 0 ? "Fork" : "Clone"; });

/// With a process of another user beside it.
class LockFileTestOfUsers : public LockFileTest {
protected:
    void SetUp() override {
        if (::geteuid() != 0)
            GTEST_SKIP() << "needs root, to act as another user";
    }
};

TEST_F(LockFileTestOfUsers, AnotherUsersLockOfTheDirectoryKeepsNobodyOut) {
    Peer stranger(
        [&] {
            const int fd = ::open(path().c_str(), O_RDONLY | O_DIRECTORY);
            return fd >= 0 && ::flock(fd, LOCK_SH) == 0;
        },
        c_nobody);
    ASSERT_TRUE(stranger.isReady());
    EXPECT_EQ(answer(), "free");
}

TEST_F(LockFileTestOfUsers, AnotherUserCannotOpenTheFile) {
    ASSERT_TRUE(hold());
    EXPECT_EQ(modeOf(place()), 0700u);
    EXPECT_EQ(modeOf(file()), 0600u);
    const Peer stranger(
        [&] {
            return ::open(file().c_str(), O_RDONLY) < 0 && errno == EACCES &&
                   ::open(place().c_str(), O_RDONLY) < 0 && errno == EACCES;
        },
        c_nobody);
    EXPECT_TRUE(stranger.isReady());
}

TEST_F(LockFileTest, ModesDoNotDependOnTheUmask) {
    const mode_t before = ::umask(0777);
    const bool isHeld = hold();
    ::umask(before);
    ASSERT_TRUE(isHeld);
    EXPECT_EQ(modeOf(place()), 0700u);
    EXPECT_EQ(modeOf(file()), 0600u);
}

TEST_F(LockFileTest, StaysWhenTheDirectoryIsEmptied) {
    Peer holder([&] { return hold(); });
    ASSERT_TRUE(holder.isReady());
    EXPECT_FALSE(sal::File::remove(sal::Path(place())));
    EXPECT_EQ(answer(), heldBy(holder.pid()));
}

TEST_F(LockFileTestOfUsers, UserWithoutRightsElsewhereHasItInADirectoryOfTheOwn) {
    ASSERT_EQ(::chown(path().c_str(), c_nobody, c_nobody), 0);
    Peer holder([&] { return hold(); }, c_nobody, [&] { release(); });
    ASSERT_TRUE(holder.isReady());
    EXPECT_EQ(ownerOf(file()), c_nobody);
    // Root may look into it.
    EXPECT_EQ(answer(), heldBy(holder.pid()));
    EXPECT_EQ(holder.end(), 0);
    EXPECT_TRUE(std::filesystem::is_empty(path()));
}

TEST_F(LockFileTestOfUsers, WhatADeadHostOfAnotherUserLeftIsReplaced) {
    ::chmod(path().c_str(), 0777);
    Peer dead([&] { return hold(); }, c_nobody);
    ASSERT_TRUE(dead.isReady());
    dead.end(SIGKILL);
    ASSERT_EQ(ownerOf(file()), c_nobody);
    ASSERT_TRUE(hold());
    EXPECT_EQ(ownerOf(place()), 0u);
    EXPECT_EQ(ownerOf(file()), 0u);
}

TEST_F(LockFileTestOfUsers, WhatAnotherUserMayNotReplaceIsNamedWithItsOwner) {
    ::chmod(path().c_str(), 0777);
    Peer dead([&] { return hold(); });
    ASSERT_TRUE(dead.isReady());
    dead.end(SIGKILL);
    const Peer other(
        [&] {
            const OpenDirectory directory(path());
            const auto reason = LockFile(path()).acquire(directory.fd());
            return reason == place() +
                                 " belongs to user 0, whose host runs here or was killed here; remove it if "
                                 "none runs";
        },
        c_nobody);
    EXPECT_TRUE(other.isReady());
}

TEST_F(LockFileTest, FileThatOthersCanOpenIsReplaced) {
    std::filesystem::create_directory(place());
    ::chmod(place().c_str(), 0755);
    m_directory.write(".mfhost/lock", "");
    ::chmod(file().c_str(), 0644);
    struct stat before {};
    ASSERT_EQ(::stat(file().c_str(), &before), 0);
    // A descriptor that somebody keeps must not be one of the new file.
    const int kept = ::open(file().c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_TRUE(hold());
    EXPECT_EQ(modeOf(place()), 0700u);
    EXPECT_EQ(modeOf(file()), 0600u);
    struct stat now {};
    ASSERT_EQ(::stat(file().c_str(), &now), 0);
    EXPECT_NE(now.st_ino, before.st_ino);
    ::close(kept);
}

TEST_F(LockFileTest, LinkInItsPlaceIsNotFollowed) {
    std::filesystem::create_directory(path() + "/elsewhere");
    std::filesystem::create_directory_symlink(path() + "/elsewhere", place());
    EXPECT_EQ(answer(), place() + " is not a directory; remove it");
    EXPECT_TRUE(std::filesystem::is_empty(path() + "/elsewhere"));
}

TEST_F(LockFileTest, LinkInPlaceOfTheFileIsNotFollowed) {
    std::filesystem::create_directory(place());
    ::chmod(place().c_str(), 0700);
    std::filesystem::create_symlink(path() + "/elsewhere", file());
    EXPECT_THAT(answer(), HasSubstr("cannot open " + file() + ": "));
    EXPECT_FALSE(std::filesystem::exists(path() + "/elsewhere"));
}

TEST_F(LockFileTestOfUsers, DirectoryThatCannotBeWrittenIsNamed) {
    const Peer other(
        [&] {
            const OpenDirectory directory(path());
            return LockFile(path()).acquire(directory.fd()) ==
                   "cannot make " + place() + ": Permission denied";
        },
        c_nobody);
    EXPECT_TRUE(other.isReady());
}

TEST_F(LockFileTest, NeverIsHeldTwiceHoweverOftenItComesAndGoes) {
    void* pShared = ::mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(pShared, MAP_FAILED);
    auto* pInside = new (pShared) std::atomic<int>[3] {};
    std::vector<std::unique_ptr<Peer>> peers;
    for (int i = 0; i < 4; ++i) {
        peers.push_back(std::make_unique<Peer>([] { return true; }, 0,
                                               [&] {
                                                   for (int round = 0; round < 100; ++round) {
                                                       if (!hold())
                                                           continue;
                                                       pInside[1] += ++pInside[0] != 1 ? 1 : 0;
                                                       ++pInside[2];
                                                       --pInside[0];
                                                       release();
                                                   }
                                               }));
    }
    // Closing the pipe lets one go; all are to go at once.
    std::vector<std::thread> ends;
    for (const auto& pPeer : peers)
        ends.emplace_back([&pPeer] { EXPECT_EQ(pPeer->end(), 0); });
    for (std::thread& end : ends)
        end.join();
    EXPECT_EQ(pInside[1], 0);
    EXPECT_GE(pInside[2], 100);
    EXPECT_TRUE(std::filesystem::is_empty(path()));
    ::munmap(pShared, 4096);
}

}  // namespace
