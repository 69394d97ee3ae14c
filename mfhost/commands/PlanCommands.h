#pragma once

#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "HistoryEntry.h"
#include "Table.h"
#include "WorkplacePlan.h"
#include "WorkplaceState.h"
#include "sal/CmdParameters.h"

/// The console commands that take changed files over and give former ones back: plan, apply, undo, history
/// and diff. Owned by CommandShell; outlives every executed line. Command thread.
class PlanCommands {
public:
    /// As the operations of Workplace.
    struct Context {
        /// Where the reply of the running command goes, and who has given it.
        std::function<std::ostream&()> reply;
        std::function<std::string()> who;
        std::function<WorkplacePlan()> plan;
        std::function<Applied(const std::string& planID, const std::string& who)> apply;
        std::function<Applied(unsigned number, const std::string& who)> undo;
        std::function<std::vector<HistoryEntry>()> history;
        std::function<std::optional<WorkplaceState>(unsigned number, std::string& error)> state;
        /// How the reply of the running command is shown.
        std::function<base::Table::Look()> look = [] { return base::Table::Look(); };
        /// The running command has not done what it was to do, and has said why.
        std::function<void()> refused = [] {};
    };

    explicit PlanCommands(Context context);

    /// Adds the commands to the command processor.
    void registerCommands();

private:
    bool plan(sal::CmdParameters& parameters);
    bool apply(sal::CmdParameters& parameters);
    bool undo(sal::CmdParameters& parameters);
    bool history(sal::CmdParameters& parameters);
    bool diff(sal::CmdParameters& parameters);
    void print(const Applied& applied, const std::string& what);

    const Context m_context;
};
