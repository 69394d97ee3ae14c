#include "ProcessTable.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <future>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "HangGuard.h"
#include "LiveProcess.h"
#include "LogCapture.h"
#include "TemporaryDirectory.h"

namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

/// A process that debugs another one and does not take its end, until it is gone.
class Debugger {
public:
    explicit Debugger(pid_t pid) {
        std::array<int, 2> ready{};
        std::array<int, 2> held{};
        if (::pipe2(ready.data(), O_CLOEXEC) != 0 || ::pipe2(held.data(), O_CLOEXEC) != 0)
            return;
        m_pid = ::fork();
        if (m_pid == 0) {
            ::close(held[1]);
            const char attached = ::ptrace(PTRACE_SEIZE, pid, nullptr, nullptr) == 0 ? 'y' : 'n';
            char ignored = 0;
            const bool isTold = ::write(ready[1], &attached, 1) == 1 && ::read(held[0], &ignored, 1) == 0;
            ::_exit(isTold ? 0 : 1);
        }
        m_hold = held[1];
        ::close(held[0]);
        ::close(ready[1]);
        char attached = 'n';
        m_isAttached = ::read(ready[0], &attached, 1) == 1 && attached == 'y';
        ::close(ready[0]);
    }
    ~Debugger() { letGo(); }
    Debugger(const Debugger&) = delete;
    Debugger& operator=(const Debugger&) = delete;

    bool isAttached() const { return m_isAttached; }
    void letGo() {
        if (m_hold < 0)
            return;
        ::close(m_hold);
        m_hold = -1;
        ::waitpid(m_pid, nullptr, 0);
    }

private:
    pid_t m_pid = -1;
    int m_hold = -1;
    bool m_isAttached = false;
};

/// Shell scripts in place of driver processes.
class ProcessTableTest : public testing::Test, private sal::Process::Observer {
protected:
    ProcessTableTest() { sal::Process::setObserver(this); }
    ~ProcessTableTest() override {
        sal::Process::setObserver(nullptr);
        for (const pid_t pid : m_pids)
            ::kill(pid, SIGKILL);
        eventually([this] {
            m_sut.takeEnded();
            return m_sut.lock().empty();
        });
    }

    pid_t start(const std::string& id, const std::string& script = "exec sleep 1000",
                bool isRestart = false) {
        sal::Path shell("/bin/sh");
        m_nextID = id;
        m_isRestart = isRestart;
        EXPECT_TRUE(sal::Process::createProcess("sh", shell, {"-c", script}));
        return m_last.pid;
    }
    /// Kills the process; it has ended, and nobody has collected it, when this returns.
    void kill(pid_t pid) {
        ASSERT_EQ(0, ::kill(pid, SIGKILL));
        m_pids.erase(pid);
        ASSERT_TRUE(eventually([pid] { return !isAlive(pid); }));
    }
    /// Starts a process that has a child, whose number it returns with its own.
    std::pair<pid_t, pid_t> startWithChild(const std::string& id) {
        const pid_t pid =
            start(id, "cd " + m_directory.path() + "; sleep 1000 & echo $! > draft; mv draft child; wait");
        EXPECT_TRUE(eventually([this] { return !m_directory.read("child").empty(); }));
        return {pid, std::atoi(m_directory.read("child").c_str())};
    }
    bool isReadable() const {
        pollfd end{m_sut.fd(), POLLIN, 0};
        return ::poll(&end, 1, 0) > 0;
    }
    std::vector<std::string> takeEnded() {
        std::vector<std::string> texts;
        for (const auto& [process, end] : m_sut.takeEnded())
            texts.push_back(process.driverID + ": " + end.cause());
        return texts;
    }
    /// The processes that are started meanwhile find no room in the epoll.
    class WithoutRoom {
    public:
        explicit WithoutRoom(const ProcessTable& table) : m_fd(table.fd()), m_saved(::dup(m_fd)) {
            const int other = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
            ::dup3(other, m_fd, O_CLOEXEC);
            ::close(other);
        }
        ~WithoutRoom() {
            ::dup3(m_saved, m_fd, O_CLOEXEC);
            ::close(m_saved);
        }
        WithoutRoom(const WithoutRoom&) = delete;
        WithoutRoom& operator=(const WithoutRoom&) = delete;

    private:
        const int m_fd;
        const int m_saved;
    };

    const TemporaryDirectory m_directory;
    LogCapture m_log;
    ProcessTable m_sut;
    sal::Process::Started m_last;
    std::set<pid_t> m_pids;

private:
    void processStarted(const sal::Process::Started& process) override {
        m_last = process;
        m_pids.insert(process.pid);
        m_sut.add(m_nextID, process, m_isRestart);
    }

    std::string m_nextID;
    bool m_isRestart = false;
};

using Texts = std::vector<std::string>;

}  // namespace

