#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "ApiContext.h"
#include "ApiHandler.h"

/// A host of one thread for the API: what is posted runs when the test says so, what is asked of the host is
/// recorded, and the answers are prepared.
class ApiHost {
public:
    using Clock = ApiContext::Clock;

    struct SentFid {
        std::string text;  ///< "AXIS1.MOVE (x=1, y=2)"
        EFidStage waitFor;
        std::chrono::milliseconds limit;
        std::function<void(const FidOutcome&)> told;
        FidSenders::Asker asker = {};
    };
    struct Limit {
        std::chrono::milliseconds time;
        std::function<void()> call;
    };

    explicit ApiHost(std::optional<RestartPlan::Settings> restart = std::nullopt)
        : drivers(store, std::move(restart)) {}
    ApiHost(const ApiHost&) = delete;
    ApiHost& operator=(const ApiHost&) = delete;

    ApiContext context() {
        return {
            .drivers = drivers,
            .store = store,
            .controls = controls,
            .instance = {.version = "1.2.3",
                         .id = "a1b2",
                         .workplace = "/etc/mf/site.xml",
                         .started = std::chrono::system_clock::time_point(std::chrono::hours(24)),
                         .pid = 4711},
            .pRecorded = pRecorded,
            .lookForEnds = [this] { ++looks; },
            .activity = [this] { return activity; },
            .isStopping = [this] { return isStopping; },
            .post =
                [this](const std::string& what, std::function<void()> task) {
                    if (isPosting)
                        posted.emplace_back(what, std::move(task));
                    return isPosting;
                },
            .readPast =
                [this](std::function<void()> task) {
                    if (isPosting)
                        posted.emplace_back("reading of the recording", std::move(task));
                    return isPosting;
                },
            .after =
                [this](std::chrono::milliseconds time, std::function<void()> call) {
                    limits.push_back({time, std::move(call)});
                },
            .changes =
                [this](const std::string& glob, std::uint64_t since) {
                    record("changes " + glob + " since " + std::to_string(since));
                    return changes;
                },
            .reports = [this] { return reports; },
            .queues = [this] { return queues; },
            .deliveries = [this] { return deliveries; },
            .alarms = [this] { return alarms; },
            .alarmList = [this] { return alarmList; },
            .acknowledge =
                [this](const std::string& key) {
                    return std::erase_if(alarmList, [&](const auto& alarm) { return alarm.key == key; }) > 0;
                },
            .shelve =
                [this](const std::string& key, std::chrono::seconds time, const std::string& who) {
                    for (AlarmList::Alarm& alarm : alarmList) {
                        if (alarm.key != key)
                            continue;
                        alarm.shelvedUntil = AlarmList::Clock::now() + time;
                        alarm.shelvedBy = who;
                        return true;
                    }
                    return false;
                },
            .macroNames = [this] { return macroNames; },
            .complete =
                [this](const auto& before, const auto& prefix) {
                    completed = before;
                    completed.push_back(prefix);
                    return words;
                },
            .catalogue = [this] { return catalogue; },
            .place = [this](const std::string& driverID) -> std::optional<ApiContext::Place> {
                const auto place = places.find(driverID);
                return place == places.end() ? std::nullopt : std::optional(place->second);
            },
            .log =
                [this](const ApiLogQuery& query) {
                    record("log of \"" + query.driverID + "\", " + std::to_string(query.lines) +
                           " lines up to level " + std::to_string(query.level));
                    std::vector<ApiLogLine> found;
                    for (const ApiLogLine& line : lines) {
                        if (query.after == 0 || line.number > query.after)
                            found.push_back(line);
                    }
                    return found;
                },
            .lastWords = [this](const std::string&) { return lastWords; },
            .sessions = [this] { return sessions; },
            .fids = [this] { return fids; },
            .answers = [this] { return answers; },
            .panelCode = [this](const ApiCaller&) { return webCode; },
            .pairCode =
                [this](const ApiCaller& asker, ERole role) {
                    record("pair " + std::string(inWords(role)) + " for " + asker.name);
                    return webCode;
                },
            .consoleMeanwhile = [this](const std::string&, unsigned) { return meanwhile; },
            .endWebSession =
                [this](std::uint64_t id) {
                    record("end session " + std::to_string(id));
                    return id == 4;
                },
            .sendFid =
                [this](const std::string& fid, const FIDParameterList& parameters, EFidStage waitFor,
                       std::chrono::milliseconds limit, std::function<void(const FidOutcome&)> told,
                       const FidSenders::Asker& asker) {
                    std::ostringstream text;
                    text << fid << " (" << parameters << ")";
                    sentFids.push_back({text.str(), waitFor, limit, std::move(told), asker});
                },
            .shutDown = [this](const std::string& who) { record("shut down by " + who); },
            .recordWire =
                [this](const std::string& driverID, std::chrono::seconds time) {
                    record("wire of " + driverID + " for " + std::to_string(time.count()) + " s");
                    return pRecorded != nullptr;
                },
            .setState =
                [this](const std::string& key, const StateValue& value) {
                    record("set " + key + " to " + value.typeName() + " " + value.text());
                },
            .unsetState = [this](const std::string& key) { record("unset " + key); },
            .triggerEvent = [this](const std::string& id,
                                   const std::string& value) { record("event " + id + " " + value); },
            .playMacro = [this](const std::string& name) { return outcomeOf("play " + name); },
            .reload = [this](const std::string& driverID) { return outcomeOf("reload " + driverID); },
            .debug = [this](const std::string& driverID) { return outcomeOf("debug " + driverID); },
            .park = [this](const std::string& driverID,
                           const std::string& who) { return outcomeOf("park " + driverID + " by " + who); },
            .unpark = [this](
                          const std::string& driverID,
                          const std::string& who) { return outcomeOf("unpark " + driverID + " by " + who); },
            .plan = [this] { return plan; },
            .apply =
                [this](const std::string& planID, const std::string& who) {
                    record("apply " + planID + " by " + who);
                    return applied;
                },
            .undo =
                [this](unsigned number, const std::string& who) {
                    record("undo " + std::to_string(number) + " by " + who);
                    return applied;
                },
            .history = [this] { return history; },
            .historyFile = [this](unsigned number) -> std::optional<std::string> {
                const auto file = files.find(number);
                return file == files.end() ? std::nullopt : std::optional(file->second);
            },
            .check = [this] { return report; },
            .console =
                [this](const std::string& line, unsigned columns) {
                    const std::string width = columns > 0 ? " in " + std::to_string(columns) : "";
                    const ApiOutcome ended = outcomeOf("console " + line + width);
                    return ApiLine{.output = ended.output, .isDone = ended.refusal.empty()};
                },
            .now = [this] { return now; }};
    }

