#pragma once

#include <string>

#include "EExit.h"
#include "RemoteControl.h"

/// mfctl's commands about who may use the host: connections, and the web panel with its codes and sessions.
/// Main thread.
class PanelCommands {
public:
    explicit PanelCommands(RemoteControl& control) : m_control(control) {}

    /// Prints the address that opens the panel, once.
    EExit open();
    /// Prints the digits, and where they are to be typed.
    EExit pair(const std::string& role);
    EExit sessions();
    /// Ends a session of the panel. Throws a ControlError (2) for the number 0, which is none.
    EExit revoke(unsigned number);

private:
    RemoteControl& m_control;
};
