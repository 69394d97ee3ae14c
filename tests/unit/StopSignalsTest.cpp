#include "StopSignals.h"

#include <gtest/gtest.h>
#include <pty.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <functional>
#include <stdexcept>
#include <string>

#include "NoDescriptors.h"

namespace {

/// The exit code of a process of its own, since signal settings are the whole process's.
int inChild(const std::function<int()>& body) {
    const pid_t child = ::fork();
    if (child == 0)
        ::_exit(body());
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace

TEST(StopSignals, GivesEachSignal) {
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
        EXPECT_EQ(signal, inChild([signal] {
                      // Whatever the test was started with.
                      ::signal(signal, SIG_DFL);
                      StopSignals sut;
                      ::kill(::getpid(), signal);
                      return sut.wait();
                  }));
}

TEST(StopSignals, HangUpOfAProcessIsNoTerminalThatIsGone) {
    EXPECT_EQ(0, inChild([] {
                  ::signal(SIGHUP, SIG_DFL);
                  StopSignals sut;
                  ::kill(::getpid(), SIGHUP);
                  return sut.wait() == SIGHUP && !sut.isTerminalGone() ? 0 : 1;
              }));
}

TEST(StopSignals, HangUpOfTheKernelSaysThatTheTerminalIsGone) {
    EXPECT_EQ(0, inChild([] {
                  int terminal = -1;
                  const pid_t child = ::forkpty(&terminal, nullptr, nullptr, nullptr);
                  if (child == 0) {
                      ::signal(SIGHUP, SIG_DFL);
                      StopSignals sut;
                      static_cast<void>(!::write(STDOUT_FILENO, "x", 1));
                      const bool isGone = sut.wait() == SIGHUP && sut.isTerminalGone();
                      ::kill(::getpid(), SIGTERM);
                      ::_exit(isGone && sut.wait() == SIGTERM && !sut.isTerminalGone() ? 0 : 1);
                  }
                  char ready = 0;
                  static_cast<void>(!::read(terminal, &ready, 1));
                  ::close(terminal);
                  int status = 0;
                  ::waitpid(child, &status, 0);
                  return WIFEXITED(status) ? WEXITSTATUS(status) : 2;
              }));
}

TEST(StopSignals, LeavesTheHangUpIgnoredThatWasIgnored) {
    EXPECT_EQ(0, inChild([] {
                  ::signal(SIGHUP, SIG_IGN);
                  StopSignals sut;
                  ::kill(::getpid(), SIGHUP);
                  sut.interrupt();
                  return sut.wait();
              }));
}

TEST(StopSignals, LeavesTheTerminalsSizeToTheConsole) {
    EXPECT_EQ(0, inChild([] {
                  StopSignals sut;
                  ::kill(::getpid(), SIGWINCH);
                  sut.interrupt();
                  const bool isNoStop = sut.wait() == 0;
                  sigset_t pending;
                  ::sigpending(&pending);
                  return isNoStop && sigismember(&pending, SIGWINCH) == 1 ? 0 : 1;
              }));
}

TEST(StopSignals, IgnoresBrokenPipes) {
    EXPECT_EQ(0, inChild([] {
                  StopSignals sut;
                  ::kill(::getpid(), SIGPIPE);
                  return 0;
              }));
}

TEST(StopSignals, FileOverItsLimitIsAnErrorOfTheWrite) {
    EXPECT_EQ(EFBIG, inChild([] {
                  StopSignals sut;
                  const rlimit none{0, RLIM_INFINITY};
                  ::setrlimit(RLIMIT_FSIZE, &none);
                  const int file = ::memfd_create("file", MFD_CLOEXEC);
                  return ::write(file, "x", 1) == 1 ? 0 : errno;
              }));
}

TEST(StopSignals, InterruptEndsTheWait) {
    EXPECT_EQ(0, inChild([] {
                  StopSignals sut;
                  sut.interrupt();
                  return sut.wait();
              }));
}

TEST(StopSignals, SaysThatNoDescriptorIsLeft) {
    EXPECT_EQ(0, inChild([] {
                  const NoDescriptors none;
                  try {
                      StopSignals sut;
                      return 1;
                  } catch (const std::runtime_error& error) {
                      return error.what() ==
                                     std::string("no descriptor can be had for signals: Too many open files")
                                 ? 0
                                 : 2;
                  }
              }));
}
