#include "ProcessSupervisor.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/ptrace.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <set>
#include <stdexcept>
#include <thread>

#include "FIDParameterList.h"
#include "HangGuard.h"
#include "StandardErrorCapture.h"
#include "TemporaryDirectory.h"
#include "sal/LogManager.h"

namespace {

using namespace std::chrono_literals;
using testing::ContainsRegex;
using testing::MatchesRegex;
using testing::StartsWith;

/// Times that come in a test, whatever a busy machine does meanwhile.
const ProcessSupervisor::Settings c_shortTimes{.stopTimeout = 300ms,
                                               .shutdownLimit = 1500ms,
                                               .killDelay = 200ms,
                                               .hangTimeout = 400ms,
                                               .stacksLimit = 500ms,
                                               .commandPatience = 300ms};
const RestartPlan::Settings c_restarts{.firstDelay = 100ms, .limit = 2, .random = [] { return 0.5; }};

/// A supervisor over real shell processes, with a command thread and queues that the test makes up.
class ProcessSupervisorTest : public testing::Test {
protected:
    explicit ProcessSupervisorTest(const ProcessSupervisor::Settings& settings = c_shortTimes)
        : m_sut(m_drivers, settings, environment()) {
        sal::Process::setObserver(&m_renaming);
        m_sut.start();
    }
    ~ProcessSupervisorTest() override {
        for (const auto& driver : m_drivers.drivers()) {
            if (driver.state != EDriverState::Ended && driver.pid > 0)
                ::kill(driver.pid, SIGKILL);
        }
        m_sut.endProcesses();
        sal::Process::setObserver(nullptr);
    }

    void start(const std::string& id, const std::string& script) {
        sal::Path shell("/bin/sh");
        m_nextID = id;
        ASSERT_TRUE(sal::Process::createProcess("sh", shell, {"-c", script}));
    }
    void start(const std::string& id) { start(id, "exec sleep 3600"); }
    /// A process that ignores SIGTERM, and does so when this returns.
    void startDeaf(const std::string& id) {
        start(id, "trap '' TERM; while :; do sleep 0.05; done");
        ASSERT_TRUE(eventually([pid = driver(id).pid] { return ignoresTermination(pid); }));
    }
    /// A process that ends with this exit code when it is let go.
    void startHeld(const std::string& id, int exitCode) {
        start(id, "until [ -e " + m_directory.path("go") + " ]; do sleep 0.01; done; exit " +
                      std::to_string(exitCode));
    }
    void letGo() { m_directory.write("go", ""); }
    static bool ignoresTermination(int pid) {
        std::ifstream status("/proc/" + std::to_string(pid) + "/status");
        for (std::string word; status >> word;) {
            unsigned long ignored = 0;
            if (word == "SigIgn:")
                return status >> std::hex >> ignored && (ignored >> (SIGTERM - 1) & 1) != 0;
        }
        return false;
    }
    /// A process that sleeps, and does so when this returns: what it needs to come up is used.
    void startAsleep(const std::string& id) {
        start(id);
        ASSERT_TRUE(eventually([pid = driver(id).pid] {
            std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
            std::string text;
            return std::getline(stat, text) && text.find("(sleep) S ") != std::string::npos;
        }));
    }
    /// What the command thread does; with a driver it loads that one anew.
    static sal::MessageQueue::Status full(const std::string& name, std::uint32_t received) {
        sal::MessageQueue::Status queue;
        queue.name = name;
        queue.capacity = queue.depth = 8;
        queue.received = received;
        return queue;
    }
    void setWaits(const std::vector<CommandWait>& waits) {
        {
            const std::lock_guard lock(m_mutex);
            m_waits = waits;
        }
        m_sut.wake();
    }
    void setActivity(const std::string& what, const std::string& driverID) {
        if (!driverID.empty())
            m_drivers.beginStart(driverID);
        {
            const std::lock_guard lock(m_mutex);
            m_activity = {true, what, driverID, std::chrono::steady_clock::now(), ::gettid()};
        }
        m_sut.wake();
    }
    void setWaitingQueue(const std::string& name, unsigned int forMs) {
        const std::lock_guard lock(m_mutex);
        sal::MessageQueue::Status status;
        status.name = name;
        status.waitingForMs = forMs;
        m_queues = {status};
    }
    /// Five messages stand in the driver's input queue, and it has taken that many.
    void setStanding(const std::string& id, std::uint32_t received = 7) {
        const std::lock_guard lock(m_mutex);
        sal::MessageQueue::Status status;
        status.name = id + "_INQ";
        status.capacity = 256;
        status.depth = 5;
        status.received = received;
        m_queues = {status};
    }
    /// Somebody waits for a name that cannot be had.
    void setRefused(const std::string& name, unsigned int forMs = 1000) {
        const std::lock_guard lock(m_mutex);
        m_refused = {{name, "somebody has it", forMs}};
    }
    bool hasPassed(const std::string& name) {
        return waitUntil([&] {
            const std::lock_guard lock(m_mutex);
            return std::find(m_passed.begin(), m_passed.end(), name) != m_passed.end();
        });
    }
    /// A queue that the driver's process has opened.
    static sal::MessageQueue::Status openedQueue(const std::string& name) {
        sal::MessageQueue::Status status;
        status.name = name;
        status.capacity = 256;
        status.isAttached = true;
        status.wasAttached = true;
        return status;
    }
    void setQueues(const std::vector<sal::MessageQueue::Status>& queues) {
        const std::lock_guard lock(m_mutex);
        m_queues = queues;
    }
    void onLook(std::function<void()> action) {
        const std::lock_guard lock(m_mutex);
        m_onLook = std::move(action);
    }
    void onAsked(std::function<void()> action) {
        const std::lock_guard lock(m_mutex);
        m_onAsked = std::move(action);
    }
    /// The driver's process claims its queue.
    void attach(const std::string& id) {
        const std::lock_guard lock(m_mutex);
        m_attached.insert(id + "_INQ");
    }
    /// A supervisor whose starts wait until processes have attached; waitForReaders answers as it is told.
    std::unique_ptr<ProcessSupervisor> attachedSupervisor(bool isDone) {
        auto pSut = std::make_unique<ProcessSupervisor>(
            m_drivers, ProcessSupervisor::Settings{.waitsUntilAttached = true},
            ProcessSupervisor::Environment{
                .activity = [] { return CommandActivity(); },
                .queues = [] { return std::vector<sal::MessageQueue::Status>(); },
                .receiverGone = [](const std::string&, auto) {},
                .exitNow = [](int) {},
                .restart = {},
                .hasReader =
                    [this](const std::string& name) {
                        const std::lock_guard lock(m_mutex);
                        return m_attached.contains(name);
                    },
                .waitForReaders =
                    [this, isDone](const std::vector<std::string>& names, std::size_t most, int timeout) {
                        m_awaited = names;
                        m_most = most;
                        m_timeout = timeout;
                        return isDone;
                    }});
        pSut->start();
        return pSut;
    }
    /// Starts a process that lasts, for that supervisor; its process ID.
    int startFor(ProcessSupervisor& supervisor, const std::string& id) {
        sal::Process::setObserver(&supervisor);
        sal::Path sleep("/bin/sleep");
        // The ID stands where a driver's would.
        EXPECT_TRUE(sal::Process::createProcess("sleep", sleep, {"60", id}));
        sal::Process::setObserver(&m_renaming);
        return driver(id).pid;
    }
    std::vector<std::string> restarts() {
        const std::lock_guard lock(m_mutex);
        return m_restarts;
    }
    DriverTable::Driver driver(const std::string& id) {
        for (const auto& driver : m_drivers.drivers()) {
            if (driver.id == id)
                return driver;
        }
        return {};
    }
    static bool waitUntil(const std::function<bool()>& condition) { return eventually(condition); }
    std::string causeOf(const std::string& id) {
        for (const auto& driver : m_drivers.drivers()) {
            if (driver.id == id)
                return driver.cause;
        }
        return {};
    }
    bool hasLogged(const std::string& text) {
        return waitUntil([&] { return log().find(text) != std::string::npos; });
    }
    /// All that was logged before this call.
    std::string log() {
        m_log.flush();
        return m_capture.text();
    }
    long linesWith(const std::string& text) {
        const std::string all = log();
        long count = 0;
        for (auto at = all.find(text); at != std::string::npos; at = all.find(text, at + 1))
            ++count;
        return count;
    }
    long loggedLines() {
        const std::string text = log();
        return std::count(text.begin(), text.end(), '\n');
    }
    bool hasEnded(const std::string& id) {
        return waitUntil([&] { return !driver(id).isAlive; });
    }

