#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "AlarmList.h"
#include "ApiCall.h"
#include "CommandActivity.h"
#include "Controls.h"
#include "DeliveryTimes.h"
#include "DescriptorCatalogue.h"
#include "DriverTable.h"
#include "FIDParameterList.h"
#include "FidCounts.h"
#include "FidOutcome.h"
#include "FidSenders.h"
#include "FidTrail.h"
#include "HistoryEntry.h"
#include "Observation.h"
#include "RecordedStream.h"
#include "StateStore.h"
#include "WorkplacePlan.h"
#include "sal/MessageQueue.h"

/// Which lines of the log are asked for.
struct ApiLogQuery {
    std::string driverID;     ///< empty for all
    std::size_t lines = 0;    ///< the last ones, at most
    int level = 0;            ///< as sal::LogOutput has them; those above it are left out
    std::uint64_t after = 0;  ///< only lines that came after the one of that number
};

struct ApiLogLine {
    std::chrono::system_clock::time_point when;
    int level = 0;
    std::string output;
    std::string driverID;  ///< whom it concerns; empty for none
    std::string text;
    std::uint64_t number = 0;  ///< counts all lines from 1 on
};

/// What a driver has reported since the host has started: values and events.
struct ApiReports {
    std::string driverID;
    std::uint64_t received = 0;  ///< came from it
    std::uint64_t merged = 0;    ///< of these, merged with later ones before they were delivered
    std::uint64_t changes = 0;   ///< of the others, changed something
};

/// One connection to the control socket, or one session of the web panel.
struct ApiSession {
    std::uint64_t id = 0;  ///< of both together, none has that of another
    std::string user;
    unsigned uid = 0;
    std::optional<int> pid;  ///< of a connection alone
    ERole role = ERole::None;
    std::chrono::system_clock::time_point since;
    std::uint64_t requests = 0;
    // Of a session of the web panel.
    std::string address = {};  ///< from which it was opened; empty for a token of a file
    std::optional<std::chrono::system_clock::time_point> used = {};
    std::optional<std::chrono::system_clock::time_point> expires = {};  ///< none of a token of a file
};

/// A code that opens a session of the web panel.
struct ApiWebCode {
    std::string refusal;  ///< why there is none; empty when there is one
    std::string code;
    std::string url;  ///< where the panel is, without the code
    std::chrono::milliseconds validFor{0};
};

/// What a change of the workplace or a macro came to.
struct ApiOutcome {
    std::string refusal;  ///< why it is not done; empty when it was
    std::string output;   ///< what was printed meanwhile
};

/// What a console line came to.
struct ApiLine {
    std::string output;  ///< what was printed for it
    bool isDone = true;  ///< it has done what it was to do
};

/// All that the API needs of the host. What is called without a word on its thread is called on the API's
/// thread and returns at once; what is marked so is called on the command thread alone.
struct ApiContext {
    using Clock = std::chrono::steady_clock;

    struct Instance {
        std::string version;    ///< of the host
        std::string id;         ///< new at each start
        std::string workplace;  ///< the workplace file; empty for none
        std::chrono::system_clock::time_point started;
        int pid = 0;
        std::string ring = {};       ///< the file of the stream; empty for none
        std::string recording = {};  ///< the directory of what is kept of it; empty where nothing is
    };
    /// What the workplace file that the module has says of a driver.
    struct Place {
        std::string directory;
        std::string networkAdapter;
    };

    const DriverTable& drivers;
    const StateStore& store;
    Controls& controls;
    Instance instance;
    Observation* pObservation = nullptr;        ///< where actions are recorded; null for nowhere
    const RecordedStream* pRecorded = nullptr;  ///< null where nothing is recorded

    /// Tells the table of drivers and the store of processes that have ended by now.
    std::function<void()> lookForEnds;
    std::function<CommandActivity()> activity;
    /// Any thread.
    std::function<bool()> isStopping;
    /// Runs it on the command thread; false when that is stopping or has too much to do.
    std::function<bool(const std::string& what, std::function<void()> task)> post;
    /// Runs it on the thread that reads what was recorded, which may take some seconds; false where too many
    /// wait there. What it calls of this context says of itself that any thread may.
    std::function<bool(std::function<void()> task)> readPast;
    /// Calls back when the time has come, on any thread but the calling one.
    std::function<void(std::chrono::milliseconds time, std::function<void()> call)> after;

