#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <string>

/// Knows for each driver since when it owes an answer. A driver whose values have become stale owes none:
/// what it was asked may have ended with its process. Owned by StateJudge.
class RollCall {
public:
    using Clock = std::chrono::steady_clock;

    /// The host has passed on a question with this number by then.
    void asked(const std::string& driverID, std::uint32_t number, Clock::time_point when);
    /// The highest number that the driver has answered, and how often its values have become stale so far.
    void heard(const std::string& driverID, std::uint32_t answered, std::uint32_t timesStale);
    /// It is not there, or nothing of it is shown as live.
    void excuse(const std::string& driverID) { m_drivers.erase(driverID); }
    /// Nobody was asked anything, as far as anybody knows.
    void forget() { m_drivers.clear(); }

    /// How long the driver has owed its oldest answer; nothing owed is zero.
    Clock::duration owedFor(const std::string& driverID, Clock::time_point now) const;
    bool owes(const std::string& driverID) const;

private:
    struct Driver {
        std::uint32_t number = 0;  ///< of the oldest question that is not answered; 0 for none
        Clock::time_point since;
        std::uint32_t timesStale = 0;
    };
    std::map<std::string, Driver> m_drivers;
};
