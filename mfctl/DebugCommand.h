#pragma once

#include <string>
#include <vector>

#include "EExit.h"
#include "RemoteControl.h"

/// mfctl debug: a driver's process under gdb, from before the driver is loaded. Main thread.
class DebugCommand {
public:
    explicit DebugCommand(RemoteControl& control) : m_control(control) {}

    /// Has the host reload the driver, and becomes gdb at its process, with these options besides; does not
    /// return then. When gdb lets go, the process goes on under the host. Throws a ControlError where there
    /// is no gdb, before anything is reloaded, and where the host refuses.
    EExit run(const std::string& driverID, const std::vector<std::string>& options,
              ApiClient::Milliseconds limit);

private:
    RemoteControl& m_control;
};