    ProcessSupervisor::Environment environment() {
        return {.activity =
                    [this] {
                        const std::lock_guard lock(m_mutex);
                        return m_activity;
                    },
                .waits =
                    [this] {
                        const std::lock_guard lock(m_mutex);
                        return m_waits;
                    },
                .queues =
                    [this] {
                        const std::lock_guard lock(m_mutex);
                        if (m_onLook)
                            m_onLook();
                        return m_queues;
                    },
                .receiverGone =
                    [this](const std::string& name, auto) {
                        const std::lock_guard lock(m_mutex);
                        m_gone.push_back(name);
                    },
                .exitNow = [this](int exitCode) { m_exitCode = exitCode; },
                .restart =
                    [this](const std::string& driverID) {
                        const std::lock_guard lock(m_mutex);
                        m_restarts.push_back(driverID);
                    },
                .refusedQueues =
                    [this] {
                        const std::lock_guard lock(m_mutex);
                        return m_refused;
                    },
                .retireQueue =
                    [this](const std::string& name) {
                        const std::lock_guard lock(m_mutex);
                        m_retired.push_back(name);
                        return m_isFreeAfterRetire;
                    },
                .passQueue =
                    [this](const sal::MessageQueue::Refusal& refusal) {
                        const std::lock_guard lock(m_mutex);
                        m_passed.push_back(refusal.name);
                    },
                .hasReader =
                    [this](const std::string& name) {
                        const std::lock_guard lock(m_mutex);
                        if (m_onAsked)
                            m_onAsked();
                        return m_attached.contains(name);
                    }};
    }

    /// Gives the shell processes the driver IDs that the test wants.
    class Renaming : public sal::Process::Observer {
    public:
        explicit Renaming(ProcessSupervisorTest& test) : m_test(test) {}
        void processStarted(const sal::Process::Started& process) override {
            sal::Process::Started renamed = process;
            renamed.arguments = {"/module.so", m_test.m_nextID};
            m_test.m_sut.processStarted(renamed);
        }

    private:
        ProcessSupervisorTest& m_test;
    };

    const TemporaryDirectory m_directory;
    StandardErrorCapture m_capture;
    sal::LogManager m_log;
    std::mutex m_mutex;
    CommandActivity m_activity;
    std::vector<CommandWait> m_waits;
    std::vector<sal::MessageQueue::Status> m_queues;
    std::function<void()> m_onLook;   ///< when the supervisor looks at the queues, before it is answered
    std::function<void()> m_onAsked;  ///< when it asks whether a process has attached
    std::vector<std::string> m_gone;
    std::vector<std::string> m_restarts;
    std::vector<sal::MessageQueue::Refusal> m_refused;
    std::vector<std::string> m_retired;
    std::vector<std::string> m_passed;
    bool m_isFreeAfterRetire = true;
    std::set<std::string> m_attached;
    std::vector<std::string> m_awaited;
    std::size_t m_most = 0;
    int m_timeout = 0;
    std::atomic<int> m_exitCode = -1;
    std::string m_nextID;
    StateStore m_store;
    DriverTable m_drivers{m_store, c_restarts};
    ProcessSupervisor m_sut;
    Renaming m_renaming{*this};
};

ProcessSupervisor::Settings shortTimesBut(void (*change)(ProcessSupervisor::Settings&)) {
    ProcessSupervisor::Settings settings = c_shortTimes;
    change(settings);
    return settings;
}

/// Whoever is told to end has all the time that it may need for it, and the reader of stacks as well.
class ProcessSupervisorThatKillsNobody : public ProcessSupervisorTest {
protected:
    ProcessSupervisorThatKillsNobody()
        : ProcessSupervisorTest(shortTimesBut([](auto& settings) {
              settings.killDelay = 1h;
              settings.stacksLimit = 1h;
              settings.shutdownLimit = 3h;
          })) {}
};

/// Nobody is told to end by the supervisor.
class ProcessSupervisorThatWaits : public ProcessSupervisorTest {
protected:
    ProcessSupervisorThatWaits()
        : ProcessSupervisorTest(shortTimesBut([](auto& settings) {
              settings.stopTimeout = 1h;
              settings.shutdownLimit = 3h;
          })) {}
};

/// Nobody either who takes no messages.
class ProcessSupervisorThatEndsNobody : public ProcessSupervisorTest {
protected:
    ProcessSupervisorThatEndsNobody()
        : ProcessSupervisorTest(shortTimesBut([](auto& settings) {
              settings.stopTimeout = 1h;
              settings.shutdownLimit = 3h;
              settings.hangTimeout = 0ms;
          })) {}
};

/// The end of a shutdown is not enforced.
class ProcessSupervisorThatIsNotHurried : public ProcessSupervisorTest {
protected:
    ProcessSupervisorThatIsNotHurried()
        : ProcessSupervisorTest(shortTimesBut([](auto& settings) { settings.shutdownLimit = 3h; })) {}
};

/// A time-out that is no multiple of a tenth of a second.
class ProcessSupervisorWithUnevenTimes : public ProcessSupervisorTest {
protected:
    ProcessSupervisorWithUnevenTimes()
        : ProcessSupervisorTest(shortTimesBut([](auto& settings) { settings.stopTimeout = 299ms; })) {}
};

/// A hang lasts so long that nobody need look for it often.
class ProcessSupervisorThatLooksSeldom : public ProcessSupervisorTest {
protected:
    ProcessSupervisorThatLooksSeldom()
        : ProcessSupervisorTest(shortTimesBut([](auto& settings) { settings.hangTimeout = 1h; })) {}
};

/// Nobody who was told to end is killed before the limit of a shutdown.
class ProcessSupervisorAtTheLimit : public ProcessSupervisorTest {
protected:
    ProcessSupervisorAtTheLimit()
        : ProcessSupervisorTest(shortTimesBut([](auto& settings) { settings.killDelay = 1h; })) {}
};

}  // namespace

TEST_F(ProcessSupervisorTest, WhatAProcessHasSaidIsAskedForBeforeItsEndIsTold) {
    std::mutex mutex;
    std::vector<std::string> told;
    ProcessSupervisor sut(m_drivers, c_shortTimes,
                          {.activity = [] { return CommandActivity(); },
                           .queues = [] { return std::vector<sal::MessageQueue::Status>(); },
                           .receiverGone = [](const std::string&, auto) {},
                           .exitNow = [](int) {},
                           .restart = {},
                           .takeErrors =
                               [&](const std::string& driverID, int pid, int errorFd) {
                                   const std::lock_guard lock(mutex);
                                   told.push_back("take " + driverID + " " + std::to_string(pid));
                                   ::close(errorFd);
                               },
                           .endErrors =
                               [&](const std::string& driverID, int pid) {
                                   const std::lock_guard lock(mutex);
                                   told.push_back("end " + driverID + " " + std::to_string(pid) +
                                                  (driver(driverID).isAlive ? "" : "!"));
                                   return std::string("file too short");
                               }});
    sut.start();
    sal::Process::setObserver(&sut);
    sal::Path shell("/bin/sh");
    ASSERT_TRUE(sal::Process::createProcess("sh", shell,
                                            {
                                                "-c",
                                                "exit 1",
                                            }));
    sal::Process::setObserver(&m_renaming);
    const std::string id = "exit 1";
    ASSERT_TRUE(hasEnded(id));
    EXPECT_EQ("exit code 1, cannot be loaded: file too short", causeOf(id));
    const std::string pid = std::to_string(driver(id).pid);
    const std::lock_guard lock(mutex);
    EXPECT_EQ((std::vector<std::string>{"take " + id + " " + pid, "end " + id + " " + pid}), told);
}

TEST_F(ProcessSupervisorTest, ProcessesAreHandedTheStandardErrorThatOutlivesTheHost) {
    const auto formerErrors = [this](std::optional<int> descriptor) {
        ProcessSupervisor::Environment environment{
            .activity = [] { return CommandActivity(); },
            .queues = [] { return std::vector<sal::MessageQueue::Status>(); },
            .receiverGone = [](const std::string&, auto) {},
            .exitNow = [](int) {},
            .restart = {}};
        if (descriptor)
            environment.formerErrors = *descriptor;
        return ProcessSupervisor(m_drivers, c_shortTimes, environment).formerErrors();
    };
    EXPECT_EQ(-1, formerErrors(std::nullopt));
    EXPECT_EQ(7, formerErrors(7));
}

TEST_F(ProcessSupervisorTest, LearnsOfAnExitWithItsCode) {
    start("A", "exit 3");
    ASSERT_TRUE(hasEnded("A"));
    EXPECT_EQ("exit code 3", causeOf("A"));
}

TEST_F(ProcessSupervisorTest, LearnsOfASignal) {
    start("A", "kill -9 $$");
    ASSERT_TRUE(hasEnded("A"));
    EXPECT_EQ("signal 9 (Killed)", causeOf("A"));
}

TEST_F(ProcessSupervisorTest, EndThatSomebodyElseHasCollectedIsUnknown) {
    ::signal(SIGCHLD, SIG_IGN);
    // Gone before it can be watched, it would not even count as started.
    start("A", "sleep 0.3; exit 3");
    const bool isTold = hasLogged("A: process ");
    ::signal(SIGCHLD, SIG_DFL);
    EXPECT_TRUE(isTold);
    EXPECT_EQ("unknown end", causeOf("A"));
    EXPECT_TRUE(
        hasLogged(" ended unexpectedly: unknown end (something in the host's process ignores SIGCHLD "
                  "or collects children that are not its own); it is started again in 0.1 s"));
}

TEST_F(ProcessSupervisorTest, UnknownEndOfAReloadedDriverIsNoSurprise) {
    ::signal(SIGCHLD, SIG_IGN);
    start("A", "sleep 0.3");
    setActivity("reloadDriver A", "A");
    EXPECT_TRUE(hasEnded("A"));
    ::signal(SIGCHLD, SIG_DFL);
    EXPECT_TRUE(hasLogged(" ended: unknown end"));
}

