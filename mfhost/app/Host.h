#pragma once

#include <atomic>
#include <chrono>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "ByHandWatch.h"
#include "CommandThread.h"
#include "Completion.h"
#include "Console.h"
#include "DriverCallWatch.h"
#include "DriverRoster.h"
#include "FollowPrinter.h"
#include "HostCommands.h"
#include "HostSystem.h"
#include "Options.h"
#include "ProcessSupervisor.h"
#include "QueueTrial.h"
#include "StateStore.h"
#include "StopSignals.h"
#include "Surroundings.h"
#include "WorkplaceAdmission.h"
#include "sal/CmdProcessor.h"

class IMDMConfiguration;
class MfDriverManager;
class WorkplaceCopy;
class WorkplaceSnapshot;

namespace sal {
class HostQueueDirectory;
}

/// The running host: starts the workplace, executes commands, shuts it down. Made and run by main, on the
/// main thread, once the log is there and /var/data is ours; the module is used on the command thread alone.
class Host {
public:
    /// The signals are blocked in every thread from here on.
    Host(Options options, StopSignals& signals, const sal::HostQueueDirectory& queueDirectory);
    ~Host();
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;

    /// Runs the workplace until it is shut down, and returns the exit code.
    int run();

private:
    enum class EOrigin { Console, Driver };

    void startUp();
    bool startManager();
    void searchDrivers();
    bool startDrivers(const WorkplaceSnapshot& workplace);
    /// From now on the module reads this; why it cannot, or empty.
    std::string handToModule(const WorkplaceSnapshot& workplace);

    void readConsoleLine(const std::string& line);
    /// A script's lines wait for the end of the start; a quit that is its first line is answered at once.
    void readScriptLine(const std::string& line);
    void execute(const std::string& line, EOrigin origin);
    void executeChecked(const std::string& line, std::ostream& reply);
    void reload(const std::string& line, const std::string& driverID, std::ostream& reply);
    /// Starts a driver again that ended without being asked to.
    void restart(const std::string& driverID);
    /// Why it was not even tried, for the next try; empty when it was, or when there will be none.
    std::string tryRestart(const std::string& driverID);
    /// Tells the supervisor of those that the configuration runs in processes.
    void endStart(const std::string& driverID);
    /// The fault is what kept its queues from being made before the start was even tried.
    void endStart(const DriverRoster::Driver& driver, const std::string& queueFault);
    /// Checks the workplace, tries the driver's queues out, and hands the file to the module; why the driver
    /// is not to be reloaded, or empty.
    std::string prepareReload(const WorkplaceSnapshot& workplace, const std::string& driverID);
    /// Why the queues of a driver that runs or is to run in a process cannot be made; empty for others.
    std::string queueFault(const WorkplaceSnapshot& workplace, const std::string& driverID);
    /// Whether the host is to start a process for it, and has its module's descriptor.
    bool isProcessDriver(const DriverRoster::Driver& driver) const;
    /// How many descriptors were found so far.
    int describedCount() const;
    /// Whether a descriptor of the driver's type and version was found.
    bool isDescribed(const DriverRoster::Driver& driver) const;

    void settle() const;
    void recoverOutput();

    void requestShutdown(const std::string& reason, int exitCode);
    void shutDown();
    /// Once no driver process is left.
    void removeLeftQueues() const;
    [[noreturn]] void exitNow(int exitCode) const;

    const Options m_options;
    StopSignals& m_signals;
    const sal::HostQueueDirectory& m_queueDirectory;
    StateStore m_store;
    DriverRoster m_roster;
    Surroundings m_surroundings;
    DriverCallWatch m_driverCalls;
    CommandThread m_commands;
    ByHandWatch m_byHand;
    ProcessSupervisor m_supervisor;
    HostSystem m_system;
    sal::CmdProcessor m_processor;
    WorkplaceAdmission m_admission;
    HostCommands m_hostCommands;
    Completion m_completion;
    std::unique_ptr<Console> m_pConsole;
    std::unique_ptr<FollowPrinter> m_pFollow;

    // The command thread's.
    std::unique_ptr<MfDriverManager> m_pManager;
    IMDMConfiguration* m_pConfiguration = nullptr;
    std::unique_ptr<WorkplaceCopy> m_pCopy;  ///< none without a configuration
    bool m_isCopyNamed = false;
    std::ostream* m_pReply = nullptr;
    QueueTrial m_queueTrial;
    std::optional<std::chrono::steady_clock::time_point> m_outputLost;  ///< when it was last said

    std::atomic<bool> m_isStarted = false;
    std::atomic<bool> m_isStartOver = false;  ///< also when it failed
    std::atomic<int> m_exitCode = 0;
};
