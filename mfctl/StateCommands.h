#pragma once

#include <string>

#include "EExit.h"
#include "RemoteControl.h"

/// mfctl's commands about the panel's state values and events. Main thread.
class StateCommands {
public:
    explicit StateCommands(RemoteControl& control) : m_control(control) {}

    /// The values whose keys match the pattern; all for an empty one.
    EExit show(const std::string& glob);
    /// What each driver has reported since the host has started, how much of it was merged and what has
    /// changed.
    EExit counts();
    /// The values, then each change as it comes, until the process is ended. A host that goes is waited for.
    EExit watch(const std::string& glob);

    /// type: "string", "int", "float", "bool"; empty: what the value looks like.
    EExit set(const std::string& key, const std::string& value, const std::string& type);
    EExit unset(const std::string& key);
    EExit trigger(const std::string& id, const std::string& value);
    EExit events();

    /// The value as the API wants it for the type. Throws a ControlError (2) where it is none of that type.
    static ApiClient::Json typedValue(const std::string& value, std::string& type);

private:
    RemoteControl& m_control;
};