    std::function<StateStore::Changes(const std::string& glob, std::uint64_t since)> changes;
    /// In byte order of the IDs.
    std::function<std::vector<ApiReports>()> reports;
    std::function<std::vector<sal::MessageQueue::Status>()> queues;
    /// How long messages stood in them; none where nothing is recorded.
    std::function<std::vector<DeliveryTimes::Histogram>()> deliveries;
    /// How many are in sight.
    std::function<std::size_t()> alarms;
    std::function<std::vector<AlarmList::Alarm>()> alarmList;
    /// False when there is none of that key.
    std::function<bool(const std::string& key)> acknowledge;
    /// As AlarmList::shelve.
    std::function<bool(const std::string& key, std::chrono::seconds time, const std::string& who)> shelve;
    std::function<std::vector<std::string>()> macroNames;
    /// The words that begin with the prefix and may follow these in a console line.
    std::function<std::vector<std::string>(const std::vector<std::string>& before, const std::string& prefix)>
        complete;
    std::function<std::vector<DescriptorCatalogue::Record>()> catalogue;
    std::function<std::optional<Place>(const std::string& driverID)> place;
    /// Oldest first.
    std::function<std::vector<ApiLogLine>(const ApiLogQuery& query)> log;
    /// What the driver's process wrote to standard error last before it ended, oldest line first.
    std::function<std::vector<std::string>(const std::string& driverID)> lastWords;
    std::function<std::vector<ApiSession>()> sessions;
    std::function<std::vector<FidCounts::Count>()> fids;
    /// How many requests were answered, by status.
    std::function<std::map<unsigned, std::uint64_t>()> answers;
    /// A long code with the asker's role.
    std::function<ApiWebCode(const ApiCaller& asker)> panelCode;
    /// Six digits with that role, which is the asker's at most.
    std::function<ApiWebCode(const ApiCaller& asker, ERole role)> pairCode;
    /// As console, for a line that only looks while another command holds the command thread up; nothing
    /// where that thread is to be waited for. Any thread.
    std::function<std::optional<ApiLine>(const std::string& line, unsigned columns)> consoleMeanwhile;
    /// False when there is no session of the web panel of that number.
    std::function<bool(std::uint64_t id)> endWebSession;

    /// Returns at once; told is called as FidSenders says, on any thread.
    std::function<void(const std::string& fid, const FIDParameterList& parameters, EFidStage waitFor,
                       std::chrono::milliseconds limit, std::function<void(const FidOutcome&)> told,
                       const FidSenders::Asker& asker)>
        sendFid;
    /// Any thread; the host stops some time later.
    std::function<void(const std::string& who)> shutDown;
    /// Records the messages in the driver's queues for so long; false where nothing is recorded.
    std::function<bool(const std::string& driverID, std::chrono::seconds time)> recordWire;

    // On the command thread.
    std::function<void(const std::string& key, const StateValue& value)> setState;
    std::function<void(const std::string& key)> unsetState;
    std::function<void(const std::string& id, const std::string& value)> triggerEvent;
    std::function<ApiOutcome(const std::string& name)> playMacro;
    std::function<ApiOutcome(const std::string& driverID)> reload;
    std::function<ApiOutcome(const std::string& driverID)> debug;
    std::function<ApiOutcome(const std::string& driverID, const std::string& who)> park;
    std::function<ApiOutcome(const std::string& driverID, const std::string& who)> unpark;
    std::function<WorkplacePlan()> plan;
    std::function<Applied(const std::string& planID, const std::string& who)> apply;
    /// 0 is the state before the one now.
    std::function<Applied(unsigned number, const std::string& who)> undo;
    std::function<std::vector<HistoryEntry>()> history;
    /// The workplace file as it was then; nothing for a number that is not kept.
    std::function<std::optional<std::string>(unsigned number)> historyFile;
    /// What CheckReport writes as JSON.
    std::function<std::string()> check;
    /// Tables fit into so many columns; 0: they are as wide as their texts.
    std::function<ApiLine(const std::string& line, unsigned columns)> console;

    std::function<Clock::time_point()> now = Clock::now;
};
