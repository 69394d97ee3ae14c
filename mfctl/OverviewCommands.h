#pragma once

#include <string>

#include "EExit.h"
#include "RemoteControl.h"

/// mfctl's commands about the host as a whole: what it is, its queues and macros, and its end. Main
/// thread.
class OverviewCommands {
public:
    explicit OverviewCommands(RemoteControl& control) : m_control(control) {}

    /// Failed where not all is well.
    EExit health();
    EExit queues();
    EExit macros();
    EExit play(const std::string& macro, ApiClient::Milliseconds limit);
    EExit shutdown();
    /// Prints what the last word of a line of the host's console may become, a word a line.
    EExit complete(const std::string& line);

private:
    RemoteControl& m_control;
};
