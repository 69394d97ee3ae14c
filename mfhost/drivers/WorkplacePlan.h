#pragma once

#include <string>
#include <vector>

#include "Finding.h"

/// What would change if the workplace's files were taken over as they are now. A value; any thread.
struct WorkplacePlan {
    enum class EAction {
        Reload,       ///< the driver is stopped and started anew
        Load,         ///< the driver is started for the first time
        Remove,       ///< the driver is stopped, and no other comes in its place
        Rescan,       ///< descriptors are searched for; of no driver
        RestartHost,  ///< nothing is done: only a restart of the host takes it over
        None
    };
    struct Change {
        EAction action = EAction::None;
        std::string driverID;   ///< empty for one that is of no driver
        std::string reason;     ///< "module changed", "entry is new" and so on
        std::string file = {};  ///< the descriptor that is searched for; else empty

        bool operator==(const Change&) const = default;
    };

    std::string id;       ///< names it for an apply
    std::string digest;   ///< of all files that it looked at
    std::string refusal;  ///< why nothing may be applied; empty when all may
    std::vector<Finding> findings;
    std::vector<Change> changes;  ///< in the order in which they are done; none where there is a refusal

    /// Whether an apply would do something.
    bool isEmpty() const {
        for (const Change& change : changes) {
            if (change.action != EAction::RestartHost && change.action != EAction::None)
                return false;
        }
        return true;
    }
};

/// "reload", "load", "remove", "rescan", "restart-host", "none".
const char* inWords(WorkplacePlan::EAction action);

/// What became of one change.
struct AppliedChange {
    WorkplacePlan::Change change;
    bool isDone = false;
    std::string reason;  ///< why not; empty when it was done
};

/// What became of an apply or an undo.
struct Applied {
    std::string refusal;      ///< why nothing was done; empty otherwise
    bool isOutdated = false;  ///< the plan is: the files have changed since, or it is not known any more
    std::vector<AppliedChange> changes;
    unsigned history = 0;  ///< the number of the state that runs now; 0 where no history is kept
    std::vector<std::string>
        notes;  ///< what else there is to know: files that were given back, and such that were not

    /// "no changes", "2 of 3 changes done".
    std::string outcome() const;
};
