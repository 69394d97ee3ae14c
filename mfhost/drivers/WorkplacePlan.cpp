#include "WorkplacePlan.h"

#include <algorithm>

const char* inWords(WorkplacePlan::EAction action) {
    switch (action) {
        case WorkplacePlan::EAction::Reload:
            return "reload";
        case WorkplacePlan::EAction::Load:
            return "load";
        case WorkplacePlan::EAction::Remove:
            return "remove";
        case WorkplacePlan::EAction::Rescan:
            return "rescan";
        case WorkplacePlan::EAction::RestartHost:
            return "restart-host";
        case WorkplacePlan::EAction::None:
            break;
    }
    return "none";
}

std::string Applied::outcome() const {
    if (changes.empty())
        return "no changes";
    const auto done =
        std::count_if(changes.begin(), changes.end(), [](const auto& one) { return one.isDone; });
    return std::to_string(done) + " of " + std::to_string(changes.size()) +
           (changes.size() == 1 ? " change done" : " changes done");
}
