#include "ApiActions.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "ApiFault.h"
#include "HostLog.h"
#include "JsonText.h"
#include "Nearest.h"

namespace {

using ECode = ApiFault::ECode;

constexpr const char* s_nothing = "{}";
/// In bytes: so much of a value that is set from outside the host keeps, times as many as the console may
/// have.
constexpr std::size_t s_longestKey = 1024;
constexpr std::size_t s_longestValue = 8192;
constexpr unsigned s_usualWire = 60;
constexpr std::chrono::seconds s_longestWire{3600};

/// Before a line that waits is looked at again: a command that began when it came holds it up by then.
constexpr std::chrono::seconds s_linePatience{3};

void limitLength(const char* pMember, const std::string& text, std::size_t most) {
    if (text.size() > most)
        throw ApiFault(ECode::RequestInvalid, std::string("\"") + pMember + "\" has " +
                                                  std::to_string(text.size()) + " bytes where " +
                                                  std::to_string(most) + " at most are kept");
}

/// Who changes what runs stands in the log.
void logAction(const ApiRequest& request, const std::string& what) {
    hostLog(sal::LogOutput::eInfo) << what << ", asked for by " << request.caller.who() << std::endl;
}

FidSenders::Asker askerOf(const ApiCaller& caller) {
    return {caller.isOfPanel() ? stream::EOrigin::Panel : stream::EOrigin::Api, caller.who()};
}

/// Where the outcome has no text.
const char* textOf(EFidReason reason) {
    static constexpr std::array<const char*, 10> s_texts{
        "it reached no driver",           "there is no such driver",
        "the driver does not run",        "the driver takes no FIDs",
        "it is too long for one message", "the driver knows no such function",
        "the driver's queue is full",     "the host is stopping",
        "the driver has refused it",      "the driver has thrown an exception"};
    return s_texts.at(static_cast<std::size_t>(reason));
}

/// Why it did not arrive.
ApiFault undelivered(const std::string& fid, const FidOutcome& outcome) {
    const std::string text =
        outcome.text.empty() ? fid + " is not delivered: " + textOf(outcome.reason) : outcome.text;
    if (outcome.reason == EFidReason::QueueFull)
        return {ECode::QueueFull, text};
    if (outcome.reason == EFidReason::Stopping)
        return {ECode::Stopping, text};
    return ApiFault(ECode::FidUndelivered, text, outcome.nearest)
        .withReason(inWords(outcome.reason == EFidReason::None ? EFidReason::NoSuchDriver : outcome.reason));
}

ApiAnswer answerOf(const ApiWebCode& code, ERole role) {
    if (!code.refusal.empty())
        return ApiFault(ECode::Refused, code.refusal).answer();
    JsonText json;
    json.beginObject()
        .member("code", code.code)
        .member("url", code.url)
        .member("role", inWords(role))
        .member("validMs", code.validFor)
        .endObject();
    return {.body = json.take()};
}

ApiAnswer answerOf(const std::string& fid, EFidStage waitFor, const FidOutcome& outcome,
                   const std::string& request) {
    if (outcome.reason != EFidReason::None || outcome.stage == EFidStage::Nobody)
        return undelivered(fid, outcome).answer();
    JsonText json;
    json.beginObject();
    if (!request.empty())
        json.member("request", request);
    json.member("fid", fid).member("driver", outcome.driverID).member("stage", inWords(outcome.stage));
    if (outcome.result)
        json.member("result", *outcome.result);
    json.member("tookUs", outcome.took.count()).endObject();
    const bool isOver = outcome.isFinal || outcome.stage >= waitFor;
    return {.status = isOver ? 200u : 202u, .body = json.take()};
}

const char* word(WorkplacePlan::EAction action) {
    static constexpr std::array<const char*, 6> s_words{"reload", "load",         "remove",
                                                        "rescan", "restart-host", "none"};
    return s_words.at(static_cast<std::size_t>(action));
}

JsonText& write(JsonText& json, const WorkplacePlan::Change& change) {
    return json.member("action", word(change.action))
        .member("driver", change.driverID)
        .member("reason", change.reason);
}

ApiAnswer answerOf(const WorkplacePlan& plan) {
    JsonText json;
    json.beginObject()
        .member("plan", plan.id)
        .member("digest", plan.digest)
        .member("refusal", plan.refusal)
        .name("findings")
        .beginArray();
    for (const Finding& finding : plan.findings)
        json.beginObject()
            .member("severity", finding.isError() ? "error" : "warning")
            .member("file", finding.file)
            .member("line", finding.line > 0 ? std::optional(finding.line) : std::nullopt)
            .member("text", finding.text)
            .endObject();
    json.endArray().name("changes").beginArray();
    for (const WorkplacePlan::Change& change : plan.changes)
        write(json.beginObject(), change).endObject();
    json.endArray().endObject();
    return {.body = json.take()};
}

ApiAnswer answerOf(const ApiLine& executed) {
    JsonText json;
    json.beginObject().member("output", executed.output).member("done", executed.isDone).endObject();
    return {.body = json.take()};
}

ApiAnswer answerOf(const Applied& applied) {
    if (!applied.refusal.empty())
        throw ApiFault(applied.isOutdated ? ECode::PlanOutdated : ECode::Refused, applied.refusal);
    JsonText json;
    json.beginObject().member("history", applied.history).name("changes").beginArray();
    for (const AppliedChange& done : applied.changes)
        write(json.beginObject(), done.change)
            .member("done", done.isDone)
            .member("why", done.reason)
            .endObject();
    json.endArray().endObject();
    return {.body = json.take()};
}

}  // namespace

