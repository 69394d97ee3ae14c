#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "AlarmList.h"
#include "ByHandWatch.h"
#include "CommandShell.h"
#include "CommandThread.h"
#include "Console.h"
#include "DeliveryTimes.h"
#include "DriverCallWatch.h"
#include "DriverErrors.h"
#include "DriverNews.h"
#include "DriverTable.h"
#include "FidCounts.h"
#include "FidSenders.h"
#include "FidTap.h"
#include "FidTrail.h"
#include "Following.h"
#include "HostApi.h"
#include "HostSystem.h"
#include "LineOwner.h"
#include "LinkAccess.h"
#include "LogMemory.h"
#include "Options.h"
#include "ProcessSupervisor.h"
#include "Recorder.h"
#include "RingPlace.h"
#include "ServiceManager.h"
#include "StateStore.h"
#include "StopSignals.h"
#include "Surroundings.h"
#include "WireTap.h"
#include "Workplace.h"

class MfDriverManager;
class TerminalRelay;

namespace sal {
class HostQueueDirectory;
}

/// The running host: makes and joins what starts the workplace, executes commands and watches drivers, and
/// shuts it all down. Made and run by main, on the main thread, once the log is there and /var/data is ours;
/// the module is used on the command thread alone.
class Host {
public:
    /// The signals are blocked in every thread from here on.
    /// The clients of control socket and web port are served while the host runs; where one is not open it
    /// has none.
    /// pRelay has what is printed at a terminal; null where there is none.
    Host(Options options, StopSignals& signals, const sal::HostQueueDirectory& queueDirectory,
         ControlSocket& controlSocket, WebPort& webPort, ServiceManager& service, LineOwner& lineOwner,
         RingPlace& ringPlace, std::vector<RingPlace::Left> leftRings, TerminalRelay* pRelay = nullptr);
    ~Host();
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;

    /// Runs the workplace until it is shut down, and returns the exit code.
    int run();

private:
    void observe();
    void stopRecording();
    stream::EFidOutcome whyNobody(const std::string& fid, const FIDParameterList* pParameters) const;
    void makeTerminal();
    void driverChanged(const DriverTable::Driver& driver);
    void startUp();
    bool startManager();
    void tellPanel();
    void startApi();

    /// Has the files taken over that have changed.
    void postApply();

    /// A line of a driver process, on the thread that reads it.
    void takeDriverLine(const std::string& driverID, const sal::LogManager::Line& line, bool isBare);
    std::string endErrors(const std::string& driverID, int pid);

    void requestShutdown(const std::string& reason, int exitCode);
    void shutDown();
    /// Once no driver process is left.
    void removeLeftQueues() const;
    [[noreturn]] void exitNow(int exitCode);

    const Options m_options;
    StopSignals& m_signals;
    const sal::HostQueueDirectory& m_queueDirectory;
    ControlSocket& m_controlSocket;
    WebPort& m_webPort;
    TerminalRelay* const m_pRelay;
    ServiceManager& m_service;
    LineOwner& m_lineOwner;
    RingPlace& m_ringPlace;
    DeliveryTimes m_deliveries;             ///< taken by the recorder
    std::unique_ptr<Recorder> m_pRecorder;  ///< none where there is no memory for it
    std::unique_ptr<WireTap> m_pWire;
    StateStore m_store;
    AlarmList m_alarms;
    DriverTable m_drivers;
    std::unique_ptr<FidTrail> m_pTrail;
    LogMemory m_log;
    DriverErrors m_errors;
    Surroundings m_surroundings;
    DriverCallWatch m_driverCalls;
    FidTap m_fidTap;
    CommandThread m_commands;
    ByHandWatch m_byHand;
    ProcessSupervisor m_supervisor;
    Workplace m_workplace;
    Following m_following;
    FidCounts m_fidCounts;
    CommandShell m_shell;
    HostSystem m_system;
    FidSenders m_fidSenders;
    LinkAccess m_links;
    HostApi m_api;
    std::unique_ptr<DriverNews> m_pNews;  ///< none unless the workplace asks for it
    std::unique_ptr<Console> m_pConsole;

    std::unique_ptr<MfDriverManager> m_pManager;  ///< the command thread's
    std::atomic<int> m_exitCode = 0;
    std::atomic<bool> m_isApplyPosted = false;  ///< and has not begun
};
