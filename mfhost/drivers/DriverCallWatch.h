#pragma once

#include <string>

#include "DriverRoster.h"
#include "Surroundings.h"
#include "sal/Module.h"

/// Follows the drivers of the host's process for the roster, and puts back after each call what the driver
/// has changed of the process, so that the next one is loaded in the host's surroundings. Owned by Host; told
/// by libsal on the command thread.
class DriverCallWatch : public sal::Module::Observer {
public:
    DriverCallWatch(DriverRoster& roster, Surroundings& surroundings)
        : m_roster(roster), m_surroundings(surroundings) {}

    void callBegins(const std::string& driverID, const char* operation) override;
    void callEnded(const std::string& driverID, const char* operation) override;
    void driverDeleted(const std::string& driverID) override;

private:
    DriverRoster& m_roster;
    Surroundings& m_surroundings;
};