void ApiActions::perform(const std::shared_ptr<PendingAction>& pAction, const ApiCaller& caller,
                         const std::string& what, std::function<ApiAnswer()> run, ERecorded recorded) const {
    Observation* const pObservation = recorded == ERecorded::Here ? m_context.pObservation : nullptr;
    const auto task = [pAction, pObservation, what, asker = askerOf(caller), run = std::move(run)] {
        const FidTrail::Asking asking(asker.origin, asker.who);
        Observation::Command command(pObservation, {.origin = asker.origin, .who = asker.who}, what);
        try {
            pAction->end(run());
            command.setResult(true);
        } catch (const ApiFault& fault) {
            command.setResult(false, fault.what());
            pAction->end(fault.answer());
        } catch (const std::exception& error) {
            // The command thread says in the log what is broken off.
            pAction->end(ApiFault(ECode::Internal, error.what()).answer());
            throw;
        }
    };
    if (m_context.post(what, task))
        return;
    if (m_context.isStopping())
        throw ApiFault(ECode::Stopping, "the host is stopping");
    throw ApiFault(ECode::Busy, "the host has too many commands waiting");
}

void ApiActions::record(const ApiCaller& caller, const std::string& command) const {
    const FidSenders::Asker asker = askerOf(caller);
    Observation::Command(m_context.pObservation, {.origin = asker.origin, .who = asker.who}, command)
        .setResult(true);
}

ApiAnswer ApiActions::answer(const ApiOutcome& outcome) const {
    if (!outcome.refusal.empty())
        throw ApiFault(ECode::Refused, outcome.refusal);
    JsonText json;
    json.beginObject().member("output", outcome.output).endObject();
    return {.body = json.take()};
}

/// What was not done with the driver: "started" and so on.
ApiAnswer ApiActions::answer(const ApiOutcome& outcome, const std::string& driverID,
                             const char* pDone) const {
    if (!outcome.refusal.empty()) {
        needDriver(driverID);
        throw ApiFault(ECode::Refused, driverID + " is not " + pDone + ": " + outcome.refusal);
    }
    JsonText json;
    json.beginObject().member("output", outcome.output);
    m_reading.addDriver(json, driverID);
    json.endObject();
    return {.body = json.take()};
}

void ApiActions::needDriver(const std::string& driverID) const {
    if (!m_context.drivers.find(driverID))
        throw m_reading.unknownDriver(driverID);
}

