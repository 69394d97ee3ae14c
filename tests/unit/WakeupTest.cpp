#include "Wakeup.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <string>
#include <system_error>
#include <thread>

namespace {

bool isReadable(int fd) {
    pollfd watched{fd, POLLIN, 0};
    return ::poll(&watched, 1, 0) == 1;
}

}  // namespace

TEST(Wakeup, NothingIsThereAtFirst) {
    const base::Wakeup sut("a test");
    EXPECT_FALSE(isReadable(sut.fd()));
    EXPECT_FALSE(sut.take());
}

TEST(Wakeup, StaysReadableUntilItIsTaken) {
    const base::Wakeup sut("a test");
    sut.wake();
    EXPECT_TRUE(isReadable(sut.fd()));
    EXPECT_TRUE(isReadable(sut.fd()));
    EXPECT_TRUE(sut.take());
    EXPECT_FALSE(isReadable(sut.fd()));
}

TEST(Wakeup, SeveralCountAsOne) {
    const base::Wakeup sut("a test");
    sut.wake();
    sut.wake();
    EXPECT_TRUE(sut.take());
    EXPECT_FALSE(sut.take());
}

TEST(Wakeup, WaitReturnsForAWakeupBeforeIt) {
    const base::Wakeup sut("a test");
    sut.wake();
    sut.wait();
    EXPECT_FALSE(sut.take());
}

TEST(Wakeup, WaitReturnsForAWakeupOfAnotherThread) {
    const base::Wakeup sut("a test");
    std::atomic<bool> isWoken = false;
    std::thread waker([&] {
        isWoken = true;
        sut.wake();
    });
    sut.wait();
    EXPECT_TRUE(isWoken);
    waker.join();
}

TEST(Wakeup, KeepsErrno) {
    errno = ENOTTY;
    base::Wakeup::wake(-1);
    EXPECT_EQ(errno, ENOTTY);
}

TEST(Wakeup, ProgramsDoNotInheritIt) {
    const base::Wakeup sut("a test");
    EXPECT_EQ(::fcntl(sut.fd(), F_GETFD), FD_CLOEXEC);
}

TEST(Wakeup, SaysWhatForNoDescriptorIsLeft) {
    const pid_t child = ::fork();
    if (child == 0) {
        const rlimit none{0, 0};
        ::setrlimit(RLIMIT_NOFILE, &none);
        try {
            const base::Wakeup sut("the console");
            ::_exit(1);
        } catch (const std::system_error& error) {
            const std::string expected = "no descriptor can be had for the console: Too many open files";
            ::_exit(error.what() == expected ? 0 : 2);
        }
    }
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}