TEST_F(ProcessTableTest, KeepsWhatRuns) {
    const pid_t pid = start("A", "exec sleep 1000", true);
    EXPECT_THAT(takeEnded(), IsEmpty());
    EXPECT_FALSE(isReadable());
    const auto processes = m_sut.lock();
    ASSERT_FALSE(processes.empty());
    const auto& process = *processes.begin();
    EXPECT_EQ("A", process.driverID);
    EXPECT_EQ(pid, process.pid);
    EXPECT_TRUE(process.isRestart);
    EXPECT_TRUE(process.isWatched);
    EXPECT_FALSE(process.replaced);
}

TEST_F(ProcessTableTest, EndIsFoundByOneLookAndOnce) {
    start("A");
    kill(start("B"));
    EXPECT_TRUE(isReadable());
    EXPECT_EQ(Texts{"B: signal 9 (Killed)"}, takeEnded());
    EXPECT_FALSE(isReadable());
    EXPECT_THAT(takeEnded(), IsEmpty());
    const auto processes = m_sut.lock();
    EXPECT_EQ("A", processes.begin()->driverID);
    EXPECT_EQ(1, std::distance(processes.begin(), processes.end()));
}

TEST_F(ProcessTableTest, EndIsToldWithItsExitCode) {
    const pid_t pid = start("A", "exit 3");
    ASSERT_TRUE(eventually([pid] { return !isAlive(pid); }));
    EXPECT_EQ(Texts{"A: exit code 3"}, takeEnded());
    m_pids.clear();
}

TEST_F(ProcessTableTest, OneLookFindsAllThatHaveEndedHoweverMany) {
    std::vector<pid_t> pids;
    for (int i = 0; i < 150; ++i)
        pids.push_back(start("D" + std::to_string(i)));
    for (const pid_t pid : pids)
        kill(pid);
    EXPECT_THAT(takeEnded(), SizeIs(150));
    EXPECT_FALSE(isReadable());
}

TEST_F(ProcessTableTest, EachEndIsFoundOnceWhicheverThreadLooks) {
    constexpr int processes = 40;
    std::vector<pid_t> pids;
    for (int i = 0; i < processes; ++i)
        pids.push_back(start("D" + std::to_string(i)));
    std::mutex mutex;
    std::multiset<std::string> found;
    std::atomic<bool> isOver = false;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            while (!isOver) {
                for (const std::string& text : takeEnded()) {
                    const std::lock_guard lock(mutex);
                    found.insert(text);
                }
            }
        });
    }
    for (const pid_t pid : pids)
        ::kill(pid, SIGKILL);
    eventually([&] { return m_sut.lock().empty(); });
    isOver = true;
    for (std::thread& thread : threads)
        thread.join();
    m_pids.clear();
    EXPECT_EQ(static_cast<std::size_t>(processes), found.size());
    EXPECT_EQ(static_cast<std::size_t>(processes), std::set<std::string>(found.begin(), found.end()).size());
}

TEST_F(ProcessTableTest, LookAfterAnEndSeesItOnWhicheverThread) {
    kill(start("A"));
    EXPECT_EQ(Texts{"A: signal 9 (Killed)"},
              std::async(std::launch::async, [this] { return takeEnded(); }).get());
}

TEST_F(ProcessTableTest, DescriptorThatSomebodyKeepsOpenIsToldNoMore) {
    const pid_t pid = start("A");
    const int kept = ::dup(m_last.pidFd);
    kill(pid);
    EXPECT_EQ(Texts{"A: signal 9 (Killed)"}, takeEnded());
    EXPECT_FALSE(isReadable());
    EXPECT_THAT(takeEnded(), IsEmpty());
    ::close(kept);
}

TEST_F(ProcessTableTest, EndThatSomebodyElseHasCollectedIsFoundAndUnknown) {
    const pid_t pid = start("A");
    kill(pid);
    ASSERT_EQ(pid, ::waitpid(pid, nullptr, 0));
    EXPECT_EQ(Texts{"A: unknown end"}, takeEnded());
    EXPECT_TRUE(m_sut.lock().empty());
}

TEST_F(ProcessTableTest, NewerProcessReplacesThoseOfItsDriverOnce) {
    start("A");
    start("B");
    start("A");
    start("A");
    const auto processes = m_sut.lock();
    std::vector<const ProcessTable::Process*> all;
    for (const auto& process : processes)
        all.push_back(&process);
    ASSERT_EQ(4u, all.size());
    EXPECT_EQ(all[2]->started, all[0]->replaced);
    EXPECT_FALSE(all[1]->replaced);
    EXPECT_EQ(all[3]->started, all[2]->replaced);
    EXPECT_FALSE(all[3]->replaced);
}

TEST_F(ProcessTableTest, ReplacedProcessIsFoundAsWell) {
    const pid_t former = start("A");
    start("A");
    kill(former);
    const auto ended = m_sut.takeEnded();
    ASSERT_EQ(1u, ended.size());
    EXPECT_EQ(former, ended[0].process.pid);
    EXPECT_TRUE(ended[0].process.replaced);
}

