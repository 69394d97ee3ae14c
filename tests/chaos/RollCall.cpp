#include "RollCall.h"

void RollCall::asked(const std::string& driverID, std::uint32_t number, Clock::time_point when) {
    Driver& driver = m_drivers[driverID];
    if (driver.number > 0)
        return;
    driver.number = number;
    driver.since = when;
}

void RollCall::heard(const std::string& driverID, std::uint32_t answered, std::uint32_t timesStale) {
    Driver& driver = m_drivers[driverID];
    if (answered >= driver.number || timesStale != driver.timesStale)
        driver.number = 0;
    driver.timesStale = timesStale;
}

bool RollCall::owes(const std::string& driverID) const {
    const auto driver = m_drivers.find(driverID);
    return driver != m_drivers.end() && driver->second.number > 0;
}

RollCall::Clock::duration RollCall::owedFor(const std::string& driverID, Clock::time_point now) const {
    return owes(driverID) ? now - m_drivers.at(driverID).since : Clock::duration::zero();
}