    /// Runs what is posted, and what that posts.
    void runPosted() {
        while (!posted.empty()) {
            const auto task = std::move(posted.front().second);
            posted.pop_front();
            task();
        }
    }
    /// The time of all limits has come.
    void passLimits() {
        for (const Limit& limit : std::exchange(limits, {}))
            limit.call();
    }

    const RecordedStream* pRecorded = nullptr;
    StateStore store;
    DriverTable drivers;
    Controls controls{
        {.isOpen = [](std::uint64_t) { return true; }, .lookAfter = [](std::chrono::milliseconds) {}}};
    CommandActivity activity;
    bool isStopping = false;
    bool isPosting = true;
    StateStore::Changes changes;
    std::vector<ApiReports> reports;
    std::vector<sal::MessageQueue::Status> queues;
    std::vector<DeliveryTimes::Histogram> deliveries;
    std::size_t alarms = 0;
    std::vector<AlarmList::Alarm> alarmList;
    std::vector<std::string> macroNames;
    std::vector<std::string> words;      ///< that complete any line
    std::vector<std::string> completed;  ///< those of the last line, the prefix behind them
    std::vector<DescriptorCatalogue::Record> catalogue;
    std::map<std::string, ApiContext::Place> places;
    std::vector<ApiLogLine> lines;
    std::vector<std::string> lastWords;
    std::vector<ApiSession> sessions;
    std::vector<FidCounts::Count> fids;
    std::map<unsigned, std::uint64_t> answers;
    std::optional<ApiLine> meanwhile;  ///< the answer to a line that the command thread need not execute
    ApiWebCode webCode;
    ApiOutcome outcome;
    WorkplacePlan plan;
    Applied applied;
    std::vector<HistoryEntry> history;
    std::map<unsigned, std::string> files;
    std::string report = "{}";
    Clock::time_point now = Clock::now();

    int looks = 0;
    std::vector<std::string> calls;  ///< what was asked of the host, in its order
    std::deque<std::pair<std::string, std::function<void()>>> posted;
    std::vector<Limit> limits;
    std::vector<SentFid> sentFids;

private:
    void record(std::string call) { calls.push_back(std::move(call)); }
    ApiOutcome outcomeOf(std::string call) {
        record(std::move(call));
        return outcome;
    }
};