TEST_F(ProcessTableTest, WhatAProcessHasLeftHasEndedWhenItIsCollected) {
    const auto [pid, child] = startWithChild("A");
    ASSERT_GT(child, 0);
    kill(pid);
    EXPECT_TRUE(isAlive(child));
    EXPECT_EQ(Texts{"A: signal 9 (Killed)"}, takeEnded());
    EXPECT_TRUE(eventually([child = child] { return !isAlive(child); }));
    EXPECT_THAT(m_log.text(), HasSubstr("A: process " + std::to_string(pid) +
                                        " left 1 process behind, ended with it: " + std::to_string(child)));
}

TEST_F(ProcessTableTest, WhatAProcessHasStartedIsEndedOnRequest) {
    const auto [pid, child] = startWithChild("A");
    ASSERT_GT(child, 0);
    m_sut.endFamily(pid);
    EXPECT_TRUE(eventually([child = child] { return !isAlive(child); }));
}

TEST_F(ProcessTableTest, ProcessThatADebuggerHoldsIsLeftForLater) {
    const pid_t pid = start("A");
    Debugger debugger(pid);
    if (!debugger.isAttached())
        GTEST_SKIP() << "no process may be debugged here";
    EXPECT_FALSE(m_sut.isOneHeld());
    kill(pid);
    kill(start("B"));
    EXPECT_EQ(Texts{"B: signal 9 (Killed)"}, takeEnded());
    EXPECT_TRUE(m_sut.isOneHeld());
    EXPECT_TRUE(isReadable());
    EXPECT_THAT(takeEnded(), IsEmpty());
    EXPECT_TRUE(m_sut.isOneHeld());
    EXPECT_FALSE(m_sut.lock().empty());
    debugger.letGo();
    EXPECT_EQ(Texts{"A: signal 9 (Killed)"}, takeEnded());
    EXPECT_FALSE(m_sut.isOneHeld());
    EXPECT_FALSE(isReadable());
}

TEST_F(ProcessTableTest, WhatAHeldProcessHasLeftEndsWithoutIt) {
    const auto [pid, child] = startWithChild("A");
    Debugger debugger(pid);
    if (!debugger.isAttached())
        GTEST_SKIP() << "no process may be debugged here";
    kill(pid);
    EXPECT_THAT(takeEnded(), IsEmpty());
    EXPECT_TRUE(eventually([child = child] { return !isAlive(child); }));
}

TEST_F(ProcessTableTest, ProcessForWhichTheEpollHasNoRoomIsFoundAsWell) {
    pid_t pid = 0;
    {
        const WithoutRoom withoutRoom(m_sut);
        pid = start("A");
    }
    const pid_t watched = start("B");
    {
        const auto processes = m_sut.lock();
        EXPECT_FALSE(processes.begin()->isWatched);
        EXPECT_TRUE(std::next(processes.begin())->isWatched);
    }
    EXPECT_THAT(takeEnded(), IsEmpty());
    kill(pid);
    EXPECT_FALSE(isReadable());
    EXPECT_EQ(Texts{"A: signal 9 (Killed)"}, takeEnded());
    EXPECT_THAT(takeEnded(), IsEmpty());
    kill(watched);
    EXPECT_EQ(Texts{"B: signal 9 (Killed)"}, takeEnded());
}

TEST_F(ProcessTableTest, OneLookFindsThoseWithAndWithoutRoom) {
    std::vector<pid_t> pids{start("A")};
    {
        const WithoutRoom withoutRoom(m_sut);
        pids.push_back(start("B"));
        pids.push_back(start("C"));
    }
    for (const pid_t pid : pids)
        kill(pid);
    EXPECT_THAT(takeEnded(), testing::UnorderedElementsAre("A: signal 9 (Killed)", "B: signal 9 (Killed)",
                                                           "C: signal 9 (Killed)"));
}

TEST_F(ProcessTableTest, WaitsUntilTheLastOneIsTakenOut) {
    const pid_t first = start("A");
    const pid_t second = start("B");
    auto waiting = std::async(std::launch::async, [this] { m_sut.waitUntilEmpty(); });
    kill(first);
    EXPECT_THAT(takeEnded(), SizeIs(1));
    kill(second);
    // Its end alone does not do.
    EXPECT_EQ(std::future_status::timeout, waiting.wait_for(std::chrono::milliseconds(50)));
    EXPECT_THAT(takeEnded(), SizeIs(1));
    EXPECT_EQ(std::future_status::ready, waiting.wait_for(c_hangGuard));
}

TEST_F(ProcessTableTest, WaitsForNothingWhereThereIsNone) {
    m_sut.waitUntilEmpty();
    EXPECT_TRUE(m_sut.lock().empty());
}

TEST_F(ProcessTableTest, SignalReachesTheProcessAndNobodyOnceItIsGone) {
    const pid_t pid = start("A");
    m_sut.lock().begin()->signal(SIGTERM);
    ASSERT_TRUE(eventually([pid] { return !isAlive(pid); }));
    const auto ended = m_sut.takeEnded();
    ASSERT_EQ(1u, ended.size());
    EXPECT_EQ("signal 15 (Terminated)", ended[0].end.cause());
    ended[0].process.signal(SIGKILL);
    m_pids.clear();
}