TEST_F(ProcessSupervisorTest, LogsAnUnexpectedEndInOneLine) {
    start("A");
    m_store.setStateValueInt("A.X", 1);
    const int pid = m_drivers.drivers().front().pid;
    ::kill(pid, SIGKILL);
    ASSERT_TRUE(hasEnded("A"));
    EXPECT_TRUE(hasLogged("A: process " + std::to_string(pid) +
                          " ended unexpectedly: signal 9 (Killed); 1 value is stale; it is started "
                          "again in 0.1 s\n"));
    EXPECT_EQ(1, loggedLines());
}

TEST_F(ProcessSupervisorTest, ProcessThatSaysThatItDiesIsLetDieOfItsSignal) {
    startAsleep("A");
    const int pid = driver("A").pid;
    m_sut.processCrashes(pid, {.signal = SIGABRT, .thread = pid});
    ASSERT_TRUE(hasEnded("A"));
    EXPECT_EQ("signal 6 (Aborted)", causeOf("A"));
    EXPECT_TRUE(hasLogged("A: process " + std::to_string(pid) + " dies"));
    EXPECT_TRUE(hasLogged(" ended unexpectedly: signal 6 (Aborted)"));
}

TEST_F(ProcessSupervisorTest, ThreadOfAnotherProcessIsNotLookedAt) {
    startAsleep("A");
    startAsleep("B");
    m_sut.processCrashes(driver("A").pid, {.signal = SIGABRT, .thread = driver("B").pid});
    m_sut.processCrashes(1 << 30, {.signal = SIGABRT, .thread = driver("B").pid});
    m_sut.processCrashes(driver("B").pid, {.signal = SIGTRAP, .thread = driver("B").pid});
    ASSERT_TRUE(hasEnded("B"));
    EXPECT_EQ("signal 5 (Trace/breakpoint trap)", causeOf("B"));
    EXPECT_TRUE(driver("A").isAlive);
    EXPECT_EQ(0, linesWith("A: process "));
}

TEST_F(ProcessSupervisorTest, RestartsBelongToTheKindOfEndBefore) {
    const auto restarts = [this](const std::string& script) {
        start("A", script);
        EXPECT_TRUE(hasEnded("A"));
        m_drivers.addRestart("A");
        return m_drivers.find("A")->restartsAfter;
    };
    EXPECT_EQ((std::array<unsigned int, 5>{0, 1, 0, 0, 0}), restarts("exit 3"));
    EXPECT_EQ((std::array<unsigned int, 5>{0, 1, 1, 0, 0}), restarts("kill -9 $$"));
}

TEST_F(ProcessSupervisorTest, ReleasesThoseWhoSendToTheEndedDriver) {
    start("A", "exit 0");
    ASSERT_TRUE(waitUntil([&] {
        const std::lock_guard lock(m_mutex);
        return m_gone == std::vector<std::string>{"A_INQ"};
    }));
}

TEST_F(ProcessSupervisorThatKillsNobody, EndsTheOldProcessOfADriverThatHoldsUpItsReload) {
    start("A");
    setActivity("reloadDriver A", "A");
    ASSERT_TRUE(hasEnded("A"));
    EXPECT_EQ("signal 15 (Terminated)", causeOf("A"));
    EXPECT_TRUE(hasLogged("has not ended 0.3 s after it was to stop; it is ended"));
}

TEST_F(ProcessSupervisorTest, KillsWhatDoesNotHeedTheSignal) {
    startDeaf("A");
    setActivity("reloadDriver A", "A");
    ASSERT_TRUE(hasEnded("A"));
    EXPECT_EQ("signal 9 (Killed)", causeOf("A"));
    EXPECT_TRUE(hasLogged("warning  HOST: A: process " + std::to_string(driver("A").pid) +
                          " did not heed SIGTERM and is killed\n"));
}

TEST_F(ProcessSupervisorTest, KillsOnceWhatADebuggerHolds) {
    startDeaf("A");
    const int pid = driver("A").pid;
    int ends[2];
    ASSERT_EQ(0, ::pipe2(ends, O_CLOEXEC));
    const pid_t debugger = ::fork();
    ASSERT_GE(debugger, 0);
    if (debugger == 0) {
        const char isHeld = ::ptrace(PTRACE_SEIZE, pid, nullptr, nullptr) == 0;
        static_cast<void>(!::write(ends[1], &isHeld, 1));
        for (;;)
            ::pause();
    }
    char isHeld = 0;
    EXPECT_EQ(1, ::read(ends[0], &isHeld, 1));
    if (isHeld) {
        setActivity("reloadDriver A", "A");
        EXPECT_TRUE(hasLogged("did not heed SIGTERM and is killed\n"));
        // Several rounds of the supervision, which cannot collect it.
        std::this_thread::sleep_for(500ms);
        EXPECT_EQ(2, loggedLines()) << log();
    }
    ::kill(debugger, SIGKILL);
    ::waitpid(debugger, nullptr, 0);
    ::close(ends[0]);
    ::close(ends[1]);
    if (!isHeld)
        GTEST_SKIP() << "this machine lets nobody trace another process";
    EXPECT_TRUE(hasEnded("A"));
}

TEST_F(ProcessSupervisorWithUnevenTimes, TimeIsGivenInTenthsThatAreOver) {
    start("A");
    setActivity("reloadDriver A", "A");
    ASSERT_TRUE(hasEnded("A"));
    EXPECT_TRUE(hasLogged("has not ended 0.2 s after it was to stop; it is ended"));
}

TEST_F(ProcessSupervisorThatLooksSeldom, LooksAtTheQueuesOnceASecond) {
    std::atomic<int> looks = 0;
    const auto begin = std::chrono::steady_clock::now();
    onLook([&] { ++looks; });
    start("A");
    EXPECT_TRUE(eventually([&] { return looks >= 3; }));
    const int seen = looks;
    EXPECT_GE(std::chrono::steady_clock::now() - begin, (seen - 2) * 1s);
    onLook({});
}

TEST_F(ProcessSupervisorThatLooksSeldom, LooksMoreOftenForAProcessThatComesUpAgain) {
    std::atomic<int> looks = 0;
    std::atomic<int> asked = 0;
    start("A", "exit 3");
    ASSERT_TRUE(waitUntil([&] { return !restarts().empty(); }));
    ASSERT_TRUE(m_drivers.beginRestart("A"));
    onLook([&] { ++looks; });
    onAsked([&] { ++asked; });
    start("A");
    EXPECT_TRUE(eventually([&] { return asked > 3 * looks + 10; }));
    onLook({});
    onAsked({});
}

TEST_F(ProcessSupervisorTest, LooksTwentyTimesASecondWhileTheCommandThreadIsBusy) {
    start("A");
    setActivity("events", "");
    std::atomic<int> asked = 0;
    const auto begin = std::chrono::steady_clock::now();
    onAsked([&] { ++asked; });
    std::this_thread::sleep_for(500ms);
    onAsked({});
    // Some looks more: of what wakes the thread.
    EXPECT_LE(asked, (std::chrono::steady_clock::now() - begin) / 50ms + 8);
}

TEST_F(ProcessSupervisorTest, SleepsWithoutProcesses) {
    std::atomic<int> looks = 0;
    onLook([&] { ++looks; });
    std::this_thread::sleep_for(700ms);
    onLook({});
    EXPECT_LE(looks, 2);
}

TEST_F(ProcessSupervisorTest, GoesOnAfterAnExceptionAndSaysIt) {
    std::atomic<bool> isThrown = false;
    onLook([&] {
        if (!isThrown.exchange(true))
            throw std::runtime_error("no room");
    });
    start("A", "sleep 0.2; exit 3");
    EXPECT_TRUE(hasLogged("critical HOST: supervision is held up: no room\n"));
    EXPECT_TRUE(hasEnded("A"));
    EXPECT_EQ("exit code 3", causeOf("A"));
    onLook({});
}

TEST_F(ProcessSupervisorTest, ProcessWithoutAModuleIsNamedByItsTitle) {
    sal::Process::setObserver(&m_sut);
    sal::Path sleep("/bin/sleep");
    EXPECT_TRUE(sal::Process::createProcess("LAMP", sleep, {"3600"}));
    sal::Process::setObserver(&m_renaming);
    EXPECT_GT(driver("LAMP").pid, 0);
}

TEST_F(ProcessSupervisorTest, OneThatWasNeverStartedJustGoes) {
    ProcessSupervisor sut(m_drivers, c_shortTimes, environment());
}

TEST_F(ProcessSupervisorTest, LeavesTheNewProcessOfAReloadAlone) {
    setActivity("reloadDriver A", "A");
    start("A");
    std::this_thread::sleep_for(600ms);
    EXPECT_TRUE(m_drivers.isRunning("A"));
}

TEST_F(ProcessSupervisorTest, LeavesOtherDriversOfAReloadAlone) {
    start("B");
    setActivity("reloadDriver A", "A");
    std::this_thread::sleep_for(600ms);
    EXPECT_TRUE(m_drivers.isRunning("B"));
}

TEST_F(ProcessSupervisorTest, EndsTheDriverWhoseFullQueueHoldsUpTheCommandThread) {
    start("A");
    start("B");
    setWaitingQueue("B_INQ", 400);
    setActivity("sendFID B.GO", "");
    ASSERT_TRUE(hasEnded("B"));
    EXPECT_TRUE(m_drivers.isRunning("A"));
    EXPECT_TRUE(hasLogged("has not taken a message for 0.3 s and holds up \"sendFID B.GO\""));
}

