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

private:
    RemoteControl& m_control;
};
