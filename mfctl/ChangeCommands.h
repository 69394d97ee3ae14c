#pragma once

#include <string>

#include "EExit.h"
#include "RemoteControl.h"

/// mfctl's commands about the workplace file: what a change of it would do, doing so, and going back. Main
/// thread.
class ChangeCommands {
public:
    explicit ChangeCommands(RemoteControl& control) : m_control(control) {}

    /// Failed where the files have an error.
    EExit check();
    /// tellsChanges: EExit::Changes where there are some. Failed where nothing may be applied.
    EExit plan(bool tellsChanges);
    /// plan: the ID of a plan; empty: what would be planned now. Failed where a change was not done.
    EExit apply(const std::string& plan, ApiClient::Milliseconds limit);
    /// number: of the history; 0: the state before the present one.
    EExit undo(unsigned number, ApiClient::Milliseconds limit);
    EExit history();
    /// What the state of that number changed in the file; 0: the last one.
    EExit diff(unsigned number);

private:
    EExit showApplied(const ApiClient::Reply& reply) const;
    void showFindings(const JsonView& answer) const;
    ApiClient::Reply state(std::int64_t number);

    RemoteControl& m_control;
};