TEST_F(ProcessSupervisorThatLooksSeldom, EndsTheDriverThatACommandWaitsForThoughTheCommandThreadIsFree) {
    start("A");
    start("B");
    setQueues({full("A_INQ", 5), full("B_INQ", 7)});
    const auto now = std::chrono::steady_clock::now();
    setWaits({{"sendFID A.GO", "A", now + 1h, 5}, {"sendFID B.GO", "B", now, 7}});
    ASSERT_TRUE(hasEnded("B"));
    EXPECT_TRUE(m_drivers.isRunning("A"));
    EXPECT_TRUE(hasLogged("has not taken a message for 0.3 s and holds up \"sendFID B.GO\""));
    EXPECT_EQ(std::string::npos, log().find("unexpectedly"));
}

// The command thread is inside another command, and has not looked at the queue again.
TEST_F(ProcessSupervisorThatLooksSeldom, LeavesADriverAloneThatHasTakenAMessageSinceACommandBeganToWait) {
    start("A");
    start("B");
    auto hasRoom = full("B_INQ", 7);
    hasRoom.depth = 3;
    setQueues({full("A_INQ", 6), hasRoom});
    const auto now = std::chrono::steady_clock::now();
    setWaits({{"sendFID A.GO", "A", now, 5}, {"sendFID B.GO", "B", now, 7}});
    std::this_thread::sleep_for(700ms);
    EXPECT_TRUE(m_drivers.isRunning("A"));
    EXPECT_TRUE(m_drivers.isRunning("B"));
}

TEST_F(ProcessSupervisorThatEndsNobody, WaitThatItHasNotSeenDoesNotCount) {
    start("B");
    setQueues({full("B_INQ", 7)});
    setWaits({{"sendFID B.GO", "B", std::chrono::steady_clock::now() - 2h, 7}});
    std::this_thread::sleep_for(300ms);
    EXPECT_TRUE(m_drivers.isRunning("B"));
}

TEST_F(ProcessSupervisorTest, QueueToTheHostDoesNotHideTheDriverThatHoldsUpTheCommandThread) {
    start("B");
    sal::MessageQueue::Status input;
    input.name = "B_INQ";
    input.waitingForMs = 400;
    sal::MessageQueue::Status output = input;
    output.name = "B_OUTQ";
    setQueues({input, output});
    setActivity("sendFID B.GO", "");
    ASSERT_TRUE(hasEnded("B"));
    EXPECT_TRUE(hasLogged("has not taken a message for 0.3 s and holds up \"sendFID B.GO\""));
}

TEST_F(ProcessSupervisorTest, LeavesAFullQueueAloneWhileTheCommandThreadIsFree) {
    start("B");
    setWaitingQueue("B_INQ", 400);
    m_sut.wake();
    std::this_thread::sleep_for(500ms);
    EXPECT_TRUE(m_drivers.isRunning("B"));
}

TEST_F(ProcessSupervisorTest, SaysNothingOfAFullQueueWhoseProcessItHasEnded) {
    start("B");
    setWaitingQueue("B_INQ", 400);
    setActivity("sendFID B.GO", "");
    ASSERT_TRUE(hasEnded("B"));
    std::this_thread::sleep_for(200ms);
    EXPECT_EQ(std::string::npos, log().find("did not start its process"));
    EXPECT_EQ(std::string::npos, log().find("unexpectedly"));
}

TEST_F(ProcessSupervisorTest, LateEndInOrderOfAReplacedProcessIsNoSurprise) {
    startHeld("A", 0);
    start("A");
    letGo();
    EXPECT_TRUE(hasLogged("ended: exit code 0"));
    EXPECT_EQ(std::string::npos, log().find("unexpectedly"));
}

TEST_F(ProcessSupervisorTest, LateCrashOfAReplacedProcessIsTold) {
    startHeld("A", 3);
    start("A");
    letGo();
    EXPECT_TRUE(hasLogged("ended unexpectedly: exit code 3"));
}

TEST_F(ProcessSupervisorTest, ReplacedProcessThatFindsNoQueueIsNoSurprise) {
    startHeld("A", 1);
    const int replaced = driver("A").pid;
    start("A");
    m_store.setStateValueInt("A.X", 1);
    letGo();
    EXPECT_TRUE(hasLogged("info     HOST: A: process " + std::to_string(replaced) +
                          " ended: exit code 1; a newer process had replaced it\n"));
    EXPECT_FALSE(m_store.find("A.X")->isStale());
    EXPECT_FALSE(driver("A").nextTry);
    const std::lock_guard lock(m_mutex);
    EXPECT_EQ(std::vector<std::string>{}, m_gone);
}

TEST_F(ProcessSupervisorTest, EndsAReplacedProcessThatStays) {
    ProcessSupervisor sut(m_drivers, {.replacedLimit = 300ms},
                          {.activity = [] { return CommandActivity(); },
                           .queues = [] { return std::vector<sal::MessageQueue::Status>(); },
                           .receiverGone = [](const std::string&, auto) {},
                           .exitNow = [](int) {},
                           .restart = {}});
    sut.start();
    sal::Process::setObserver(&sut);
    sal::Path sleep("/bin/sleep");
    ASSERT_TRUE(sal::Process::createProcess("sleep", sleep, {"60", "0"}));
    const int replaced = driver("0").pid;
    ASSERT_TRUE(sal::Process::createProcess("sleep", sleep, {"60", "0"}));
    const int fresh = driver("0").pid;
    sal::Process::setObserver(&m_renaming);
    EXPECT_TRUE(hasLogged("0: process " + std::to_string(replaced) +
                          " still runs 0.3 s after it was replaced; it is ended\n"));
    EXPECT_TRUE(hasLogged("0: process " + std::to_string(replaced) +
                          " ended: signal 15 (Terminated); a newer process had replaced it\n"));
    EXPECT_TRUE(m_drivers.isRunning("0"));
    ::kill(fresh, SIGKILL);
    sut.endProcesses();
}

TEST_F(ProcessSupervisorTest, NamesADriverThatItDidNotStart) {
    setWaitingQueue("B_INQ", 400);
    setActivity("sendFID B.GO", "");
    std::this_thread::sleep_for(700ms);
    EXPECT_TRUE(hasLogged("B: its queue is full and holds up \"sendFID B.GO\""));
    EXPECT_EQ(1, loggedLines());
}

TEST_F(ProcessSupervisorTest, NamesAnInProcessDriverThatDoesNotComeBackOnce) {
    m_drivers.callBegins("A", "deinitialize");
    setActivity("reloadDriver A", "A");
    std::this_thread::sleep_for(800ms);
    EXPECT_TRUE(
        hasLogged("A: deinitialize() has not come back for 0.3 s and holds up \"reloadDriver A\"; "
                  "the driver runs in the host's process and cannot be ended alone\n"));
    EXPECT_EQ(1, linesWith("has not come back"));
}

TEST_F(ProcessSupervisorTest, NamesTheInnermostCallOfACommandThatDoesNotComeBack) {
    m_drivers.fidBegins("A", "PING", {});
    m_drivers.fidBegins("B", "PONG", {});
    setActivity("sendFID A.PING", "");
    EXPECT_TRUE(hasLogged("B: sendFID(PONG) has not come back for 0.3 s and holds up \"sendFID A.PING\"; "));
}

TEST_F(ProcessSupervisorThatKillsNobody, ShowsWhereACommandThatDoesNotComeBackIs) {
    if (std::system("eu-stack --version >/dev/null 2>&1") != 0)
        GTEST_SKIP() << "eu-stack is not installed";
    m_drivers.fidBegins("A", "PING", {});
    setActivity("sendFID A.PING", "");
    EXPECT_TRUE(hasLogged("    TID " + std::to_string(::gettid()) + ":\n"));
    EXPECT_TRUE(hasLogged("    #0 "));
}

TEST_F(ProcessSupervisorTest, NamesACommandThatDoesNotComeBackThoughNoDriverHasIt) {
    setActivity("events", "");
    EXPECT_TRUE(hasLogged("warning  HOST: \"events\" has not come back for 0.3 s\n"));
    std::this_thread::sleep_for(500ms);
    EXPECT_EQ(1, linesWith("has not come back"));
}

TEST_F(ProcessSupervisorTest, CallOfAnotherThreadDoesNotHoldTheCommandUp) {
    std::thread([this] { m_drivers.fidBegins("A", "PING", {}); }).join();
    setActivity("events", "");
    EXPECT_TRUE(hasLogged("\"events\" has not come back"));
    EXPECT_EQ(0, linesWith("A: "));
}

TEST_F(ProcessSupervisorTest, CommandThatWaitsForAFullQueueIsToldByTheQueueAlone) {
    setWaitingQueue("B_INQ", 100);
    setActivity("sendFID B.GO", "");
    std::this_thread::sleep_for(700ms);
    EXPECT_EQ(0, loggedLines()) << log();
}

TEST_F(ProcessSupervisorTest, CommandThatLoadsADriverIsToldByItsProcessAlone) {
    setActivity("reloadDriver A", "A");
    std::this_thread::sleep_for(700ms);
    EXPECT_EQ(0, loggedLines()) << log();
}

