#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "AlarmList.h"
#include "AnswerCounts.h"
#include "ApiHandler.h"
#include "ApiServer.h"
#include "CommandShell.h"
#include "CommandThread.h"
#include "ControlSocket.h"
#include "Controls.h"
#include "Deadlines.h"
#include "DeliveryTimes.h"
#include "DriverTable.h"
#include "FidCounts.h"
#include "FidSenders.h"
#include "IMacroSystem.h"
#include "LiveSource.h"
#include "LogMemory.h"
#include "Options.h"
#include "ReadingThread.h"
#include "Recorder.h"
#include "StateStore.h"
#include "WebPort.h"
#include "WebSessions.h"
#include "WireTap.h"
#include "Workplace.h"

/// The host's API on its control socket and its web port: binds what it asks for to the host's parts. Made by
/// Host, which starts and stops it; outlives what runs on the command thread.
class HostApi {
public:
    struct Parts {
        const Options& options;
        CommandThread& commands;
        StateStore& store;
        const DriverTable& drivers;
        Workplace& workplace;
        AlarmList& alarms;
        CommandShell& shell;
        const LogMemory& log;
        FidSenders& senders;
        const FidCounts& fids;
        const DeliveryTimes& deliveries;
        Recorder* pRecorder = nullptr;  ///< null where nothing is recorded
        WireTap* pWire = nullptr;       ///< the same
        std::string ring = {};          ///< the file of the stream; empty for none
        std::function<void()> lookForEnds;
        std::function<void(const std::string& reason)> shutDown;
        /// The panel driver's macro system; null where there is none. Called on the command thread.
        std::function<IMacroSystem*()> macroSystem;
    };

    explicit HostApi(Parts parts);
    HostApi(const HostApi&) = delete;
    HostApi& operator=(const HostApi&) = delete;

    /// Serves the clients of socket and port from now on, as far as they are open. An exception says that no
    /// thread can be had.
    void start(ControlSocket& socket, WebPort& port);
    /// The host is stopping: actions are refused with that. Any thread.
    void beginShutdown() { m_isStopping = true; }
    /// Takes over what only the command thread may look at. On it, after each command.
    void refresh();
    /// Ends all connections, within two seconds. Command thread.
    void stop();

private:
    ApiContext context();
    std::vector<std::string> macroNames() const;
    std::vector<ApiReports> reports() const;
    bool recordWire(const std::string& driverID, std::chrono::seconds time) const;
    std::vector<ApiLogLine> logLines(const ApiLogQuery& query) const;
    ApiOutcome playMacro(const std::string& name) const;
    void setState(const std::string& key, const StateValue& value) const;
    void addWeb(WebPort& port);
    void restoreSessions();
    void saveSessions();
    std::vector<ApiSession> sessions() const;
    ApiWebCode webCode(const std::string& url, const std::function<std::string()>& make) const;

    const Parts m_parts;
    std::atomic<bool> m_isStopping = false;
    AnswerCounts m_answers;
    Deadlines m_deadlines;
    mutable std::mutex m_mutex;
    std::vector<DescriptorCatalogue::Record> m_catalogue;
    std::vector<WorkplaceFile::Entry> m_entries;
    std::vector<std::string> m_macroNames;
    WebSessions m_webSessions;
    const std::string m_sessionFile;
    std::atomic<bool> m_isSessionNews = false;  ///< the file is older than the sessions
    Controls m_controls;
    std::string m_webUrl;  ///< empty where there is no panel; set before the API's thread runs
    std::string m_webUrlElsewhere;
    const ApiContext m_context;
    LiveSource m_live;
    ApiHandler m_handler;
    ReadingThread m_readings;
    ApiServer m_server;
};
