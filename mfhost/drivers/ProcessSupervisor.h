#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "CommandActivity.h"
#include "DriverTable.h"
#include "HangDetector.h"
#include "ProcessEnd.h"
#include "ProcessTable.h"
#include "QueueLossDetector.h"
#include "SeenTime.h"
#include "StackDump.h"
#include "StopLimits.h"
#include "TrafficMeter.h"
#include "Wakeup.h"
#include "sal/CrashNote.h"
#include "sal/MessageQueue.h"
#include "sal/Process.h"

/// Watches the driver processes on a thread of its own, which never calls the module and never waits for the
/// command thread. Learns of every exit with its cause and asks for the next start, ends the process of a
/// driver that hangs or holds up the command thread longer than the stop time-out, and enforces the end of a
/// shutdown. Owned by Host; told of processes on the thread that makes them.
class ProcessSupervisor : public sal::Process::Observer {
public:
    using Clock = std::chrono::steady_clock;

    struct Settings {
        std::chrono::milliseconds stopTimeout{3000};
        std::chrono::milliseconds shutdownLimit{5000};
        std::chrono::milliseconds killDelay{500};      ///< between SIGTERM and SIGKILL
        std::chrono::milliseconds hangTimeout{10000};  ///< 0: nothing is taken for hung
        std::chrono::milliseconds stacksLimit{2000};   ///< for reading the stacks of what hangs
        /// With a command that does not come back, before a line says what it is in.
        std::chrono::milliseconds commandPatience{5000};
        /// How long a process may take to end after it was unloaded or a newer one has replaced it; no
        /// command waits for it.
        std::chrono::milliseconds replacedLimit{10000};
        /// A start goes on when few processes are still to attach to their queues, not after its full time.
        bool waitsUntilAttached = false;
    };

    /// What the supervisor asks of its surroundings, each on its own thread.
    struct Environment {
        std::function<CommandActivity()> activity;
        /// The commands that wait for a driver with a full input queue; nothing where there never are any.
        std::function<std::vector<CommandWait>()> waits = nullptr;
        std::function<std::vector<sal::MessageQueue::Status>()> queues;
        std::function<void(const std::string& queueName, Clock::time_point started)> receiverGone;
        std::function<void(int exitCode)> exitNow;
        /// Has the driver started again on the command thread, between beginRestart and endStart.
        std::function<void(const std::string& driverID)> restart;
        /// Learns of processes that are not the host's own. On any thread; nothing where there are none.
        std::function<void()> lookAtOthers = nullptr;
        /// Told each time that the thread goes round what the command thread does; returns when it wants to
        /// be told again at the latest.
        std::function<Clock::time_point(const CommandActivity& activity, Clock::time_point now)> goesRound =
            nullptr;
        /// The names of queues that cannot be made though the module tries again and again, and what is done
        /// about one: it is taken from the processes that hold it (true when it is free now), and the next
        /// try is let pass without a queue.
        std::function<std::vector<sal::MessageQueue::Refusal>()> refusedQueues = nullptr;
        std::function<bool(const std::string& queueName)> retireQueue = nullptr;
        std::function<void(const sal::MessageQueue::Refusal& refusal)> passQueue = nullptr;
        /// Takes over the descriptor from which a new process's standard error is read; where there is none
        /// of these, it gets the host's.
        std::function<void(const std::string& driverID, int pid, int errorFd)> takeErrors = nullptr;
        /// A descriptor of the host, with which the log of a driver process goes on when the host is gone; -1
        /// for its standard error.
        int formerErrors = -1;
        /// The process has ended: when this returns, what it has written is in the log. Why it could not load
        /// its module, as it has said; empty where it has not.
        std::function<std::string(const std::string& driverID, int pid)> endErrors = nullptr;
        /// Where a process dies, line by line, before its end is told of. May be none.
        std::function<void(int pid, const std::vector<std::string>& lines)> noteStack = nullptr;
        /// As the operations of sal::MessageQueue.
        std::function<bool(const std::string& queueName)> hasReader = &sal::MessageQueue::hasReader;
        std::function<bool(const std::vector<std::string>& queueNames, std::size_t most, int timeout)>
            waitForReaders = &sal::MessageQueue::waitForReaders;
    };

    ProcessSupervisor(DriverTable& drivers, Settings settings, Environment environment);
    ~ProcessSupervisor() override;  ///< stops watching; processes that still run are left alone
    ProcessSupervisor(const ProcessSupervisor&) = delete;
    ProcessSupervisor& operator=(const ProcessSupervisor&) = delete;

    void start();
    /// The command thread began or ended something. Any thread.
    void wake();