TEST_F(ProcessSupervisorThatIsNotHurried, CommandInAShutdownIsNotToldWithoutACall) {
    setActivity("events", "");
    m_sut.beginShutdown(0);
    std::this_thread::sleep_for(700ms);
    EXPECT_EQ(0, loggedLines()) << log();
}

TEST_F(ProcessSupervisorTest, StartTakesItsTime) {
    setActivity("start-up", "");
    std::this_thread::sleep_for(700ms);
    EXPECT_EQ(0, loggedLines());
}

TEST_F(ProcessSupervisorThatWaits, WaitsForProcessesThatEndByThemselves) {
    startHeld("A", 0);
    m_sut.beginShutdown(0);
    auto ending = std::async(std::launch::async, [this] { m_sut.endProcesses(); });
    EXPECT_EQ(ending.wait_for(50ms), std::future_status::timeout);
    letGo();
    ending.get();
    EXPECT_EQ("exit code 0", causeOf("A"));
    EXPECT_EQ(std::string::npos, log().find("unexpectedly"));
}

TEST_F(ProcessSupervisorThatKillsNobody, EndsAtAShutdownWhatDoesNotEndByItself) {
    start("A");
    m_sut.beginShutdown(0);
    m_sut.endProcesses();
    EXPECT_EQ("signal 15 (Terminated)", causeOf("A"));
    EXPECT_EQ(-1, m_exitCode);
}

TEST_F(ProcessSupervisorThatIsNotHurried, KillsAtAShutdownWhatHeedsNothing) {
    startDeaf("A");
    m_sut.beginShutdown(0);
    m_sut.endProcesses();
    EXPECT_EQ("signal 9 (Killed)", causeOf("A"));
    EXPECT_EQ(-1, m_exitCode);
}

TEST_F(ProcessSupervisorAtTheLimit, NobodyWhoWasToldToEndOutlivesTheHost) {
    startDeaf("A");
    const int pid = driver("A").pid;
    m_sut.beginShutdown(0);
    auto ending = std::async(std::launch::async, [this] { m_sut.endProcesses(); });
    EXPECT_TRUE(waitUntil([&] { return m_exitCode == 0; }));
    EXPECT_TRUE(hasEnded("A"));
    EXPECT_EQ("signal 9 (Killed)", causeOf("A"));
    if (m_drivers.isRunning("A"))
        ::kill(pid, SIGKILL);
}

TEST_F(ProcessSupervisorTest, TimeInWhichItDidNotRunIsNoTimeOfAShutdown) {
    std::atomic<int> pauses = 0;
    std::atomic<int> exitCode = -1;
    ProcessSupervisor sut(m_drivers, c_shortTimes,
                          {.activity =
                               [&] {
                                   if (pauses > 0) {
                                       --pauses;
                                       std::this_thread::sleep_for(2s);
                                   }
                                   return CommandActivity();
                               },
                           .queues = [] { return std::vector<sal::MessageQueue::Status>(); },
                           .receiverGone = [](const std::string&, auto) {},
                           .exitNow = [&](int code) { exitCode = code; },
                           .restart = {}});
    sut.start();
    startFor(sut, "1");
    pauses = 2;
    sut.beginShutdown(0);
    sut.endProcesses();
    EXPECT_EQ("signal 15 (Terminated)", causeOf("1"));
    EXPECT_EQ(exitCode, -1);
    EXPECT_EQ(0, linesWith("holds up the shutdown for"));
}

TEST_F(ProcessSupervisorTest, EnforcesTheEndOfAShutdownWithItsExitCode) {
    m_drivers.callBegins("A", "deinitialize");
    setActivity("shutdown", "");
    m_sut.beginShutdown(1);
    m_sut.beginShutdown(0);
    ASSERT_TRUE(waitUntil([&] { return m_exitCode == 1; }));
    EXPECT_TRUE(hasLogged("A: deinitialize() holds up the shutdown for 1.5 s"));
}

TEST_F(ProcessSupervisorTest, NamesTheCommandThatHoldsUpAShutdown) {
    setActivity("start-up", "");
    m_sut.beginShutdown(0);
    ASSERT_TRUE(waitUntil([&] { return m_exitCode == 0; }));
    EXPECT_TRUE(hasLogged("\"start-up\" holds up the shutdown"));
}

TEST_F(ProcessSupervisorTest, NamesTheCommandThatHoldsUpAShutdownThoughProcessesRun) {
    start("A");
    setActivity("start-up", "");
    m_sut.beginShutdown(0);
    ASSERT_TRUE(waitUntil([&] { return m_exitCode == 0; }));
    EXPECT_TRUE(hasLogged("\"start-up\" holds up the shutdown"));
}

TEST_F(ProcessSupervisorTest, CallInTheHostsProcessHoldsUpAShutdownMoreThanAFullQueue) {
    m_drivers.callBegins("A", "deinitialize");
    setWaitingQueue("B_INQ", 400);
    m_sut.beginShutdown(0);
    ASSERT_TRUE(waitUntil([&] { return m_exitCode == 0; }));
    EXPECT_TRUE(hasLogged("A: deinitialize() holds up the shutdown"));
}

TEST_F(ProcessSupervisorTest, FullQueueThatIsWaitedForHoldsUpAShutdown) {
    sal::MessageQueue::Status idle;
    idle.name = "A_INQ";
    sal::MessageQueue::Status toTheHost;
    toTheHost.name = "B_OUTQ";
    toTheHost.waitingForMs = 100;
    sal::MessageQueue::Status awaited;
    awaited.name = "C_INQ";
    awaited.waitingForMs = 100;
    setQueues({idle, toTheHost, awaited});
    m_sut.beginShutdown(0);
    ASSERT_TRUE(waitUntil([&] { return m_exitCode == 0; }));
    EXPECT_TRUE(
        hasLogged("HOST: C: its full queue holds up the shutdown for 1.5 s; the host ends without it\n"));
}

TEST_F(ProcessSupervisorTest, LockedQueueThatIsWaitedForHoldsUpAShutdown) {
    sal::MessageQueue::Status awaited;
    awaited.name = "C_INQ";
    awaited.waitingForMs = 100;
    awaited.lockedForMs = 100;
    setQueues({awaited});
    m_sut.beginShutdown(0);
    ASSERT_TRUE(waitUntil([&] { return m_exitCode == 0; }));
    EXPECT_TRUE(hasLogged("HOST: C: its locked queue holds up the shutdown"));
}

TEST_F(ProcessSupervisorTest, ShutdownIsNotNamedAsWhatHoldsItUp) {
    setActivity("shutdown", "");
    m_sut.beginShutdown(0);
    ASSERT_TRUE(waitUntil([&] { return m_exitCode == 0; }));
    EXPECT_TRUE(hasLogged("HOST: something unknown holds up the shutdown"));
}

TEST_F(ProcessSupervisorTest, AsksForTheStartOfADriverThatEnded) {
    start("A", "exit 0");
    EXPECT_TRUE(waitUntil([&] { return restarts() == std::vector<std::string>{"A"}; }));
}

TEST_F(ProcessSupervisorTest, TellsOfTheNextTry) {
    const auto before = std::chrono::steady_clock::now();
    start("A", "exit 0");
    ASSERT_TRUE(waitUntil([&] { return driver("A").nextTry.has_value(); }));
    EXPECT_GE(*driver("A").nextTry, before + 100ms);
    ASSERT_TRUE(waitUntil([&] { return !restarts().empty(); }));
    EXPECT_TRUE(m_drivers.beginRestart("A"));
    EXPECT_FALSE(driver("A").nextTry);
}

TEST_F(ProcessSupervisorTest, StartThatIsNotEvenTriedIsPutOffWhateverTheLimit) {
    start("A", "exit 3");
    for (int i = 1; i <= 4; ++i) {
        ASSERT_TRUE(waitUntil([&] { return restarts().size() == static_cast<std::size_t>(i); }));
        ASSERT_TRUE(m_drivers.beginRestart("A"));
        m_sut.endStart("A", "w.xml cannot be read: No such file or directory");
        EXPECT_EQ("w.xml cannot be read: No such file or directory", causeOf("A"));
        EXPECT_TRUE(driver("A").nextTry);
    }
    EXPECT_TRUE(
        hasLogged("A: no process runs: w.xml cannot be read: No such file or directory; it is started again "
                  "in 0.2 s\n"));
}

TEST_F(ProcessSupervisorTest, PlansFurtherTriesUntilTheLimit) {
    start("A", "exit 3");
    for (int i = 1; i <= 2; ++i) {
        ASSERT_TRUE(waitUntil([&] { return restarts().size() == static_cast<std::size_t>(i); }));
        ASSERT_TRUE(m_drivers.beginRestart("A"));
        start("A", "exit 3");
        m_sut.endStart("A");
    }
    EXPECT_TRUE(hasLogged("exit code 3; it is started again in 0.2 s\n"));
    EXPECT_TRUE(hasLogged("exit code 3; it is not started again: 2 restarts in a row are the limit\n"));
    EXPECT_FALSE(driver("A").nextTry);
}

TEST_F(ProcessSupervisorTest, StartsADriverAgainThatNeverCameUp) {
    m_drivers.beginStart("A");
    m_sut.endStart("A");
    EXPECT_EQ("never started", causeOf("A"));
    EXPECT_TRUE(hasLogged("A: no process runs: never started; it is started again in 0.1 s\n"));
    EXPECT_TRUE(waitUntil([&] { return restarts() == std::vector<std::string>{"A"}; }));
}

