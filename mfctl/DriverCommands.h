#pragma once

#include <string>

#include "EExit.h"
#include "RemoteControl.h"

/// mfctl's commands about drivers. Each throws a ControlError where the host refuses. Main thread.
class DriverCommands {
public:
    explicit DriverCommands(RemoteControl& control) : m_control(control) {}

    /// All drivers, as wide as the screen; isLong: everything that is known of each.
    EExit list(bool isLong);
    /// All of one driver: state, cause of its last end, where it comes from, queues, its last log lines and
    /// what it said last.
    EExit card(const std::string& driverID);
    /// What has become of one driver, newest first.
    EExit runs(const std::string& driverID);
    /// The card of each driver that has ended or hangs.
    EExit troubled();

    /// operation: "reload", "park" or "unpark".
    EExit change(const std::string& driverID, const char* pOperation, ApiClient::Milliseconds limit);

private:
    void showRow(base::Table& table, const JsonView& driver, bool isLong) const;

    RemoteControl& m_control;
};
