#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "ISystem.h"
#include "MfDriverManager.h"
#include "PanelTarget.h"
#include "Request.h"
#include "Results.h"
#include "sal/CmdProcessor.h"
#include "sal/LogManager.h"
#include "sal/Process.h"

class IFunctionID;
class IMDMConfiguration;

/// A host without anything but the manager: starts the probe drivers D00, D01, ... of a workplace file as any
/// host does, each in its driver process, and measures. Lives in a process of its own and changes its working
/// directory and standard output.
class WorkplaceHost : private sal::Process::Observer {
public:
    WorkplaceHost(const std::filesystem::path& directory, int drivers, int cores, const Results& results);
    ~WorkplaceHost() override;

    /// Writes one result or throws.
    void measure(const Request& request);

private:
    class System : public ISystem {
    public:
        IInterface* queryInterface(unsigned int) override { return nullptr; }
        void executeCommand(const std::string&, const std::string&) override {}
    };

    void processStarted(const sal::Process::Started& process) override;

    void measureUpdates(const Request& request);
    void measureFids(const Request& request);
    void measureTrips(const Request& request);
    void measureStopped(const Request& request);
    void measureReload(const Request& request);
    void measureMemory(const Request& request);
    void measureIdle(const Request& request);
    void measureShutdown(const Request& request);

    using Parameters = std::vector<std::pair<std::string, std::string>>;
    void send(std::size_t driver, const std::string& function, const Parameters& parameters) const;
    void sendJob(std::size_t driver, const Job& job) const;
    /// Until each driver has done something, and so is there.
    void waitUntilDriversAnswer();
    /// This process and the driver processes that live.
    std::vector<pid_t> processes() const;
    /// Until all driver processes that were started have ended.
    void waitForProcesses();
    /// What the queues' files hold, in KiB.
    double queueMemory() const;

    std::filesystem::path m_directory;
    int m_drivers;
    int m_cores;
    const Results& m_results;
    double m_residentBefore = 0;
    double m_proportionalBefore = 0;

    std::unique_ptr<sal::LogManager> m_pLog;
    std::unique_ptr<sal::CmdProcessor> m_pCommands;
    System m_system;
    PanelTarget m_target;
    std::vector<sal::Process::Started> m_processes;
    std::unique_ptr<MfDriverManager> m_pManager;
    IMDMConfiguration* m_pConfiguration = nullptr;
    IFunctionID* m_pSender = nullptr;
};
