#include "ProcessEnd.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>

namespace {

/// A child of the test, by its descriptor.
class Child {
public:
    explicit Child(const std::function<void()>& body) : m_pid(::fork()) {
        if (m_pid == 0) {
            body();
            ::_exit(0);
        }
        m_fd = static_cast<int>(::syscall(SYS_pidfd_open, m_pid, 0));
    }
    ~Child() {
        ::kill(m_pid, SIGKILL);
        ::waitpid(m_pid, nullptr, 0);
        ::close(m_fd);
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    pid_t pid() const { return m_pid; }
    int fd() const { return m_fd; }
    bool waitForEnd() const {
        pollfd end{m_fd, POLLIN, 0};
        return ::poll(&end, 1, 30'000) == 1;
    }

private:
    const pid_t m_pid;
    int m_fd = -1;
};

TEST(ProcessEnd, OfOneThatRunsThereIsNone) {
    const Child child([] { ::pause(); });
    EXPECT_FALSE(ProcessEnd::collect(child.fd()));
}

TEST(ProcessEnd, ExitIsToldWithItsCode) {
    const Child child([] { ::_exit(3); });
    ASSERT_TRUE(child.waitForEnd());
    const auto sut = ProcessEnd::collect(child.fd());
    ASSERT_TRUE(sut);
    EXPECT_TRUE(sut->isKnown());
    EXPECT_FALSE(sut->isOrderly());
    EXPECT_EQ(sut->cause(), "exit code 3");
    EXPECT_TRUE(sut->isExit());
}

TEST(ProcessEnd, OnlyAnExitWithZeroIsOrderly) {
    const Child child([] {});
    ASSERT_TRUE(child.waitForEnd());
    const auto sut = ProcessEnd::collect(child.fd());
    ASSERT_TRUE(sut);
    EXPECT_TRUE(sut->isOrderly());
    EXPECT_EQ(sut->cause(), "exit code 0");
}

TEST(ProcessEnd, SignalIsToldWithItsName) {
    const Child child([] { ::raise(SIGKILL); });
    ASSERT_TRUE(child.waitForEnd());
    const auto sut = ProcessEnd::collect(child.fd());
    ASSERT_TRUE(sut);
    EXPECT_FALSE(sut->isOrderly());
    EXPECT_EQ(sut->cause(), "signal 9 (Killed)");
    EXPECT_FALSE(sut->isExit());
}

TEST(ProcessEnd, ThatSomebodyElseHasCollectedIsUnknown) {
    const Child child([] { ::_exit(3); });
    ASSERT_EQ(::waitpid(child.pid(), nullptr, 0), child.pid());
    const auto sut = ProcessEnd::collect(child.fd());
    ASSERT_TRUE(sut);
    EXPECT_FALSE(sut->isKnown());
    EXPECT_TRUE(sut->isOrderly());
    EXPECT_EQ(sut->cause(), "unknown end");
    EXPECT_FALSE(sut->isExit());
}

TEST(ProcessEnd, WithIgnoredSignalsIsUnknownAndNotToldTooEarly) {
    ::signal(SIGCHLD, SIG_IGN);
    const Child child([] { ::pause(); });
    EXPECT_FALSE(ProcessEnd::collect(child.fd()));
    ::kill(child.pid(), SIGTERM);
    EXPECT_TRUE(child.waitForEnd());
    const auto sut = ProcessEnd::collect(child.fd());
    ::signal(SIGCHLD, SIG_DFL);
    ASSERT_TRUE(sut);
    EXPECT_EQ(sut->cause(), "unknown end");
}

}  // namespace