void ApiActions::sendFid(const ApiRequest& request) const {
    static const std::vector<std::string> s_waits{"accepted", "dispatched", "delivered", "taken"};
    static constexpr std::array<EFidStage, 4> s_stages{EFidStage::Accepted, EFidStage::Dispatched,
                                                       EFidStage::Delivered, EFidStage::Taken};
    const std::string fid = request.body.text("fid");
    const EFidStage waitFor = s_stages.at(request.body.choice("wait", s_waits));
    m_context.sendFid(
        fid, request.body.parameters(), waitFor, request.body.timeout(),
        [fid, waitFor, pAction = request.pAction](const FidOutcome& outcome) {
            const ApiAnswer answer = answerOf(fid, waitFor, outcome, pAction->request());
            if (outcome.isInterim)
                pAction->tellProgress(answer);
            else
                pAction->end(answer);
        },
        askerOf(request.caller));
}

void ApiActions::setState(const ApiRequest& request) const {
    const std::string key = request.body.text("key");
    const StateValue value = request.body.stateValue();
    limitLength("key", key, s_longestKey);
    limitLength("value", value.text(), s_longestValue);
    perform(request.pAction, request.caller, "setStateValue " + key, [this, key, value] {
        m_context.setState(key, value);
        return ApiAnswer{.body = s_nothing};
    });
}

void ApiActions::unsetState(const ApiRequest& request) const {
    const std::string key = request.body.text("key");
    perform(request.pAction, request.caller, "unsetStateValue " + key, [this, key] {
        if (!m_context.store.find(key)) {
            const std::string owner = key.substr(0, key.find('.') + 1);
            throw ApiFault(ECode::StateUnknown, "there is no value " + key,
                           base::nearest(key, m_context.store.keys(owner)));
        }
        m_context.unsetState(key);
        return ApiAnswer{.body = s_nothing};
    });
}

void ApiActions::triggerEvent(const ApiRequest& request) const {
    const std::string id = request.body.text("id");
    const std::string value = request.body.anyText("value");
    perform(request.pAction, request.caller, "triggerEvent " + id, [this, id, value] {
        m_context.triggerEvent(id, value);
        return ApiAnswer{.body = s_nothing};
    });
}

void ApiActions::acknowledge(const ApiRequest& request) const {
    changeAlarms(request, {.member = "acknowledged", .verb = "acknowledge ", .said = "acknowledged"},
                 m_context.acknowledge);
}

void ApiActions::shelve(const ApiRequest& request) const {
    const std::chrono::seconds time(request.body.optionalNumber("seconds"));
    if (time > AlarmList::s_longestShelving)
        throw ApiFault(ECode::RequestInvalid,
                       "\"seconds\" is at most " + std::to_string(AlarmList::s_longestShelving.count()));
    const std::string seconds = std::to_string(time.count());
    changeAlarms(request,
                 {.member = "shelved",
                  .verb = "shelve ",
                  .arguments = " " + seconds,
                  .said = time.count() > 0 ? "shelved for " + seconds + " s" : "put back in sight"},
                 [&](const std::string& key) { return m_context.shelve(key, time, request.caller.name); });
}

void ApiActions::changeAlarms(const ApiRequest& request, const AlarmChange& change,
                              const std::function<bool(const std::string& key)>& perform) const {
    const std::vector<std::string> keys = request.body.texts("keys", AlarmList::s_capacity);
    std::vector<std::string> known;
    for (const AlarmList::Alarm& alarm : m_context.alarmList())
        known.push_back(alarm.key);
    const std::string who = request.caller.who();
    std::size_t count = 0;
    JsonText json;
    json.beginObject().name(change.member).beginArray();
    for (const std::string& key : keys) {
        if (!perform(key))
            continue;
        ++count;
        json.value(key);
        record(request.caller, change.verb + key + change.arguments);
        hostLog(sal::LogOutput::eInfo)
            << key << ": the alarm is " << change.said << " by " << who << std::endl;
    }
    // Another operator may have been faster with some of them.
    if (count == 0)
        throw ApiFault(ECode::AlarmUnknown, "there is no alarm " + keys.front(),
                       base::nearest(keys.front(), known));
    json.endArray().endObject();
    request.pAction->end({.body = json.take()});
}

