#include "ProcessSupervisor.h"

#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <atomic>
#include <future>
#include <mutex>
#include <thread>

#include "StandardErrorCapture.h"
#include "sal/LogManager.h"

namespace {

using namespace std::chrono_literals;

/// A supervisor over real shell processes, with a command thread and queues that the test makes up.
class ProcessSupervisorTest : public testing::Test {
protected:
    ProcessSupervisorTest() {
        sal::Process::setObserver(&m_renaming);
        m_sut.start();
    }
    ~ProcessSupervisorTest() override {
        for (const auto& driver : m_roster.drivers()) {
            if (driver.status == DriverRoster::EStatus::Running && driver.pid > 0)
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
    void start(const std::string& id) { start(id, "exec sleep 60"); }
    /// A process that ignores SIGTERM.
    void startDeaf(const std::string& id) { start(id, "trap '' TERM; while :; do sleep 0.05; done"); }
    void setActivity(const std::string& what, const std::string& driverID) {
        {
            const std::lock_guard lock(m_mutex);
            m_activity = {true, what, driverID, CommandThread::Clock::now()};
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
    bool waitUntil(const std::function<bool()>& condition) {
        for (int i = 0; i < 2000; ++i) {
            if (condition())
                return true;
            std::this_thread::sleep_for(5ms);
        }
        return false;
    }
    std::string causeOf(const std::string& id) {
        for (const auto& driver : m_roster.drivers()) {
            if (driver.id == id)
                return driver.cause;
        }
        return {};
    }
    bool hasLogged(const std::string& text) {
        return waitUntil([&] {
            m_log.flush();
            return m_capture.text().find(text) != std::string::npos;
        });
    }
    long loggedLines() {
        const std::string text = m_capture.text();
        return std::count(text.begin(), text.end(), '\n');
    }
    bool hasEnded(const std::string& id) {
        return waitUntil([&] { return !m_roster.isRunning(id); });
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

    StandardErrorCapture m_capture;
    sal::LogManager m_log;
    std::mutex m_mutex;
    CommandThread::Activity m_activity;
    std::vector<sal::MessageQueue::Status> m_queues;
    std::vector<std::string> m_gone;
    std::atomic<int> m_exitCode = -1;
    std::string m_nextID;
    StateStore m_store;
    DriverRoster m_roster{m_store};
    ProcessSupervisor m_sut{m_roster,
                            {.stopTimeout = 300ms, .shutdownLimit = 1500ms, .killDelay = 200ms},
                            {.activity =
                                 [this] {
                                     const std::lock_guard lock(m_mutex);
                                     return m_activity;
                                 },
                             .queues =
                                 [this] {
                                     const std::lock_guard lock(m_mutex);
                                     return m_queues;
                                 },
                             .receiverGone =
                                 [this](const std::string& name) {
                                     const std::lock_guard lock(m_mutex);
                                     m_gone.push_back(name);
                                 },
                             .exitNow = [this](int exitCode) { m_exitCode = exitCode; }}};
    Renaming m_renaming{*this};
};

}  // namespace

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

TEST_F(ProcessSupervisorTest, LogsAnUnexpectedEndInOneLine) {
    start("A");
    m_store.setStateValueInt("A.X", 1);
    const int pid = m_roster.drivers().front().pid;
    ::kill(pid, SIGKILL);
    ASSERT_TRUE(hasEnded("A"));
    EXPECT_TRUE(hasLogged("A: process " + std::to_string(pid) +
                          " ended unexpectedly: signal 9 (Killed); 1 value is stale\n"));
    EXPECT_EQ(1, loggedLines());
}

TEST_F(ProcessSupervisorTest, ReleasesThoseWhoSendToTheEndedDriver) {
    start("A", "exit 0");
    ASSERT_TRUE(waitUntil([&] {
        const std::lock_guard lock(m_mutex);
        return m_gone == std::vector<std::string>{"A_INQ"};
    }));
}

TEST_F(ProcessSupervisorTest, EndsTheOldProcessOfADriverThatHoldsUpItsReload) {
    start("A");
    setActivity("reloadDriver A", "A");
    ASSERT_TRUE(hasEnded("A"));
    EXPECT_EQ("signal 15 (Terminated)", causeOf("A"));
    EXPECT_TRUE(hasLogged("has not ended 0.3 s after it was to stop; it is ended"));
}

TEST_F(ProcessSupervisorTest, KillsWhatDoesNotHeedTheSignal) {
    startDeaf("A");
    std::this_thread::sleep_for(100ms);
    setActivity("reloadDriver A", "A");
    ASSERT_TRUE(hasEnded("A"));
    EXPECT_EQ("signal 9 (Killed)", causeOf("A"));
    EXPECT_TRUE(hasLogged("did not heed SIGTERM and is killed"));
}

TEST_F(ProcessSupervisorTest, LeavesTheNewProcessOfAReloadAlone) {
    setActivity("reloadDriver A", "A");
    start("A");
    std::this_thread::sleep_for(600ms);
    EXPECT_TRUE(m_roster.isRunning("A"));
}

TEST_F(ProcessSupervisorTest, LeavesOtherDriversOfAReloadAlone) {
    start("B");
    setActivity("reloadDriver A", "A");
    std::this_thread::sleep_for(600ms);
    EXPECT_TRUE(m_roster.isRunning("B"));
}

TEST_F(ProcessSupervisorTest, EndsTheDriverWhoseFullQueueHoldsUpTheCommandThread) {
    start("A");
    start("B");
    setWaitingQueue("B_INQ", 400);
    setActivity("sendFID B.GO", "");
    ASSERT_TRUE(hasEnded("B"));
    EXPECT_TRUE(m_roster.isRunning("A"));
    EXPECT_TRUE(hasLogged("has not taken a message for 0.3 s and holds up \"sendFID B.GO\""));
}

TEST_F(ProcessSupervisorTest, LeavesAFullQueueAloneWhileTheCommandThreadIsFree) {
    start("B");
    setWaitingQueue("B_INQ", 400);
    m_sut.wake();
    std::this_thread::sleep_for(500ms);
    EXPECT_TRUE(m_roster.isRunning("B"));
}

TEST_F(ProcessSupervisorTest, SaysNothingOfAFullQueueWhoseProcessItHasEnded) {
    start("B");
    setWaitingQueue("B_INQ", 400);
    setActivity("sendFID B.GO", "");
    ASSERT_TRUE(hasEnded("B"));
    std::this_thread::sleep_for(200ms);
    m_log.flush();
    EXPECT_EQ(std::string::npos, m_capture.text().find("did not start its process"));
    EXPECT_EQ(std::string::npos, m_capture.text().find("unexpectedly"));
}

TEST_F(ProcessSupervisorTest, NamesADriverThatItDidNotStart) {
    setWaitingQueue("B_INQ", 400);
    setActivity("sendFID B.GO", "");
    std::this_thread::sleep_for(700ms);
    EXPECT_TRUE(hasLogged("B: its queue is full and holds up \"sendFID B.GO\""));
    EXPECT_EQ(1, loggedLines());
}

TEST_F(ProcessSupervisorTest, NamesAnInProcessDriverThatDoesNotComeBackOnce) {
    m_roster.callBegins("A", "deinitialize");
    setActivity("reloadDriver A", "A");
    std::this_thread::sleep_for(800ms);
    EXPECT_TRUE(hasLogged("A: deinitialize() has not come back for 0.3 s"));
    EXPECT_EQ(1, loggedLines());
}

TEST_F(ProcessSupervisorTest, WaitsForProcessesThatEndByThemselves) {
    start("A", "sleep 0.1; exit 0");
    m_sut.beginShutdown(0);
    m_sut.endProcesses();
    EXPECT_EQ("exit code 0", causeOf("A"));
    m_log.flush();
    EXPECT_EQ(std::string::npos, m_capture.text().find("unexpectedly"));
}

TEST_F(ProcessSupervisorTest, EndsAtAShutdownWhatDoesNotEndByItself) {
    start("A");
    startDeaf("B");
    std::this_thread::sleep_for(100ms);
    m_sut.beginShutdown(0);
    m_sut.endProcesses();
    EXPECT_EQ("signal 15 (Terminated)", causeOf("A"));
    EXPECT_EQ("signal 9 (Killed)", causeOf("B"));
    EXPECT_EQ(-1, m_exitCode);
}

TEST_F(ProcessSupervisorTest, EnforcesTheEndOfAShutdownWithItsExitCode) {
    m_roster.callBegins("A", "deinitialize");
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
