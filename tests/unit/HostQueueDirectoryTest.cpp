#include "sal/HostQueueDirectory.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "QueuePeer.h"
#include "sal/MessageQueue.h"

namespace fs = std::filesystem;

namespace {

/// On a /dev/shm of the test's own.
class HostQueueDirectory : public testing::Test {
protected:
    void SetUp() override {
        static const bool s_isPrivate =
            ::unshare(CLONE_NEWNS) == 0 && ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
        if (!s_isPrivate || ::mount("tmpfs", "/dev/shm", "tmpfs", 0, "mode=1777") != 0)
            GTEST_SKIP() << "needs a mount namespace";
        m_isMounted = true;
        ::unsetenv("MFD_QUEUE_DIR");
    }
    void TearDown() override {
        ::unsetenv("MFD_QUEUE_DIR");
        if (m_isMounted)
            ::umount2("/dev/shm", MNT_DETACH);
    }

    static std::vector<std::string> entries() {
        std::vector<std::string> found;
        for (const auto& entry : fs::directory_iterator("/dev/shm"))
            found.push_back(entry.path());
        std::sort(found.begin(), found.end());
        return found;
    }

    /// Runs the body in a process of its own that has a host's directory, and waits for nothing afterwards.
    static pid_t startHost(const std::function<void()>& body = [] {}) {
        int ends[2];
        EXPECT_EQ(::pipe(ends), 0);
        const pid_t host = ::fork();
        if (host == 0) {
            const sal::HostQueueDirectory directory;
            body();
            static_cast<void>(!::write(ends[1], "x", 1));
            for (;;)
                ::pause();
        }
        char letter = 0;
        EXPECT_EQ(::read(ends[0], &letter, 1), 1);
        ::close(ends[0]);
        ::close(ends[1]);
        return host;
    }
    static void kill(pid_t process) {
        ::kill(process, SIGKILL);
        ::waitpid(process, nullptr, 0);
    }

    static std::string logOf(const std::function<void()>& body) {
        testing::internal::CaptureStderr();
        body();
        return testing::internal::GetCapturedStderr();
    }

private:
    bool m_isMounted = false;
};

}  // namespace