TEST_F(ProcessSupervisorTest, WhyAProcessCannotBeStartedIsTheCauseOfThatStartAlone) {
    m_drivers.beginStart("A");
    m_sut.startFailed({"/drivers/a.so", "A"}, "Permission denied");
    m_sut.startFailed({"of nobody"}, "No such file or directory");
    m_sut.endStart("A");
    EXPECT_EQ("cannot be started: Permission denied", causeOf("A"));
    EXPECT_TRUE(hasLogged(
        "A: no process runs: cannot be started: Permission denied; it is started again in 0.1 s\n"));
    m_drivers.beginStart("A");
    m_sut.endStart("A");
    EXPECT_EQ("never started", causeOf("A"));
}

TEST_F(ProcessSupervisorTest, NextProcessOfADriverToBeDebuggedWaitsForADebugger) {
    const std::vector<std::string> none;
    EXPECT_EQ(none, m_sut.variables({"/drivers/a.so", "A"}));
    m_sut.letWaitForDebugger("A", true);
    EXPECT_EQ(none, m_sut.variables({"/drivers/b.so", "B"}));
    EXPECT_EQ(none, m_sut.variables({"of nobody"}));
    const std::vector<std::string> waits = m_sut.variables({"/drivers/a.so", "A"});
    ASSERT_EQ(1u, waits.size());
    EXPECT_THAT(waits.front(), testing::MatchesRegex("MFD_WAIT_FOR_DEBUGGER=[0-9]+"));
    EXPECT_EQ(none, m_sut.variables({"/drivers/a.so", "A"}));
    m_sut.letWaitForDebugger("A", true);
    m_sut.letWaitForDebugger("A", false);
    EXPECT_EQ(none, m_sut.variables({"/drivers/a.so", "A"}));
}

TEST(ProcessSupervisorPatience, ProcessWaitsForADebuggerForHalfAsLongAsOneMayHang) {
    StateStore store;
    DriverTable drivers{store, {}};
    const auto waitsFor = [&](std::chrono::milliseconds hangTimeout) {
        ProcessSupervisor sut(drivers, {.hangTimeout = hangTimeout}, {});
        sut.letWaitForDebugger("A", true);
        return sut.variables({"/drivers/a.so", "A"}).at(0);
    };
    EXPECT_EQ("MFD_WAIT_FOR_DEBUGGER=5", waitsFor(std::chrono::seconds(10)));
    EXPECT_EQ("MFD_WAIT_FOR_DEBUGGER=1", waitsFor(std::chrono::milliseconds(500)));
    EXPECT_EQ("MFD_WAIT_FOR_DEBUGGER=30", waitsFor(std::chrono::hours(1)));
    EXPECT_EQ("MFD_WAIT_FOR_DEBUGGER=30", waitsFor(std::chrono::seconds(0)));
}

TEST_F(ProcessSupervisorThatWaits, StartThatAShutdownCutsOffIsNoFailure) {
    m_sut.beginShutdown(0);
    m_sut.endStart("A");
    m_sut.endStart("B", "no room");
    EXPECT_EQ(0, loggedLines()) << log();
    for (const char* id : {"A", "B"}) {
        EXPECT_EQ(EDriverState::NotLoaded, driver(id).state);
        EXPECT_FALSE(driver(id).nextTry);
    }
}

TEST_F(ProcessSupervisorTest, ReloadThatStartsNoProcessAfterAnEndIsToldAndPlanned) {
    start("A", "exit 3");
    ASSERT_TRUE(waitUntil([&] { return restarts().size() == 1; }));
    m_drivers.beginStart("A");
    m_sut.endStart("A");
    EXPECT_EQ("never started", causeOf("A"));
    EXPECT_TRUE(hasLogged("A: no process runs: never started; it is started again in 0.1 s\n"));
    EXPECT_TRUE(waitUntil([&] { return restarts().size() == 2; }));
}

TEST_F(ProcessSupervisorTest, TakesALiveProcessForSuccess) {
    start("A");
    m_sut.endStart("A");
    EXPECT_TRUE(m_drivers.isRunning("A"));
    EXPECT_EQ(0, loggedLines());
}

TEST_F(ProcessSupervisorTest, PlansOnceForAProcessThatDiesWhileItStarts) {
    setActivity("reloadDriver A", "A");
    start("A", "exit 3");
    ASSERT_TRUE(hasEnded("A"));
    m_sut.endStart("A");
    EXPECT_EQ("exit code 3", causeOf("A"));
    ASSERT_TRUE(waitUntil([&] { return !restarts().empty(); }));
    std::this_thread::sleep_for(500ms);
    EXPECT_EQ(1u, restarts().size());
}

TEST_F(ProcessSupervisorTest, KeepsTheCauseOfAProcessThatDiedAtTheLimit) {
    for (int i = 0; i < 3; ++i) {
        start("A", "exit 3");
        ASSERT_TRUE(hasEnded("A"));
    }
    m_sut.endStart("A");
    EXPECT_EQ("exit code 3", causeOf("A"));
}

TEST_F(ProcessSupervisorTest, DoesNotStartADriverAgainThatIsReloaded) {
    startHeld("A", 0);
    setActivity("reloadDriver A", "A");
    letGo();
    ASSERT_TRUE(hasEnded("A"));
    std::this_thread::sleep_for(400ms);
    EXPECT_EQ(0u, restarts().size());
}

TEST_F(ProcessSupervisorTest, DoesNotStartADriverAgainInAShutdown) {
    startHeld("A", 3);
    m_sut.beginShutdown(0);
    letGo();
    m_sut.endProcesses();
    std::this_thread::sleep_for(300ms);
    EXPECT_EQ(0u, restarts().size());
}

TEST_F(ProcessSupervisorTest, ReloadByHandOvertakesWhatWasPlanned) {
    start("A", "exit 3");
    ASSERT_TRUE(waitUntil([&] { return !restarts().empty(); }));
    m_drivers.beginStart("A");
    EXPECT_FALSE(m_drivers.beginRestart("A"));
    EXPECT_FALSE(driver("A").nextTry);
}

TEST_F(ProcessSupervisorTest, DriverThatIsGivenUpIsNotStartedAgain) {
    start("A", "exit 3");
    ASSERT_TRUE(waitUntil([&] { return !restarts().empty(); }));
    ASSERT_TRUE(m_drivers.beginRestart("A"));
    m_drivers.giveUp("A");
    std::this_thread::sleep_for(300ms);
    EXPECT_EQ(1u, restarts().size());
}

TEST_F(ProcessSupervisorThatKillsNobody, EndsAProcessThatHangs) {
    startAsleep("A");
    m_store.setStateValueInt("A.X", 1);
    setStanding("A");
    ASSERT_TRUE(waitUntil([&] { return !restarts().empty(); }));
    EXPECT_TRUE(hasLogged(" and does not compute; it is ended\n"));
    EXPECT_THAT(log(), ContainsRegex("hangs: it has taken none of 5 messages for [0-9.]+ s and"));
    EXPECT_THAT(causeOf("A"), MatchesRegex("hung for [0-9.]+ s, signal 15 \\(Terminated\\)"));
    EXPECT_THAT(m_store.find("A.X")->staleCause, StartsWith("hung for "));
}

TEST_F(ProcessSupervisorTest, KillsAProcessThatHangsAndHeedsNothing) {
    startDeaf("A");
    setStanding("A");
    ASSERT_TRUE(waitUntil([&] { return !restarts().empty(); }));
    EXPECT_NE(std::string::npos, causeOf("A").find(", signal 9 (Killed)")) << causeOf("A");
}

TEST_F(ProcessSupervisorTest, MarksTheValuesOfAHungDriverBeforeItTellsOfIt) {
    startDeaf("A");
    m_store.setStateValueInt("A.X", 1);
    setStanding("A");
    ASSERT_TRUE(hasLogged(" hangs: "));
    EXPECT_TRUE(m_store.find("A.X")->isStale());
    m_store.setStateValueInt("A.Y", 1);
    EXPECT_TRUE(m_store.find("A.Y")->isStale());
}

TEST_F(ProcessSupervisorTest, LeavesAProcessThatTakesMessages) {
    start("A");
    setStanding("A");
    std::atomic<int> looks = 0;
    // One message between each two looks, however far apart they are.
    onLook([&] {
        ++m_queues.front().received;
        ++looks;
    });
    std::this_thread::sleep_for(1s);
    EXPECT_TRUE(waitUntil([&] { return looks >= 20; }));
    EXPECT_TRUE(m_drivers.isRunning("A"));
    onLook({});
}

TEST_F(ProcessSupervisorThatKillsNobody, LeavesOneThatWaitsForTheHostWhileAnotherThatHangsIsEnded) {
    startDeaf("A");
    startAsleep("B");
    {
        // Both leave messages standing; the host waits for B, and B for the host.
        const std::lock_guard lock(m_mutex);
        for (const char* name : {"A_INQ", "B_INQ", "B_OUTQ"}) {
            sal::MessageQueue::Status status;
            status.name = name;
            status.capacity = 256;
            status.depth = 256;
            status.waitingForMs = 3600'000;
            m_queues.push_back(status);
        }
    }
    ASSERT_TRUE(waitUntil([&] { return driver("A").state == EDriverState::Hung; }));
    std::this_thread::sleep_for(2s);
    EXPECT_EQ(EDriverState::Running, driver("B").state);
}

