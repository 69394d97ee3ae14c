#include "WorkplaceChanges.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "FileExchange.h"
#include "HostLog.h"
#include "PanelNames.h"
#include "WorkplaceRestoring.h"

namespace {

Applied refused(const std::string& reason) {
    Applied applied;
    applied.refusal = reason;
    return applied;
}

/// What was done, for the log.
const char* done(WorkplacePlan::EAction action) {
    switch (action) {
        case WorkplacePlan::EAction::Reload:
            return "reloaded";
        case WorkplacePlan::EAction::Load:
            return "started";
        case WorkplacePlan::EAction::Remove:
            return "removed";
        case WorkplacePlan::EAction::Rescan:
            return "read";
        case WorkplacePlan::EAction::RestartHost:
        case WorkplacePlan::EAction::None:
            break;
    }
    return "taken over";
}

/// One line.
void tell(const AppliedChange& applied, const std::string& who) {
    const WorkplacePlan::Change& change = applied.change;
    if (change.action == WorkplacePlan::EAction::RestartHost) {
        hostLog(sal::LogOutput::eWarning) << change.reason << std::endl;
        return;
    }
    auto& line = hostLog(applied.isDone ? sal::LogOutput::eInfo : sal::LogOutput::eError);
    if (change.driverID.empty())
        line << change.reason << (applied.isDone ? " and is " : " and is not ") << done(change.action)
             << " by " << who;
    else
        line << change.driverID << (applied.isDone ? ": is " : ": is not ") << done(change.action) << " by "
             << who << " (" << change.reason << ")";
    if (!applied.isDone)
        line << ": " << applied.reason;
    line << std::endl;
}

}  // namespace

WorkplaceChanges::WorkplaceChanges(WorkplacePlanner::Settings settings, std::string historyDirectory,
                                   Actions actions)
    : m_planner(std::move(settings)), m_history(std::move(historyDirectory)), m_actions(std::move(actions)) {}

void WorkplaceChanges::readHistory() {
    for (const std::string& complaint : m_history.read())
        hostLog(sal::LogOutput::eWarning) << complaint << std::endl;
}

WorkplaceChanges::Draft WorkplaceChanges::draft() const {
    return m_planner.draft(m_actions.running());
}

WorkplacePlan WorkplaceChanges::plan() {
    Draft planned = draft();
    if (!m_actions.isReady())
        planned.plan.refusal = stopping;
    m_planner.keep(planned);
    return planned.plan;
}

Applied WorkplaceChanges::apply(const std::string& planID, const std::string& who) {
    if (!m_actions.isReady())
        return refused(stopping);
    const Draft now = draft();
    std::string reason = planID.empty() ? std::string() : m_planner.outdated(planID, now);
    const bool isOutdated = !reason.empty();
    if (reason.empty())
        reason = now.plan.refusal;
    if (reason.empty())
        return carryOut(now, who, "apply", 0);
    hostLog(sal::LogOutput::eError) << "apply by " << who << " is refused, nothing is changed: " << reason
                                    << std::endl;
    Applied applied = refused(reason);
    applied.isOutdated = isOutdated;
    return applied;
}

Applied WorkplaceChanges::carryOut(const Draft& draft, const std::string& who, const std::string& what,
                                   unsigned restores) {
    using enum WorkplacePlan::EAction;
    const auto& changes = draft.plan.changes;
    std::set<std::string> leavingIDs;
    for (const WorkplacePlan::Change& change : changes) {
        if (change.action == Remove)
            leavingIDs.insert(change.driverID);
    }
    const bool isPanelChanged = std::any_of(changes.begin(), changes.end(), [](const auto& change) {
        return change.driverID == protocol::panelDriverID;
    });
    Applied applied;
    applied.refusal = m_actions.hand(draft, leavingIDs, isPanelChanged);
    if (!applied.refusal.empty()) {
        hostLog(sal::LogOutput::eError)
            << what << " by " << who << " is refused, nothing is changed: " << applied.refusal << std::endl;
        return applied;
    }
    for (const WorkplacePlan::Change& change : changes)
        applied.changes.push_back(carryOut(draft, change, who));
    m_actions.end(draft);
    applied.history = keep(draft, who, applied.outcome(), restores);
    const bool isAllDone = std::all_of(applied.changes.begin(), applied.changes.end(),
                                       [](const AppliedChange& change) { return change.isDone; });
    hostLog(isAllDone ? sal::LogOutput::eInfo : sal::LogOutput::eWarning)
        << what << " by " << who << ": " << applied.outcome() << std::endl;
    return applied;
}

