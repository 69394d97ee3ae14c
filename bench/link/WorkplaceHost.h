#pragma once

#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "BenchWorkplace.h"
#include "DriverTable.h"
#include "FidTap.h"
#include "FollowPrinter.h"
#include "HostSystem.h"
#include "LogMemory.h"
#include "MfDriverManager.h"
#include "PanelTarget.h"
#include "Request.h"
#include "Results.h"
#include "Roads.h"
#include "StateStore.h"
#include "ValueReports.h"
#include "sal/CmdProcessor.h"
#include "sal/LogManager.h"
#include "sal/MessageQueue.h"
#include "sal/Process.h"

class IFunctionID;
class IMDMConfiguration;

/// A host without anything but the manager and a panel: starts the probe drivers D00, D01, ... of a workplace
/// file, each in its driver process or in this one, and measures. As the host with --start-wait=attached it
/// goes on when few of them are still to come up. Lives in a process of its own and changes its working
/// directory and standard output.
class WorkplaceHost : private sal::Process::Observer {
public:
    WorkplaceHost(BenchWorkplace::Settings settings, const Results& results);
    ~WorkplaceHost() override;

    /// Writes one result or throws.
    void measure(const Request& request);

private:
    /// Of memory, in KiB.
    struct Usage {
        double resident = 0;
        double own = 0;
        double queues = 0;
    };

    void processStarted(const sal::Process::Started& process) override;
    void awaitStart(int pid, unsigned int seconds) override;

    IPanelState* panel();

    void measureUpdates(const Request& request);
    void measureRelayed(const Request& request);
    void measureFids(const Request& request);
    void measureTrips(const Request& request);
    void measureStopped(const Request& request);
    void measureValues(const Request& request);
    void measureMemory(const Request& request);
    void measureIdle(const Request& request);
    void measureShutdown(const Request& request);

    using Parameters = std::vector<std::pair<std::string, std::string>>;
    void send(std::size_t driver, const std::string& function, const Parameters& parameters) const;
    static Parameters parametersOf(const Job& job);
    /// Until each driver has done something, and so is there.
    void waitUntilDriversAnswer();
    /// Until the driver gets no message further into its queue, which is returned.
    sal::MessageQueue::Status waitUntilFull(std::size_t driver) const;
    /// This process and the driver processes that live.
    std::vector<pid_t> processes() const;
    /// Until all driver processes that were started have ended.
    void waitForProcesses();
    Usage usage() const;
    /// What the queues' files hold, in KiB.
    double queueMemory() const;

    const BenchWorkplace::Settings m_settings;
    const std::filesystem::path m_directory;
    const Results& m_results;
    double m_residentBefore = 0;
    double m_proportionalBefore = 0;

    std::unique_ptr<sal::LogManager> m_pLog;
    std::unique_ptr<sal::CmdProcessor> m_pCommands;
    HostSystem m_system{{}, [](const std::string&) { return false; }};
    PanelTarget m_target;
    roads::EmptyTarget m_empty;
    StateStore m_store;
    std::unique_ptr<FollowPrinter> m_pFollow;
    DriverTable m_drivers{m_store};
    LogMemory m_lines{[] { return std::set<std::string>(); }};
    FidTap m_tap{m_drivers, m_drivers, m_lines};
    const ValueReports m_reports;
    std::vector<sal::Process::Started> m_processes;
    std::unique_ptr<MfDriverManager> m_pManager;
    IMDMConfiguration* m_pConfiguration = nullptr;
    IFunctionID* m_pSender = nullptr;
};
