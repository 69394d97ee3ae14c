#include "DriverRestarts.h"

#include <algorithm>

std::optional<RestartPlan::Duration> DriverRestarts::ended(const std::string& driverID,
                                                           RestartPlan::Duration ran, Clock::time_point now) {
    Driver& driver = m_drivers.try_emplace(driverID, m_settings).first->second;
    const auto delay = driver.plan.ended(ran);
    driver.state = delay ? EState::Waiting : EState::Resting;
    if (delay)
        driver.when = now + *delay;
    return delay;
}

RestartPlan::Duration DriverRestarts::putOff(const std::string& driverID, Clock::time_point now) {
    Driver& driver = m_drivers.try_emplace(driverID, m_settings).first->second;
    const auto delay = driver.plan.putOff();
    driver.state = EState::Waiting;
    driver.when = now + delay;
    return delay;
}

void DriverRestarts::reset(const std::string& driverID) {
    m_drivers.erase(driverID);
}

void DriverRestarts::giveUp(const std::string& driverID) {
    if (const auto found = m_drivers.find(driverID); found != m_drivers.end())
        found->second.state = EState::Resting;
}

std::vector<std::string> DriverRestarts::takeDue(Clock::time_point now) {
    std::vector<std::string> due;
    for (auto& [driverID, driver] : m_drivers) {
        if (driver.state != EState::Waiting || driver.when > now)
            continue;
        driver.state = EState::Due;
        due.push_back(driverID);
    }
    return due;
}

std::optional<DriverRestarts::Clock::time_point> DriverRestarts::nextDue() const {
    std::optional<Clock::time_point> next;
    for (const auto& [driverID, driver] : m_drivers) {
        if (driver.state == EState::Waiting)
            next = next ? std::min(*next, driver.when) : driver.when;
    }
    return next;
}

bool DriverRestarts::isWaiting(const std::string& driverID) const {
    const auto found = m_drivers.find(driverID);
    return found != m_drivers.end() && found->second.state == EState::Waiting;
}

bool DriverRestarts::begin(const std::string& driverID) {
    const auto found = m_drivers.find(driverID);
    if (found == m_drivers.end() || found->second.state != EState::Due)
        return false;
    found->second.state = EState::Resting;
    return true;
}