TEST_F(ProcessSupervisorThatKillsNobody, OneThatWaitsForTheHostHangsOnceTheHostHasWaitedForItThatLong) {
    startAsleep("A");
    std::vector<sal::MessageQueue::Status> queues{openedQueue("A_INQ"), openedQueue("A_OUTQ")};
    for (sal::MessageQueue::Status& queue : queues)
        queue.depth = queue.capacity;
    queues.front().waitingForMs = 399;
    std::atomic<int> looks = 0;
    onLook([&] { ++looks; });
    setQueues(queues);
    // Longer than any hang, with more looks than one takes.
    std::this_thread::sleep_for(2s);
    EXPECT_TRUE(waitUntil([&] { return looks >= 40; }));
    EXPECT_EQ(EDriverState::Running, driver("A").state);
    queues.front().waitingForMs = 400;
    setQueues(queues);
    EXPECT_TRUE(waitUntil([&] { return driver("A").cause.starts_with("hung for "); }));
    onLook({});
}

TEST_F(ProcessSupervisorThatKillsNobody, ShowsWhereAHungProcessStands) {
    const std::string tool = m_directory.path("eu-stack");
    std::ofstream(tool) << "#!/bin/sh\necho \"TID $2:\"\necho '#0 nanosleep'\n";
    ::chmod(tool.c_str(), 0700);
    const std::string path = std::getenv("PATH");
    ::setenv("PATH", (m_directory.path() + ":" + path).c_str(), 1);
    start("A");
    const int pid = driver("A").pid;
    setStanding("A");
    EXPECT_TRUE(hasLogged("    TID " + std::to_string(pid) + ":\n"));
    EXPECT_TRUE(hasLogged("    #0 nanosleep\n"));
    ASSERT_TRUE(hasEnded("A"));
    ::setenv("PATH", path.c_str(), 1);
    const std::string text = log();
    EXPECT_LT(text.find(" hangs: "), text.find("    TID "));
    EXPECT_LT(text.find("#0 nanosleep"), text.find(" ended: hung"));
}

TEST_F(ProcessSupervisorTest, ReaderLearnsOfAnEndBeforeTheWatchDoes) {
    // Without the thread that watches nobody but the reader can notice.
    StateStore store;
    DriverTable roster(store);
    ProcessSupervisor sut(roster, {},
                          {.activity = [] { return CommandActivity(); },
                           .queues = [] { return std::vector<sal::MessageQueue::Status>(); },
                           .receiverGone = [](const std::string&, auto) {},
                           .exitNow = [](int) {},
                           .restart = {}});
    sal::Process::setObserver(&sut);
    sal::Path sleep("/bin/sleep");
    ASSERT_TRUE(sal::Process::createProcess("sleep", sleep, {"3600", "0"}));
    sal::Process::setObserver(&m_renaming);
    store.setStateValueInt("0.X", 1);
    ASSERT_FALSE(store.find("0.X")->isStale());
    const int pid = roster.drivers().front().pid;
    ::kill(pid, SIGKILL);
    siginfo_t info{};
    ASSERT_EQ(0, ::waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOWAIT));
    sut.lookForEnds();
    EXPECT_TRUE(store.find("0.X")->isStale());
}

TEST_F(ProcessSupervisorTest, MeasuresTheTrafficOfADriver) {
    start("A");
    sal::MessageQueue::Status in;
    in.name = "A_INQ";
    sal::MessageQueue::Status out;
    out.name = "A_OUTQ";
    ASSERT_TRUE(waitUntil([&] {
        const std::lock_guard lock(m_mutex);
        in.messages += 10;
        out.messages += 30;
        m_queues = {in, out};
        return m_drivers.drivers().front().receivedPerSecond > 0;
    }));
    const DriverTable::Driver measured = driver("A");
    EXPECT_NEAR(3 * measured.receivedPerSecond, measured.sentPerSecond, 0.01 * measured.sentPerSecond);
}

TEST_F(ProcessSupervisorTest, EndsAllDriversWithFullQueuesAtOnceInAShutdown) {
    for (const char* id : {"A", "B", "C"})
        start(id);
    {
        const std::lock_guard lock(m_mutex);
        for (const char* id : {"A", "B", "C"}) {
            sal::MessageQueue::Status status;
            status.name = std::string(id) + "_INQ";
            status.capacity = 256;
            status.depth = *id == 'C' ? 255 : 256;
            m_queues.push_back(status);
        }
    }
    setActivity("shutdown", "");
    m_sut.beginShutdown(0);
    ASSERT_TRUE(hasEnded("A"));
    ASSERT_TRUE(hasEnded("B"));
    EXPECT_TRUE(hasLogged("A: process " + std::to_string(driver("A").pid) +
                          " leaves its queue full and holds up the shutdown; it is ended\n"));
    EXPECT_EQ(std::string::npos, log().find("C: "));
}

TEST_F(ProcessSupervisorTest, EndsADriverWithADamagedQueue) {
    start("A");
    m_store.setStateValueInt("A.X", 1);
    auto output = openedQueue("A_OUTQ");
    output.isBroken = true;
    setQueues({openedQueue("A_INQ"), output});
    ASSERT_TRUE(hasEnded("A"));
    EXPECT_TRUE(m_store.find("A.X")->isStale());
    EXPECT_TRUE(hasLogged("A: process " + std::to_string(driver("A").pid) +
                          " cannot be reached any more: its output queue is damaged; it is ended\n"));
    ASSERT_TRUE(waitUntil([&] { return restarts() == std::vector<std::string>{"A"}; }));
    EXPECT_EQ("its output queue is damaged, signal 15 (Terminated)", causeOf("A"));
}

TEST_F(ProcessSupervisorTest, EndsADriverThatHasLetGoOfItsQueue) {
    start("A");
    auto input = openedQueue("A_INQ");
    input.isAttached = false;
    setQueues({input, openedQueue("A_OUTQ")});
    ASSERT_TRUE(hasEnded("A"));
    EXPECT_TRUE(hasLogged(" cannot be reached any more: it has let go of its input queue; it is ended\n"));
}

TEST_F(ProcessSupervisorTest, DriverThatHasLetGoOfItsQueueIsNotTakenForHung) {
    start("A");
    auto input = openedQueue("A_INQ");
    input.isAttached = false;
    input.depth = 1;
    setQueues({input, openedQueue("A_OUTQ")});
    ASSERT_TRUE(hasEnded("A"));
    EXPECT_TRUE(hasLogged(" cannot be reached any more: it has let go of its input queue; it is ended\n"));
    EXPECT_EQ(std::string::npos, log().find("hangs"));
}

TEST_F(ProcessSupervisorTest, LeavesADriverAloneThatHasNotOpenedItsQueues) {
    start("A");
    sal::MessageQueue::Status input;
    input.name = "A_INQ";
    sal::MessageQueue::Status output;
    output.name = "A_OUTQ";
    setQueues({input, output});
    std::this_thread::sleep_for(3000ms);
    EXPECT_TRUE(m_drivers.isRunning("A"));
}

TEST_F(ProcessSupervisorTest, LeavesTheQueuesOfADriverThatIsReloadedAlone) {
    start("A");
    setActivity("reloadDriver A", "A");
    start("A");
    auto input = openedQueue("A_INQ");
    input.isBroken = true;
    setQueues({input});
    // The old process is ended, since it holds up the reload.
    ASSERT_TRUE(hasLogged("has not ended 0.3 s after it was to stop; it is ended"));
    std::this_thread::sleep_for(300ms);
    EXPECT_TRUE(m_drivers.isRunning("A"));
}

TEST_F(ProcessSupervisorTest, EndsADriverWhoseInputQueueIsLocked) {
    start("A");
    auto input = openedQueue("A_INQ");
    input.waitingForMs = 60000;
    input.lockedForMs = 60000;
    setQueues({input});
    ASSERT_TRUE(hasEnded("A"));
    EXPECT_TRUE(hasLogged("A: process " + std::to_string(driver("A").pid) +
                          " hangs: a sender has not left its input queue for 60 s; it is ended\n"));
    EXPECT_EQ(0U, causeOf("A").find("input queue locked for 60 s"));
}

TEST_F(ProcessSupervisorTest, EndsTheDriverWhoseLockedQueueHoldsUpTheCommandThread) {
    start("B");
    auto input = openedQueue("B_INQ");
    input.waitingForMs = 350;
    input.lockedForMs = 350;
    setQueues({input});
    setActivity("sendFID B.GO", "");
    ASSERT_TRUE(hasEnded("B"));
    EXPECT_TRUE(
        hasLogged("B: process " + std::to_string(driver("B").pid) +
                  " cannot be sent to, since a sender has not left its input queue for 0.3 s and holds up "
                  "\"sendFID B.GO\"; it is ended\n"));
}

TEST_F(ProcessSupervisorTest, NamesALockedQueueWhoseProcessItDidNotStart) {
    auto input = openedQueue("B_INQ");
    input.waitingForMs = 350;
    input.lockedForMs = 350;
    setQueues({input});
    setActivity("sendFID B.GO", "");
    EXPECT_TRUE(
        hasLogged("B: its queue is locked by a sender and holds up \"sendFID B.GO\"; the host did not start "
                  "its process\n"));
}

