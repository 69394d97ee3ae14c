#include "sal/Process.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <thread>
#include <utility>
#include <vector>

#include "LogCapture.h"
#include "StandardErrorCapture.h"
#include "TemporaryDirectory.h"
#include "sal/Thread.h"

namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::MatchesRegex;

/// Keeps what it is told and closes the descriptors at its end.
class Observer : public sal::Process::Observer {
public:
    Observer() { sal::Process::setObserver(this); }
    ~Observer() override {
        sal::Process::setObserver(nullptr);
        for (const auto& process : started)
            ::close(process.pidFd);
    }

    void processStarted(const sal::Process::Started& process) override {
        started.push_back(process);
        thread = std::this_thread::get_id();
    }
    void startFailed(const std::vector<std::string>& arguments, const std::string& reason) override {
        failed.push_back((arguments.empty() ? "" : arguments.front()) + ": " + reason);
        thread = std::this_thread::get_id();
    }

    /// Exit code of the last process; -1 when it was killed or does not end.
    int waitForExit() const {
        pollfd end{started.back().pidFd, POLLIN, 0};
        if (::poll(&end, 1, 20'000) != 1)
            return -1;
        siginfo_t info{};
        ::waitid(P_PIDFD, static_cast<id_t>(started.back().pidFd), &info, WEXITED);
        return info.si_code == CLD_EXITED ? info.si_status : -1;
    }

    std::vector<sal::Process::Started> started;
    std::vector<std::string> failed;
    std::thread::id thread;
};

class Process : public testing::Test {
protected:
    static bool start(const std::string& title, const std::string& executable,
                      const std::vector<std::string>& arguments) {
        sal::Path path(executable);
        return sal::Process::createProcess(title, path, arguments);
    }

    /// What a shell script prints.
    std::string outputOf(const std::string& script) {
        const Observer observer;
        EXPECT_TRUE(
            start("a title", "/bin/sh", {"-c", "(" + script + ") > " + directory.path("out") + " 2>&1"}));
        EXPECT_EQ(observer.waitForExit(), 0);
        return directory.read("out");
    }

    TemporaryDirectory directory;
};

TEST_F(Process, TitleIsTheFirstArgument) {
    EXPECT_THAT(outputOf("tr '\\0' '\\n' < /proc/$$/cmdline"), MatchesRegex("a title\n-c\n(.|\n)*"));
}

TEST_F(Process, ArgumentsAreHandedOnAsTheyAre) {
    const Observer observer;
    ASSERT_TRUE(start("sh", "/bin/sh",
                      {"-c", "printf '%s|' \"$@\" > " + directory.path("out"), "name", "a b", "", "*"}));
    EXPECT_EQ(observer.waitForExit(), 0);
    EXPECT_EQ(directory.read("out"), "a b||*|");
}

TEST_F(Process, EnvironmentIsPassedOn) {
    ::setenv("MFD_TEST_VALUE", "passed on", 1);
    EXPECT_EQ(outputOf("echo $MFD_TEST_VALUE"), "passed on\n");
    ::unsetenv("MFD_TEST_VALUE");
}

TEST_F(Process, EnvironmentWithoutAQueueMadeIsAsItIs) {
    EXPECT_EQ(outputOf("echo \"<$MFD_QUEUE_MAKER>\""), "<>\n");
    ::setenv("MFD_QUEUE_MAKER", "handed on", 1);
    EXPECT_EQ(outputOf("echo \"<$MFD_QUEUE_MAKER>\""), "<handed on>\n");
    ::unsetenv("MFD_QUEUE_MAKER");
}

TEST_F(Process, StandardInputIsEmpty) {
    EXPECT_EQ(outputOf("readlink /proc/$$/fd/0"), "/dev/null\n");
}

TEST_F(Process, ChildHasASessionOfItsOwn) {
    EXPECT_EQ(outputOf("[ $(cut -d' ' -f6 /proc/$$/stat) = $$ ] && echo own"), "own\n");
}

TEST_F(Process, ChildHasNoDescriptorButTheStandardOnes) {
    const int low = ::open("/dev/null", O_RDONLY);
    const int high = ::fcntl(low, F_DUPFD, 100);
    ASSERT_GE(high, 100);
    EXPECT_EQ(outputOf("for f in 3 4 5 6 7 8 9 " + std::to_string(low) + " " + std::to_string(high) +
                       "; do [ -e /proc/$$/fd/$f ] && readlink /proc/$$/fd/$f; done; echo end"),
              "end\n");
    ::close(low);
    ::close(high);
}

TEST_F(Process, ChildHasNoSignalIgnoredOrBlocked) {
    ::signal(SIGPIPE, SIG_IGN);
    ::signal(SIGHUP, SIG_IGN);
    sigset_t block;
    sigset_t before;
    sigemptyset(&block);
    sigaddset(&block, SIGTERM);
    sigaddset(&block, SIGUSR1);
    pthread_sigmask(SIG_BLOCK, &block, &before);
    const std::string state = outputOf("exec grep -E 'Sig(Ign|Blk)' /proc/self/status");
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    ::signal(SIGPIPE, SIG_DFL);
    ::signal(SIGHUP, SIG_DFL);
    // The C library keeps 32 and 33 for itself and ignores them in a child until they are needed.
    EXPECT_THAT(state, MatchesRegex("SigBlk:\t0000000000000000\nSigIgn:\t0000000[01][08]0000000\n"));
}

TEST_F(Process, CallerKeepsItsSignalMask) {
    const auto blocked = [] {
        sigset_t mask;
        pthread_sigmask(SIG_SETMASK, nullptr, &mask);
        std::vector<int> signals;
        for (int signal = 1; signal < NSIG; ++signal) {
            if (sigismember(&mask, signal) == 1)
                signals.push_back(signal);
        }
        return signals;
    };
    const std::vector<int> before = blocked();
    // Whoever watches it, and where nobody does.
    ASSERT_TRUE(start("true", "/bin/true", {}));
    EXPECT_EQ(blocked(), before);
    const Observer observer;
    ASSERT_TRUE(start("true", "/bin/true", {}));
    EXPECT_EQ(blocked(), before);
    EXPECT_EQ(observer.waitForExit(), 0);
}

TEST_F(Process, ChildSurvivesTheThreadThatMadeIt) {
    const Observer observer;
    std::thread([&] { start("sh", "/bin/sh", {"-c", "sleep 0.3; exit 7"}); }).join();
    EXPECT_EQ(observer.waitForExit(), 7);
}

TEST_F(Process, MissingExecutableIsFalseWithTheReason) {
    LogCapture log;
    EXPECT_FALSE(start("AXIS1 MFD Console", "/none/mfddllwrap", {}));
    EXPECT_THAT(log.finish(),
                HasSubstr("error    PROCESS: cannot start \"AXIS1 MFD Console\" (/none/mfddllwrap): No "
                          "such file or directory\n"));
}

TEST_F(Process, FileThatIsNoProgramIsFalse) {
    directory.write("text", "no program");
    const LogCapture log;
    EXPECT_FALSE(start("title", directory.path("text"), {}));
    std::filesystem::permissions(directory.path("text"), std::filesystem::perms::all);
    EXPECT_FALSE(start("title", directory.path("text"), {}));
}

TEST_F(Process, FailedStartIsToldToTheObserverAsSuch) {
    const LogCapture log;
    const Observer observer;
    start("title", "/none", {"module"});
    EXPECT_TRUE(observer.started.empty());
    EXPECT_EQ(observer.failed, std::vector<std::string>{"module: No such file or directory"});
    EXPECT_EQ(observer.thread, std::this_thread::get_id());
}

TEST_F(Process, ObserverIsToldOnTheCallingThreadBeforeTheReturn) {
    const Observer observer;
    ASSERT_TRUE(start("title", "/bin/true", {"module.so", "AXIS1"}));
    ASSERT_EQ(observer.started.size(), 1u);
    EXPECT_EQ(observer.thread, std::this_thread::get_id());
    EXPECT_EQ(observer.started[0].title, "title");
    EXPECT_THAT(observer.started[0].arguments, ElementsAre("module.so", "AXIS1"));
    EXPECT_GT(observer.started[0].pid, 0);
    observer.waitForExit();
}

TEST_F(Process, DescriptorTellsTheEndAndItsCause) {
    const Observer observer;
    ASSERT_TRUE(start("title", "/bin/sh", {"-c", "exit 3"}));
    EXPECT_EQ(observer.waitForExit(), 3);
}

/// Reads what its processes write to standard error.
class ListeningObserver : public Observer {
public:
    ~ListeningObserver() override {
        for (const auto& process : started)
            ::close(process.errorFd);
    }
    bool capturesErrors() override { return true; }
    int formerErrors() override { return former; }

    /// Once the last process has ended.
    std::string errors() {
        std::string text;
        char buffer[256];
        for (ssize_t count = 0; (count = ::read(started.back().errorFd, buffer, sizeof buffer)) > 0;)
            text.append(buffer, static_cast<std::size_t>(count));
        return text;
    }

    int former = -1;
};

/// Wants a variable for one of its processes.
class WantingObserver : public ListeningObserver {
public:
    std::vector<std::string> variables(const std::vector<std::string>& arguments) override {
        return arguments.size() == 3 ? std::vector<std::string>{"MFD_TEST_WANTED=" + arguments[2]}
                                     : std::vector<std::string>();
    }
};

TEST_F(Process, EnvironmentHasWhatTheObserverWantsForThatProcess) {
    WantingObserver observer;
    const std::string script = "echo \"[$MFD_TEST_WANTED]\" >&2";
    ASSERT_TRUE(start("title", "/bin/sh", {"-c", script, "this"}));
    EXPECT_EQ(observer.waitForExit(), 0);
    EXPECT_EQ(observer.errors(), "[this]\n");
    ASSERT_TRUE(start("title", "/bin/sh", {"-c", script}));
    EXPECT_EQ(observer.waitForExit(), 0);
    EXPECT_EQ(observer.errors(), "[]\n");
}

TEST_F(Process, StandardErrorIsThisProcesssUnlessItIsCaptured) {
    StandardErrorCapture capture;
    {
        const Observer observer;
        ASSERT_TRUE(start("title", "/bin/sh", {"-c", "echo error >&2"}));
        EXPECT_EQ(observer.started[0].errorFd, -1);
        observer.waitForExit();
    }
    EXPECT_EQ(capture.finish(), "error\n");
}

TEST_F(Process, CapturedStandardErrorIsReadWithoutWaiting) {
    ListeningObserver observer;
    ASSERT_TRUE(start("title", "/bin/sh", {"-c", "echo error >&2; exec sleep 0.5"}));
    const int descriptor = observer.started[0].errorFd;
    EXPECT_NE(::fcntl(descriptor, F_GETFL) & O_NONBLOCK, 0);
    EXPECT_NE(::fcntl(descriptor, F_GETFD) & FD_CLOEXEC, 0);
    pollfd written{descriptor, POLLIN, 0};
    ASSERT_EQ(::poll(&written, 1, 20'000), 1);
    EXPECT_EQ(observer.errors(), "error\n");
    EXPECT_EQ(errno, EAGAIN);
    observer.waitForExit();
    EXPECT_EQ(::read(descriptor, nullptr, 0), 0);
}

TEST_F(Process, CapturedChildKnowsItsPipeAndHasTheFormerStandardErrorBesideIt) {
    StandardErrorCapture capture;
    {
        ListeningObserver observer;
        ASSERT_TRUE(start("title", "/bin/sh",
                          {"-c",
                           "[ \"$(stat -L -c %d:%i /proc/$$/fd/2)\" = \"$MFD_ERROR_PIPE\" ] && [ ! -e "
                           "/proc/$$/fd/4 ] && echo former >&3"}));
        EXPECT_EQ(observer.waitForExit(), 0);
        EXPECT_EQ(observer.errors(), "");
    }
    EXPECT_EQ(capture.finish(), "former\n");
}

TEST_F(Process, CapturedChildHasTheFormerStandardErrorThatTheObserverNames) {
    ListeningObserver observer;
    observer.former = ::open(directory.path("former").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    ASSERT_TRUE(start("title", "/bin/sh", {"-c", "echo error >&2; echo former >&3"}));
    EXPECT_EQ(observer.waitForExit(), 0);
    EXPECT_EQ(::close(observer.former), 0);
    EXPECT_EQ(observer.errors(), "error\n");
    EXPECT_EQ(directory.read("former"), "former\n");
}

TEST_F(Process, DescriptorDoesNotLeakIntoTheNextChild) {
    const Observer observer;
    ASSERT_TRUE(start("title", "/bin/sleep", {"0.2"}));
    EXPECT_NE(::fcntl(observer.started[0].pidFd, F_GETFD) & FD_CLOEXEC, 0);
    observer.waitForExit();
}

TEST_F(Process, WithoutObserverChildrenAreCollected) {
    ASSERT_TRUE(start("title", "/bin/sh", {"-c", "echo $$ > " + directory.path("pid")}));
    for (int i = 0; i < 200 && directory.read("pid").empty(); ++i)
        std::this_thread::sleep_for(20ms);
    const int pid = std::atoi(directory.read("pid").c_str());
    ASSERT_GT(pid, 0);
    for (int i = 0; i < 500 && ::kill(pid, 0) == 0; ++i)
        std::this_thread::sleep_for(20ms);
    EXPECT_EQ(::kill(pid, 0), -1);
    EXPECT_EQ(errno, ESRCH);
}

TEST_F(Process, ChildThatIsCollectedByOthersIsToldOfOrFails) {
    LogCapture log;
    ::signal(SIGCHLD, SIG_IGN);
    int failed = 0;
    {
        const Observer observer;
        for (int i = 0; i < 100; ++i)
            failed += start("title", "/bin/true", {}) ? 0 : 1;
        EXPECT_EQ(observer.started.size() + static_cast<std::size_t>(failed), 100u);
    }
    ::signal(SIGCHLD, SIG_DFL);
    const std::string text = log.finish();
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), failed);
    if (failed > 0) {
        EXPECT_THAT(text,
                    HasSubstr("\"title\" (/bin/true) ended as soon as it was started; how is not known"));
    }
}

/// Notes what it is asked to wait for, and does not wait.
class HastyObserver : public Observer {
public:
    void awaitStart(int pid, unsigned int seconds) override {
        awaited.emplace_back(pid, seconds);
        waiter = std::this_thread::get_id();
    }

    std::vector<std::pair<int, unsigned int>> awaited;
    std::thread::id waiter;
};

TEST_F(Process, FirstSleepAfterAStartIsTheObservers) {
    HastyObserver observer;
    ASSERT_TRUE(start("title", "/bin/true", {}));
    sal::Thread::sleep(1000);
    EXPECT_THAT(observer.awaited, ElementsAre(std::pair(observer.started[0].pid, 1000U)));
    EXPECT_EQ(observer.waiter, std::this_thread::get_id());
    observer.waitForExit();
}

TEST_F(Process, SleepIsTheObserversOnceForEachStart) {
    HastyObserver observer;
    ASSERT_TRUE(start("title", "/bin/true", {}));
    sal::Thread::sleep(1000);
    const auto begin = std::chrono::steady_clock::now();
    sal::Thread::sleep(1);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 1s);
    EXPECT_EQ(observer.awaited.size(), 1U);
    ASSERT_TRUE(start("title", "/bin/true", {}));
    ASSERT_TRUE(start("title", "/bin/true", {}));
    sal::Thread::sleep(1000);
    EXPECT_EQ(observer.awaited.back().first, observer.started.back().pid);
    EXPECT_EQ(observer.awaited.size(), 2U);
}

TEST_F(Process, SleepOfMillisecondsOrOfAnotherThreadIsItsOwn) {
    HastyObserver observer;
    ASSERT_TRUE(start("title", "/bin/true", {}));
    const auto begin = std::chrono::steady_clock::now();
    sal::Thread::mssleep(50);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 50ms);
    std::thread([] { sal::Thread::sleep(0); }).join();
    EXPECT_THAT(observer.awaited, testing::IsEmpty());
    sal::Thread::sleep(1000);
    EXPECT_EQ(observer.awaited.size(), 1U);
}

TEST_F(Process, FailedStartLeavesTheNextSleepAsItIs) {
    const LogCapture log;
    HastyObserver observer;
    EXPECT_FALSE(start("title", "/none", {}));
    const auto begin = std::chrono::steady_clock::now();
    sal::Thread::sleep(1);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 1s);
    EXPECT_THAT(observer.awaited, testing::IsEmpty());
}

TEST_F(Process, ObserverSleepsAllTheTimeUnlessItKnowsBetter) {
    const Observer observer;
    ASSERT_TRUE(start("title", "/bin/true", {}));
    const auto begin = std::chrono::steady_clock::now();
    sal::Thread::sleep(1);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 1s);
    observer.waitForExit();
}

TEST_F(Process, ManyThreadsStartProcessesAtOnce) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&, i] {
            for (int j = 0; j < 5; ++j)
                EXPECT_TRUE(
                    start("title", "/bin/sh",
                          {"-c", "echo x > " + directory.path(std::to_string(i) + "-" + std::to_string(j))}));
        });
    for (auto& thread : threads)
        thread.join();
    const auto written = [&] {
        return std::distance(std::filesystem::directory_iterator(directory.path()), {});
    };
    for (int i = 0; i < 500 && written() < 20; ++i)
        std::this_thread::sleep_for(20ms);
    EXPECT_EQ(written(), 20);
}

}  // namespace