    void processStarted(const sal::Process::Started& process) override;
    void startFailed(const std::vector<std::string>& arguments, const std::string& reason) override;
    std::vector<std::string> variables(const std::vector<std::string>& arguments) override;
    bool capturesErrors() override { return m_environment.takeErrors != nullptr; }
    int formerErrors() override { return m_environment.formerErrors; }
    /// Where a start waits until processes have attached: returns when fewer than twice as many as there are
    /// processors have neither attached to their input queue nor ended. One that takes longer than all the
    /// time is named in the log, once.
    void awaitStart(int pid, unsigned int seconds) override;

    /// The next process of the driver waits for a debugger before it loads the driver, for half as long as
    /// one that takes no messages may, and half a minute at the most. False takes that back. Any thread.
    void letWaitForDebugger(const std::string& driverID, bool waits);

    /// A process says on which of its threads it dies, and waits: its stack is read, and it dies. Any thread.
    void processCrashes(int pid, const sal::CrashNote::Crash& crash);

    /// Learns of ends that have come by now: when it returns, the table and the store have been told of them.
    /// Any thread, without the locks of these two.
    void lookForEnds();

    /// Before the host lets go of a driver's queues: which processes have come up by now. Any thread.
    void noteAttached();
    /// The module has unloaded the driver and loads nothing in its place: what is left of its processes has
    /// as long to end as one that a newer process has replaced. Command thread.
    void driverUnloaded(const std::string& driverID);
    /// The start or reload of a driver that is to run in a process is over; with the reason when it was not
    /// even tried, and with what is seen to keep the driver from being loaded. Without a process the next try
    /// is planned, and said. Command thread.
    void endStart(const std::string& driverID, const std::string& reason = {}, const std::string& seen = {});

    /// The shutdown begins: its end is enforced from now on, with this exit code. The first call counts. Any
    /// thread.
    void beginShutdown(int exitCode);

    /// Waits for all driver processes, ending those that do not end by themselves within the stop time-out.
    /// Once the manager is gone; on the command thread.
    void endProcesses();

private:
    using Process = ProcessTable::Process;
    using Queues = TrafficMeter::Queues;

    void run();
    int pollTimeout();
    void tellEnds();
    void ended(Process& process, const ProcessEnd& end);
    bool isShuttingDown() const { return m_limits.isShuttingDown(); }
    bool isBusy();
    void check();
    void checkCommand(const CommandActivity& activity, Clock::time_point now);
    void checkWaits(Clock::time_point now);
    std::vector<CommandWait> waits() const;
    bool endStuck(const StopLimits::Stuck& stuck, const std::string& heldUp);
    void checkQueueWait(const CommandActivity& activity, Clock::time_point now);
    void checkCall(const CommandActivity& activity, Clock::time_point now);
    void showStack(int thread);
    void checkShutdown(const CommandActivity& activity, Clock::time_point now);
    void endFullQueues();
    void checkRestarts(Clock::time_point now);
    void sample(Clock::time_point now);
    void measureTraffic(const Queues& queues, Clock::time_point now);
    std::vector<HangDetector::Sample> samples(const Queues& queues);
    void hangs(const HangDetector::Verdict& verdict);
    void checkQueueLoss(const Queues& queues, Clock::time_point looked);
    void lost(const QueueLossDetector::Verdict& verdict);
    void checkStacks();
    static void logStacks(const StackDump& stacks);
    void tellCrash(const Process& process) const;
    static void terminate(Process& process, const std::string& reason);
    std::string whoHoldsUp(const CommandActivity& activity);

    DriverTable& m_drivers;
    const Settings m_settings;
    const Environment m_environment;
    const base::Wakeup m_wakeup;
    const std::chrono::milliseconds m_sampleInterval;

    /// The thread that learns of an end tells all of it before another thread may look.
    std::mutex m_tellMutex;

    ProcessTable m_processes;
    StopLimits m_limits;
    /// How long each command that waits for a driver was seen to wait. The thread's own.
    std::map<std::pair<std::string, Clock::time_point>, SeenTime> m_waitsSeen;

    mutable std::mutex m_mutex;
    bool m_stopping = false;
    /// The driver whose start the command thread waits in; empty for none.
    std::string m_awaited;
    /// Of drivers whose process could not be started, until the start is over.
    std::map<std::string, std::string> m_startFaults;
    std::set<std::string> m_toBeDebugged;  ///< drivers whose next process waits for a debugger
    /// Of processes that have ended meanwhile.
    std::vector<std::unique_ptr<StackDump>> m_lateDumps;
    std::unique_ptr<StackDump> m_pCommandStack;  ///< of the command thread, while it is read

    // The supervisor's thread's own.
    HangDetector m_hangs;
    QueueLossDetector m_losses;
    Clock::time_point m_nextSample;
    Clock::time_point m_nextRound;
    TrafficMeter m_traffic;

    /// What was said already: once for each call or command that does not come back, queue wait and driver.
    std::optional<Clock::time_point> m_reportedCall;
    std::string m_reportedQueue;
    std::set<std::string> m_retiredQueues;  ///< in the current command

    std::thread m_thread;
};
