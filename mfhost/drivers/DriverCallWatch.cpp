#include "DriverCallWatch.h"

void DriverCallWatch::callBegins(const std::string& driverID, const char* operation) {
    // What it has changed while it was made.
    m_surroundings.restore(driverID + " or another driver");
    m_drivers.callBegins(driverID, operation);
}

void DriverCallWatch::callEnded(const std::string& driverID, const char* operation) {
    m_drivers.callEnded(driverID, operation);
    m_surroundings.restore(driverID + ": " + operation + "()");
}

void DriverCallWatch::driverDeleted(const std::string& driverID) {
    m_drivers.driverDeleted(driverID);
    m_surroundings.restore(driverID + ": its destructor");
}

void DriverCallWatch::loadFailed(const std::string& path, const std::string& reason) {
    m_loadFaults[path] = reason;
}

std::string DriverCallWatch::loadFault(const std::string& path) const {
    const auto found = m_loadFaults.find(path);
    return found == m_loadFaults.end() ? std::string() : found->second;
}