AppliedChange WorkplaceChanges::carryOut(const Draft& draft, const WorkplacePlan::Change& change,
                                         const std::string& who) {
    AppliedChange applied{change, false, {}};
    try {
        applied.reason = m_actions.change(draft, change);
    } catch (const std::exception& error) {
        // Memory or a descriptor: the others may do with less.
        applied.reason = std::string("it was broken off: ") + error.what();
    }
    applied.isDone = applied.reason.empty();
    tell(applied, who);
    return applied;
}

std::string WorkplaceChanges::beforeFirst() const {
    const HistoryEntry* pPresent = m_history.present();
    if (!pPresent)
        return "no state was kept";
    const std::string number = std::to_string(pPresent->number);
    return "there is no state before the present one, which is " + number + "; undo " + number +
           " gives its files back";
}

Applied WorkplaceChanges::undo(unsigned number, const std::string& who) {
    if (!m_actions.isReady())
        return refused(stopping);
    const HistoryEntry* pTarget = number ? m_history.find(number) : m_history.beforePresent();
    if (!pTarget)
        return refused(number ? "there is no state " + std::to_string(number) + "; history lists them"
                              : beforeFirst());
    const HistoryEntry target = *pTarget;
    Applied applied;
    const std::optional<WorkplaceState> state = m_history.state(target.number, applied.refusal);
    if (!state)
        return applied;
    const auto changes = changesBackTo(*state, m_planner.settings(), applied.notes, applied.refusal);
    FileExchange exchange;
    if (applied.refusal.empty())
        applied.refusal = keepUnapplied(who);
    if (applied.refusal.empty())
        applied.refusal = exchange.perform(changes);
    if (!applied.refusal.empty())
        return applied;
    const Draft restored = draft();
    if (!restored.plan.refusal.empty()) {
        const std::string left = exchange.takeBack();
        applied.refusal = "state " + std::to_string(target.number) + " is refused: " + restored.plan.refusal +
                          (left.empty() ? "; the files are as they were" : "; " + left);
        hostLog(sal::LogOutput::eError) << "undo by " << who << ": " << applied.refusal << std::endl;
        return applied;
    }
    std::vector<std::string> notes = std::move(applied.notes);
    for (const std::string& note : notes)
        hostLog(sal::LogOutput::eWarning) << "undo by " << who << ": " << note << std::endl;
    for (const FileExchange::Change& change : changes) {
        notes.push_back(change.path + (change.bytes ? " is given back" : " is taken away again"));
        hostLog(sal::LogOutput::eInfo) << "undo by " << who << ": " << notes.back() << std::endl;
    }
    applied = carryOut(restored, who, "undo of state " + std::to_string(target.number), target.state());
    applied.notes = std::move(notes);
    return applied;
}

/// What stands on disk and is not the state that was applied last is not lost by an undo. Why it cannot be
/// kept; empty when it is, or need not be.
std::string WorkplaceChanges::keepUnapplied(const std::string& who) {
    const Draft now = draft();
    if (!now.pWorkplace->bytes() || isPresent(now))
        return {};
    std::string error;
    const unsigned number = m_history.add({.when = std::chrono::system_clock::now(),
                                           .who = who,
                                           .digest = now.plan.digest,
                                           .outcome = "not applied, kept before an undo",
                                           .isApplied = false},
                                          stateOf(now), error);
    return number ? std::string() : "what stands on disk cannot be kept before: " + error;
}

bool WorkplaceChanges::isPresent(const Draft& draft) const {
    const HistoryEntry* pPresent = m_history.present();
    return pPresent && pPresent->digest == draft.plan.digest;
}

unsigned WorkplaceChanges::keep(const Draft& draft, const std::string& who, const std::string& outcome,
                                unsigned restores) {
    // A file that is not whole is none to come back to.
    if (!m_history.isKept() || !draft.pWorkplace->bytes() || !draft.pWorkplace->file().isWhole())
        return 0;
    if (isPresent(draft))
        return m_history.present()->number;
    std::string error;
    const unsigned number = m_history.add({.when = std::chrono::system_clock::now(),
                                           .who = who,
                                           .digest = draft.plan.digest,
                                           .outcome = outcome,
                                           .restores = restores},
                                          stateOf(draft), error);
    if (number == 0)
        hostLog(sal::LogOutput::eWarning)
            << "this state of the workplace is not kept, and undo does not lead back to it: " << error
            << std::endl;
    return number;
}

std::optional<WorkplaceState> WorkplaceChanges::historyState(unsigned number, std::string& error) const {
    const HistoryEntry* pEntry = number ? m_history.find(number) : m_history.present();
    if (!pEntry) {
        error = number ? "there is no state " + std::to_string(number) + "; history lists them"
                       : "no state was kept";
        return std::nullopt;
    }
    auto state = m_history.state(pEntry->number, error);
    if (state)
        keepToOwnFiles(*state, m_planner.settings());
    return state;
}
