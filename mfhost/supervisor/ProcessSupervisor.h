#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <list>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "CommandThread.h"
#include "DriverRoster.h"
#include "sal/MessageQueue.h"
#include "sal/Process.h"

/// Watches the driver processes on a thread of its own, which never calls the module and never waits for the
/// command thread. Learns of every exit with its cause, ends the process of a driver that holds up the
/// command thread longer than the stop time-out, and enforces the end of a shutdown. Owned by Host; told of
/// processes on the thread that makes them.
class ProcessSupervisor : public sal::Process::Observer {
public:
    using Clock = std::chrono::steady_clock;

    struct Settings {
        std::chrono::milliseconds stopTimeout{3000};
        std::chrono::milliseconds shutdownLimit{5000};
        std::chrono::milliseconds killDelay{500};  ///< between SIGTERM and SIGKILL
    };

    /// What the supervisor asks of its surroundings, each on its own thread.
    struct Environment {
        std::function<CommandThread::Activity()> activity;
        std::function<std::vector<sal::MessageQueue::Status>()> queues;
        std::function<void(const std::string& queueName)> receiverGone;
        std::function<void(int exitCode)> exitNow;
    };

    ProcessSupervisor(DriverRoster& roster, Settings settings, Environment environment);
    ~ProcessSupervisor() override;  ///< stops watching; processes that still run are left alone
    ProcessSupervisor(const ProcessSupervisor&) = delete;
    ProcessSupervisor& operator=(const ProcessSupervisor&) = delete;

    void start();
    /// The command thread began or ended something. Any thread.
    void wake();

    void processStarted(const sal::Process::Started& process) override;

    /// The shutdown begins: its end is enforced from now on, with this exit code. The first call counts. Any
    /// thread.
    void beginShutdown(int exitCode);

    /// Waits for all driver processes, ending those that do not end by themselves within the stop time-out.
    /// Once the manager is gone; on the command thread.
    void endProcesses();

private:
    struct Watched {
        std::string driverID;
        int pid = 0;
        int pidFd = -1;
        Clock::time_point started;
        std::optional<Clock::time_point> terminated;
        bool isKilled = false;
    };

    void run();
    void reap();
    void ended(const Watched& process, const std::string& cause, bool isOrderly);
    bool isBusy();
    void check();
    void checkCommand(const CommandThread::Activity& activity, Clock::time_point now);
    void checkCall(Clock::time_point now);
    void checkShutdown(const CommandThread::Activity& activity, Clock::time_point now);
    void terminate(Watched& process, const std::string& reason);
    std::string whoHoldsUp(const CommandThread::Activity& activity) const;

    DriverRoster& m_roster;
    const Settings m_settings;
    const Environment m_environment;
    const int m_wakeFd;

    mutable std::mutex m_mutex;
    std::condition_variable m_allEnded;
    std::list<Watched> m_processes;
    std::optional<Clock::time_point> m_shutdownBegan;
    std::optional<Clock::time_point> m_endProcessesBegan;
    int m_exitCode = 0;
    bool m_stopping = false;

    /// What was said already: once for each call, queue wait and driver.
    std::optional<Clock::time_point> m_reportedCall;
    std::string m_reportedQueue;

    std::thread m_thread;
};