void ApiActions::changeControls(const ApiRequest& request) const {
    const bool isTaken = request.body.flag("take");
    const bool isOnlyFree = request.body.optionalFlag("unlessHeld");
    const ApiCaller& caller = request.caller;
    const Controls::Change change =
        isTaken ? m_context.controls.take(caller, isOnlyFree) : m_context.controls.giveBack(caller);
    const std::string former = change.former ? change.former->caller.who() : std::string();
    if (!change.isDone && isTaken)
        throw ApiFault(ECode::Refused, former + " has the controls");
    if (!change.isDone)
        throw ApiFault(ECode::NotAllowed,
                       former + " has the controls; the holder or an admin gives them back");
    const bool isOwn = change.former && Controls::isSame(change.former->caller, caller);
    // To take what one has, or to give back what nobody has, is no event.
    if (isTaken ? !isOwn : change.former.has_value()) {
        const std::string of = change.former && !isOwn ? " of " + former : "";
        const std::string over = change.former ? " over from " + former : "";
        record(caller, isTaken ? "take the controls" + over : "give the controls" + of + " back");
        hostLog(sal::LogOutput::eInfo)
            << caller.who() << (isTaken ? " takes the controls" + over : " gives the controls" + of + " back")
            << std::endl;
    }
    request.pAction->end({.body = m_reading.controls()});
}

void ApiActions::recordWire(const ApiRequest& request) const {
    needDriver(request.name);
    const unsigned given = request.body.optionalNumber("seconds");
    const std::chrono::seconds time(given > 0 ? given : s_usualWire);
    if (time > s_longestWire)
        throw ApiFault(ECode::RequestInvalid,
                       "\"seconds\" is at most " + std::to_string(s_longestWire.count()));
    if (!m_context.recordWire(request.name, time))
        throw ApiFault(ECode::Refused, "the host does not record (--record-off)");
    record(request.caller, "wire of " + request.name + " for " + std::to_string(time.count()) + " s");
    request.pAction->end({.body = s_nothing});
}

void ApiActions::playMacro(const ApiRequest& request) const {
    const std::vector<std::string> names = m_context.macroNames();
    if (std::find(names.begin(), names.end(), request.name) == names.end())
        throw ApiFault(ECode::MacroUnknown, "there is no macro " + request.name,
                       base::nearest(request.name, names));
    perform(request.pAction, request.caller, "macro " + request.name,
            [this, name = request.name] { return answer(m_context.playMacro(name)); });
}

void ApiActions::reload(const ApiRequest& request) const {
    // A driver that only the workplace file knows is loaded for the first time.
    const std::string what = "reload of " + request.name;
    logAction(request, what);
    perform(request.pAction, request.caller, what,
            [this, name = request.name] { return answer(m_context.reload(name), name, "reloaded"); });
}

void ApiActions::debug(const ApiRequest& request) const {
    needDriver(request.name);
    const std::string what = "reload of " + request.name + " under a debugger";
    logAction(request, what);
    perform(request.pAction, request.caller, what,
            [this, name = request.name] { return answer(m_context.debug(name), name, "reloaded"); });
}

void ApiActions::park(const ApiRequest& request) const {
    needDriver(request.name);
    const std::string what = "stop of " + request.name;
    logAction(request, what);
    perform(request.pAction, request.caller, what, [this, name = request.name, who = request.caller.name] {
        return answer(m_context.park(name, who), name, "stopped");
    });
}

void ApiActions::unpark(const ApiRequest& request) const {
    needDriver(request.name);
    const std::string what = "start of " + request.name;
    logAction(request, what);
    perform(request.pAction, request.caller, what, [this, name = request.name, who = request.caller.name] {
        return answer(m_context.unpark(name, who), name, "started");
    });
}

void ApiActions::plan(const ApiRequest& request) const {
    perform(request.pAction, request.caller, "plan", [this] { return answerOf(m_context.plan()); });
}

