#pragma once

#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "WorkplaceHistory.h"
#include "WorkplacePlan.h"
#include "WorkplacePlanner.h"

/// Plans what changed files change in what runs, has it done, keeps each state that was applied, and gives
/// former ones back. Owned by Workplace, which does the changes; used on the command thread.
class WorkplaceChanges {
public:
    using Draft = WorkplacePlanner::Draft;

    /// Why nothing is changed any more.
    static constexpr const char* stopping = "the host is stopping";

    /// What the workplace does.
    struct Actions {
        std::function<bool()> isReady;  ///< whether something can be changed
        std::function<WorkplacePlanner::Running()> running;
        /// Hands the module the draft's workplace file, in which these drivers are unloaded, and the panel
        /// driver has an entry. Why it cannot; empty when it was done.
        std::function<std::string(const Draft& draft, const std::set<std::string>& leavingIDs,
                                  bool hasPanelEntry)>
            hand;
        /// Does one change with what was handed. Why it is not done, or empty.
        std::function<std::string(const Draft& draft, const WorkplacePlan::Change& change)> change;
        /// All changes have been tried.
        std::function<void(const Draft& draft)> end;
    };

    /// An empty directory keeps no history.
    WorkplaceChanges(WorkplacePlanner::Settings settings, std::string historyDirectory, Actions actions);

    /// Before all others; what of it cannot be used is logged.
    void readHistory();
    /// Keeps the state that the draft found on disk, unless it is the one that was kept last. Its number; 0,
    /// with a line where that is news, when it is not kept.
    unsigned keep(const Draft& draft, const std::string& who, const std::string& outcome,
                  unsigned restores = 0);

    /// As the operations of Workplace.
    WorkplacePlan plan();
    Applied apply(const std::string& planID, const std::string& who);
    Applied undo(unsigned number, const std::string& who);
    const std::vector<HistoryEntry>& history() const { return m_history.entries(); }
    std::optional<WorkplaceState> historyState(unsigned number, std::string& error) const;

private:
    Draft draft() const;
    Applied carryOut(const Draft& draft, const std::string& who, const std::string& what, unsigned restores);
    AppliedChange carryOut(const Draft& draft, const WorkplacePlan::Change& change, const std::string& who);
    std::string beforeFirst() const;
    std::string keepUnapplied(const std::string& who);
    bool isPresent(const Draft& draft) const;

    WorkplacePlanner m_planner;
    WorkplaceHistory m_history;
    const Actions m_actions;
};