TEST_F(HostQueueDirectory, IsOneThatOnlyItsUserCanEnter) {
    const sal::HostQueueDirectory sut;
    EXPECT_EQ(entries(), std::vector<std::string>{sut.path()});
    EXPECT_TRUE(sut.path().starts_with("/dev/shm/mfd-" + std::to_string(::geteuid()) + "-"));
    struct stat info {};
    ASSERT_EQ(::stat(sut.path().c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0700U);
}

TEST_F(HostQueueDirectory, IsNamedToChildren) {
    const sal::HostQueueDirectory sut;
    EXPECT_EQ(std::getenv("MFD_QUEUE_DIR"), sut.path());
}

TEST_F(HostQueueDirectory, GoesWithAllThatIsInIt) {
    {
        const sal::HostQueueDirectory sut;
        std::ofstream(sut.path() + "/left") << "x";
        fs::permissions(sut.path() + "/left", fs::perms::owner_read | fs::perms::owner_write);
        // Whatever a driver has done to it.
        fs::permissions(sut.path(), fs::perms::all);
    }
    EXPECT_EQ(entries(), std::vector<std::string>());
    EXPECT_EQ(std::getenv("MFD_QUEUE_DIR"), nullptr);
}

TEST_F(HostQueueDirectory, OneThatHasBeenMadeAgainGoesToo) {
    {
        const sal::HostQueueDirectory sut;
        fs::remove(sut.path());
        sal::MessageQueue queue;
        ASSERT_TRUE(queue.create("Q", 4, 1024, 0));
        EXPECT_TRUE(fs::exists(sut.path() + "/Q"));
        std::ofstream(sut.path() + "/left") << "x";
        fs::permissions(sut.path() + "/left", fs::perms::owner_read | fs::perms::owner_write);
    }
    EXPECT_EQ(entries(), std::vector<std::string>());
}

TEST_F(HostQueueDirectory, OneThatIsSetIsUsedAndStays) {
    ::setenv("MFD_QUEUE_DIR", "/dev/shm/given", 1);
    {
        const sal::HostQueueDirectory sut;
        EXPECT_EQ(sut.path(), "/dev/shm/given");
        EXPECT_EQ(entries(), std::vector<std::string>());
        sal::MessageQueue queue;
        EXPECT_TRUE(queue.create("Q", 4, 1024, 0));
    }
    EXPECT_EQ(entries(), std::vector<std::string>{"/dev/shm/given"});
}

TEST_F(HostQueueDirectory, ThoseOfDeadHostsAreRemoved) {
    const pid_t idle = startHost();
    const pid_t host = startHost([] {
        // It is the queue's last holder, and does not come to remove its name.
        static sal::MessageQueue s_queue;
        ASSERT_TRUE(s_queue.create("Q", 4, 1024, 0));
    });
    kill(idle);
    kill(host);
    ASSERT_EQ(entries().size(), 2U);
    const sal::HostQueueDirectory sut;
    sut.removeLeft();
    EXPECT_EQ(entries(), std::vector<std::string>{sut.path()});
}

TEST_F(HostQueueDirectory, OfADeadHostGoesWithWhatItsDriversHaveStarted) {
    std::string path;
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    const pid_t host = startHost([&] {
        const std::string own = std::getenv("MFD_QUEUE_DIR");
        static_cast<void>(!::write(ends[1], own.data(), own.size()));
    });
    char text[100] = {};
    ASSERT_GT(::read(ends[0], text, sizeof(text) - 1), 0);
    std::string word = std::string("MFD_QUEUE_DIR=") + text;
    // Of this run alone: all with the same mark are ended.
    std::string mark = "MFD_PROCESS=" + std::to_string(::getpid()) + "-2-3";
    int started[2];
    ASSERT_EQ(::pipe2(started, O_CLOEXEC), 0);
    const pid_t left = ::fork();
    if (left == 0) {
        char program[] = "sleep";
        char time[] = "600";
        char* arguments[] = {program, time, nullptr};
        char* environment[] = {word.data(), mark.data(), nullptr};
        ::execve("/bin/sleep", arguments, environment);
        ::_exit(127);
    }
    ::close(started[1]);
    // Its end is closed when the child has become another program.
    EXPECT_EQ(::read(started[0], text, 1), 0);
    const sal::HostQueueDirectory sut;
    sut.removeLeft();
    EXPECT_EQ(::waitpid(left, nullptr, WNOHANG), 0) << "its host lives";
    kill(host);
    EXPECT_NE(logOf([&] { sut.removeLeft(); })
                  .find("process " + std::to_string(left) +
                        " (sleep) was left behind by a driver of a host that is gone, and is ended\n"),
              std::string::npos);
    kill(left);
    for (const int end : {ends[0], ends[1], started[0]})
        ::close(end);
}

TEST_F(HostQueueDirectory, ThoseOfLiveHostsStay) {
    const pid_t host = startHost();
    const auto theirs = entries();
    {
        const sal::HostQueueDirectory sut;
        sut.removeLeft();
    }
    EXPECT_EQ(entries(), theirs);
    kill(host);
}

TEST_F(HostQueueDirectory, WhatIsAnothersOrNoDirectoryStays) {
    const std::string prefix = "/dev/shm/mfd-" + std::to_string(::geteuid());
    fs::create_directory(prefix);
    fs::create_directory(prefix + "-longer-name");
    std::ofstream(prefix + "-abcdef") << "x";
    fs::create_directory("/dev/shm/target");
    std::ofstream("/dev/shm/target/Q") << "x";
    fs::create_directory_symlink("target", prefix + "-linked");
    fs::create_directory(prefix + "-others");
    if (::chown((prefix + "-others").c_str(), 1, 1) != 0)
        GTEST_SKIP() << "needs the right to give a directory away";
    const auto before = entries();
    {
        const sal::HostQueueDirectory sut;
        sut.removeLeft();
    }
    EXPECT_EQ(entries(), before);
    EXPECT_TRUE(fs::exists("/dev/shm/target/Q"));
}

TEST_F(HostQueueDirectory, NamesThatALiveProcessOfADeadHostHoldsAreRefused) {
    std::string theirs;
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    const pid_t host = startHost([&] {
        static sal::MessageQueue s_queue;
        ASSERT_TRUE(s_queue.create("Q", 4, 1024, 0));
        const std::string path = std::getenv("MFD_QUEUE_DIR");
        static_cast<void>(!::write(ends[1], path.data(), path.size()));
    });
    char path[100] = {};
    ASSERT_GT(::read(ends[0], path, sizeof(path) - 1), 0);
    ::setenv("MFD_QUEUE_DIR", path, 1);
    QueuePeer driver({"hold", "Q"});
    ASSERT_EQ(driver.line(), "opened");
    ::unsetenv("MFD_QUEUE_DIR");
    kill(host);

    const sal::HostQueueDirectory sut;
    sut.removeLeft();
    EXPECT_TRUE(fs::exists(path));
    sal::MessageQueue queue;
    EXPECT_EQ(sal::MessageQueue::createFault("Q"),
              "the name is still in use by a live process (made by process " + std::to_string(host) + ")");
    EXPECT_FALSE(queue.create("Q", 4, 1024, 0));
    EXPECT_TRUE(sal::MessageQueue().create("other", 4, 1024, 0));
    driver.kill();
    EXPECT_TRUE(queue.create("Q", 4, 1024, 0));
    EXPECT_FALSE(fs::exists(path));
    ::close(ends[0]);
    ::close(ends[1]);
}

TEST_F(HostQueueDirectory, ChildThatIsOnlyForkedDoesNotKeepIt) {
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    const pid_t host = startHost([&] {
        const pid_t child = ::fork();
        if (child == 0) {
            const pid_t self = ::getpid();
            static_cast<void>(!::write(ends[1], &self, sizeof(self)));
            for (;;)
                ::pause();
        }
    });
    pid_t child = 0;
    ASSERT_EQ(::read(ends[0], &child, sizeof(child)), static_cast<ssize_t>(sizeof(child)));
    kill(host);
    const sal::HostQueueDirectory sut;
    sut.removeLeft();
    EXPECT_EQ(entries(), std::vector<std::string>{sut.path()});
    ::kill(child, SIGKILL);
    ::close(ends[0]);
    ::close(ends[1]);
}

TEST_F(HostQueueDirectory, IsMadeAsSoonAsThatIsPossible) {
    ASSERT_EQ(::mount("tmpfs", "/dev/shm", "tmpfs", MS_REMOUNT | MS_RDONLY, "mode=1777"), 0);
    const sal::HostQueueDirectory sut;
    sal::MessageQueue queue;
    EXPECT_EQ(logOf([&] { EXPECT_FALSE(queue.create("Q", 4, 1024, 0)); }),
              "QUEUE: queue Q: not created: queue directory " + sut.path() +
                  " cannot be made: Read-only file system\n");
    ASSERT_EQ(::mount("tmpfs", "/dev/shm", "tmpfs", MS_REMOUNT, "mode=1777"), 0);
    EXPECT_TRUE(queue.create("Q", 4, 1024, 0));
    queue.close();
}

TEST_F(HostQueueDirectory, RemoveNowLeavesWhatSomebodyElseHolds) {
    const sal::HostQueueDirectory sut;
    sal::MessageQueue queue;
    ASSERT_TRUE(queue.create("Q", 4, 1024, 0));
    QueuePeer driver({"hold", "Q"});
    ASSERT_EQ(driver.line(), "opened");
    EXPECT_FALSE(sal::HostQueueDirectory::removeNow());
    EXPECT_TRUE(fs::exists(sut.path() + "/Q"));
    driver.kill();
    EXPECT_TRUE(sal::HostQueueDirectory::removeNow());
    EXPECT_EQ(entries(), std::vector<std::string>());
}