void ApiActions::apply(const ApiRequest& request) const {
    const std::string plan = request.body.optionalText("plan").value_or("");
    logAction(request, "apply");
    perform(request.pAction, request.caller, "apply",
            [this, plan, who = request.caller.name] { return answerOf(m_context.apply(plan, who)); });
}

void ApiActions::undo(const ApiRequest& request) const {
    const unsigned number = request.body.optionalNumber("number");
    logAction(request, "undo");
    perform(request.pAction, request.caller, "undo",
            [this, number, who = request.caller.name] { return answerOf(m_context.undo(number, who)); });
}

void ApiActions::check(const ApiRequest& request) const {
    perform(request.pAction, request.caller, "check",
            [this] { return ApiAnswer{.body = m_context.check()}; });
}

void ApiActions::console(const ApiRequest& request) const {
    const std::string line = request.body.text("line");
    const unsigned columns = request.body.optionalNumber("columns");
    logAction(request, "\"" + line + "\"");
    if (const auto executed = m_context.consoleMeanwhile(line, columns)) {
        request.pAction->end(answerOf(*executed));
        return;
    }
    /// The thread that takes it answers the line.
    struct Turn {
        std::mutex mutex;
        bool isTaken = false;
    };
    const auto pTurn = std::make_shared<Turn>();
    perform(
        request.pAction, request.caller, line,
        [this, line, columns, pTurn] {
            std::unique_lock lock(pTurn->mutex);
            if (std::exchange(pTurn->isTaken, true))
                return ApiAnswer();  // was given
            lock.unlock();
            return answerOf(m_context.console(line, columns));
        },
        ERecorded::Elsewhere);
    m_context.after(s_linePatience, [this, line, columns, pTurn, pAction = request.pAction] {
        const std::lock_guard lock(pTurn->mutex);
        if (pTurn->isTaken)
            return;
        if (const auto executed = m_context.consoleMeanwhile(line, columns)) {
            pTurn->isTaken = true;
            pAction->end(answerOf(*executed));
        }
    });
}

void ApiActions::shutDown(const ApiRequest& request) const {
    request.pAction->end({.body = s_nothing});
    // Before the recording ends with the host.
    record(request.caller, "shutdown");
    m_context.shutDown(request.caller.who());
}

void ApiActions::openPanel(const ApiRequest& request) const {
    giveCode(request, m_context.panelCode(request.caller), request.caller.role);
}

void ApiActions::pair(const ApiRequest& request) const {
    static const std::vector<std::string> s_roles{"operate", "view", "admin"};
    static constexpr std::array<ERole, 3> s_meant{ERole::Operate, ERole::View, ERole::Admin};
    const ERole role = s_meant.at(request.body.choice("role", s_roles));
    if (role > request.caller.role)
        throw ApiFault(ECode::NotAllowed, request.caller.name + " has \"" + inWords(request.caller.role) +
                                              "\" and can give no more than that");
    giveCode(request, m_context.pairCode(request.caller, role), role);
}

/// Who lets somebody in stands in the log; the code itself nowhere.
void ApiActions::giveCode(const ApiRequest& request, const ApiWebCode& code, ERole role) const {
    if (code.refusal.empty()) {
        const std::string what = std::string("code for the web panel with the role ") + inWords(role);
        logAction(request, what);
        record(request.caller, what);
    }
    request.pAction->end(answerOf(code, role));
}

void ApiActions::endSession(const ApiRequest& request) const {
    std::uint64_t id = 0;
    const char* pEnd = request.name.data() + request.name.size();
    const auto [pRead, fault] = std::from_chars(request.name.data(), pEnd, id);
    if (fault != std::errc() || pRead != pEnd || !m_context.endWebSession(id))
        throw ApiFault(ECode::NotFound, "there is no session " + request.name + " of the web panel");
    const std::string what = "end of the web panel's session " + request.name;
    logAction(request, what);
    record(request.caller, what);
    request.pAction->end({.body = s_nothing});
}