TEST_F(ProcessSupervisorTest, EndsDriversWithLockedQueuesInAShutdown) {
    start("A");
    auto input = openedQueue("A_INQ");
    input.lockedForMs = 100;
    setQueues({input});
    setActivity("shutdown", "");
    m_sut.beginShutdown(0);
    ASSERT_TRUE(hasEnded("A"));
    EXPECT_TRUE(
        hasLogged(" cannot be told to stop, since a sender does not leave its input queue, and holds up the "
                  "shutdown; it is ended\n"));
}

TEST_F(ProcessSupervisorTest, WaitForQueuesOfADriverWithoutProcessIsEnded) {
    setActivity("reloadDriver A", "A");
    setRefused("A_INQ");
    ASSERT_TRUE(hasPassed("A_INQ"));
    EXPECT_EQ(m_retired.front(), "A_INQ");
    EXPECT_TRUE(hasLogged("A: queue A_INQ does not become free: somebody has it; its name is taken away\n"));
    setRefused("A_OUTQ");
    ASSERT_TRUE(hasPassed("A_OUTQ"));
    std::this_thread::sleep_for(200ms);
    EXPECT_EQ(2, loggedLines());
}

TEST_F(ProcessSupervisorTest, WaitForQueuesThatCannotBeFreedIsEndedWithoutALine) {
    m_isFreeAfterRetire = false;
    setActivity("reloadDriver A", "A");
    setRefused("A_INQ");
    ASSERT_TRUE(hasPassed("A_INQ"));
    EXPECT_EQ(0, loggedLines());
}

TEST_F(ProcessSupervisorTest, WaitForQueuesLastsAsLongAsTheProcess) {
    startDeaf("A");
    std::this_thread::sleep_for(100ms);
    setRefused("A_INQ");
    setActivity("reloadDriver A", "A");
    ASSERT_TRUE(hasLogged("has not ended 0.3 s after it was to stop; it is ended"));
    {
        const std::lock_guard lock(m_mutex);
        EXPECT_TRUE(m_passed.empty());
    }
    ASSERT_TRUE(hasPassed("A_INQ"));
    EXPECT_FALSE(m_drivers.isRunning("A"));
}

TEST_F(ProcessSupervisorTest, SingleRefusalIsNoWait) {
    setRefused("A_INQ", 0);
    setActivity("reloadDriver A", "A");
    std::this_thread::sleep_for(600ms);
    const std::lock_guard lock(m_mutex);
    EXPECT_TRUE(m_passed.empty());
}

TEST_F(ProcessSupervisorTest, RefusedQueueOfAnotherDriverIsNotTheCommandsWait) {
    setRefused("B_INQ");
    setActivity("reloadDriver A", "A");
    std::this_thread::sleep_for(600ms);
    const std::lock_guard lock(m_mutex);
    EXPECT_TRUE(m_passed.empty());
}

TEST_F(ProcessSupervisorTest, WaitForQueuesEndsAtOnceInAShutdown) {
    m_sut.beginShutdown(0);
    setRefused("A_INQ");
    setActivity("reloadDriver A", "A");
    ASSERT_TRUE(hasPassed("A_INQ"));
    m_exitCode = -1;
}

TEST_F(ProcessSupervisorTest, SaysOnceWhyADriverDoesNotStart) {
    std::size_t tries = 0;
    const auto tryAgain = [&](const std::string& reason) {
        ++tries;
        EXPECT_TRUE(waitUntil([&] { return restarts().size() == tries; }));
        EXPECT_TRUE(m_drivers.beginRestart("A"));
        m_sut.endStart("A", reason);
    };
    m_drivers.beginStart("A");
    m_sut.endStart("A", "no room");
    tryAgain("no room");
    ASSERT_TRUE(hasLogged("A: no process runs: no room; it is started again in 0.1 s\n"));
    EXPECT_EQ(1, loggedLines());
    tryAgain("no rights");
    ASSERT_TRUE(hasLogged("A: no process runs: no rights; it is started again in 0.4 s\n"));
}

TEST_F(ProcessSupervisorTest, SaysAgainWhyADriverDoesNotStartWhenSomebodyAskedForIt) {
    m_drivers.beginStart("A");
    m_sut.endStart("A", "no room");
    m_drivers.beginStart("A");
    m_sut.endStart("A", "no room");
    ASSERT_TRUE(waitUntil([&] { return loggedLines() == 2; }));
}

TEST_F(ProcessSupervisorTest, StartLastsItsTimeByDefault) {
    start("A");
    attach("A");
    const auto begin = std::chrono::steady_clock::now();
    m_sut.awaitStart(driver("A").pid, 1);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 1s);
}

TEST_F(ProcessSupervisorTest, StartGoesOnWhenFewerThanTwiceTheProcessorsAreStillToAttach) {
    const auto pSut = attachedSupervisor(true);
    // Numbers are arguments that sleep takes.
    const int former = startFor(*pSut, "1");
    const int first = startFor(*pSut, "1");
    const int second = startFor(*pSut, "2");
    pSut->awaitStart(second, 3);
    EXPECT_EQ((std::vector<std::string>{"1_INQ", "2_INQ"}), m_awaited);
    EXPECT_EQ(2 * std::max(std::thread::hardware_concurrency(), 1U) - 1, m_most);
    EXPECT_EQ(3000, m_timeout);
    EXPECT_EQ(0, loggedLines()) << log();
    for (const int pid : {former, first, second})
        ::kill(pid, SIGKILL);
    pSut->endProcesses();
}

TEST_F(ProcessSupervisorTest, NamesAProcessThatDoesNotComeUpInTimeOnce) {
    const auto pSut = attachedSupervisor(false);
    const int late = startFor(*pSut, "1");
    const int fresh = startFor(*pSut, "2");
    attach("2");
    pSut->awaitStart(fresh, 1);
    pSut->awaitStart(fresh, 1);
    EXPECT_TRUE(hasLogged("warning  HOST: 1: process " + std::to_string(late) +
                          " has not come up within 1 s; the start goes on without it\n"));
    EXPECT_EQ(1, loggedLines()) << log();
    for (const int pid : {late, fresh})
        ::kill(pid, SIGKILL);
    pSut->endProcesses();
}

TEST_F(ProcessSupervisorTest, SaysThatADriverIsStartedAgainWhenItsProcessHasAttached) {
    start("A", "exit 3");
    ASSERT_TRUE(waitUntil([&] { return !restarts().empty(); }));
    ASSERT_TRUE(m_drivers.beginRestart("A"));
    start("A");
    m_sut.endStart("A");
    std::this_thread::sleep_for(200ms);
    EXPECT_EQ(std::string::npos, log().find("A: is started again\n"));
    attach("A");
    EXPECT_TRUE(hasLogged("info     HOST: A: is started again\n"));
    std::this_thread::sleep_for(200ms);
    EXPECT_EQ(2, loggedLines()) << log();
}

TEST_F(ProcessSupervisorTest, SaysNothingOfAReloadThatWasAskedFor) {
    start("A", "exit 3");
    ASSERT_TRUE(waitUntil([&] { return !restarts().empty(); }));
    ASSERT_TRUE(m_drivers.beginRestart("A"));
    m_drivers.beginStart("A");
    start("A");
    attach("A");
    std::this_thread::sleep_for(200ms);
    EXPECT_EQ(std::string::npos, log().find("is started again\n"));
}

TEST_F(ProcessSupervisorTest, ProcessThatFindsNoQueueInAShutdownIsNoSurprise) {
    startHeld("A", 1);
    m_sut.beginShutdown(0);
    letGo();
    EXPECT_TRUE(hasLogged(" ended: exit code 1\n"));
}

TEST_F(ProcessSupervisorTest, ProcessThatFailsInAShutdownAfterItHadComeUpIsTold) {
    startHeld("A", 1);
    attach("A");
    m_sut.beginShutdown(0);
    letGo();
    EXPECT_TRUE(hasLogged(" ended unexpectedly: exit code 1\n"));
}

TEST_F(ProcessSupervisorTest, StartThatHoldsUpAShutdownIsNamed) {
    std::promise<void> attached;
    std::atomic<bool> isLeft = false;
    ProcessSupervisor sut(
        m_drivers, {.shutdownLimit = 500ms, .waitsUntilAttached = true},
        {.activity =
             [] {
                 return CommandActivity{true, "start-up", {}, std::chrono::steady_clock::now()};
             },
         .queues = [] { return std::vector<sal::MessageQueue::Status>(); },
         .receiverGone = [](const std::string&, auto) {},
         .exitNow = [&](int) { isLeft = true; },
         .restart = {},
         .hasReader = [](const std::string&) { return false; },
         .waitForReaders =
             [&](const std::vector<std::string>&, std::size_t, int) {
                 attached.get_future().wait();
                 return true;
             }});
    sut.start();
    const int pid = startFor(sut, "1");
    std::thread commands([&] { sut.awaitStart(pid, 1); });
    sut.beginShutdown(0);
    EXPECT_TRUE(waitUntil([&] { return isLeft.load(); }));
    EXPECT_TRUE(hasLogged("1: the start of its process holds up the shutdown for 0.5 s"));
    attached.set_value();
    commands.join();
    ::kill(pid, SIGKILL);
    sut.endProcesses();
}
