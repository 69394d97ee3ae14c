#pragma once

#include <map>
#include <string>

#include "DriverTable.h"
#include "Surroundings.h"
#include "sal/Module.h"

/// Follows the drivers of the host's process for the table of drivers, and puts back after each call what the
/// driver has changed of the process, so that the next one is loaded in the host's surroundings. Owned by
/// Host; told by libsal on the command thread.
class DriverCallWatch : public sal::Module::Observer {
public:
    DriverCallWatch(DriverTable& drivers, Surroundings& surroundings)
        : m_drivers(drivers), m_surroundings(surroundings) {}

    void callBegins(const std::string& driverID, const char* operation) override;
    void callEnded(const std::string& driverID, const char* operation) override;
    void driverDeleted(const std::string& driverID) override;
    void loadFailed(const std::string& path, const std::string& reason) override;

    /// Why the module of that path was not loaded since they were forgotten; empty where it was.
    std::string loadFault(const std::string& path) const;
    /// Before a start or reload, so that what is told afterwards belongs to it.
    void forgetLoadFaults() { m_loadFaults.clear(); }

private:
    DriverTable& m_drivers;
    Surroundings& m_surroundings;
    std::map<std::string, std::string> m_loadFaults;
};
