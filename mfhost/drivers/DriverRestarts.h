#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "RestartPlan.h"

/// Which drivers wait to be started again, and when. A driver goes from waiting to due (handed out for the
/// command thread) to starting and back to rest, or waits again when the start brought no process. A reload
/// by hand takes it out of all that. Owned by ProcessSupervisor, which serializes the calls.
class DriverRestarts {
public:
    using Clock = std::chrono::steady_clock;

    explicit DriverRestarts(RestartPlan::Settings settings) : m_settings(std::move(settings)) {}
    DriverRestarts(const DriverRestarts&) = delete;
    DriverRestarts& operator=(const DriverRestarts&) = delete;

    /// The driver ended without being asked to, after running that long. The delay until its next start;
    /// nothing when the limit is reached and it stays ended.
    std::optional<RestartPlan::Duration> ended(const std::string& driverID, RestartPlan::Duration ran,
                                               Clock::time_point now);
    /// A start that was due was not even tried: it waits for the next time, however many tries were made.
    RestartPlan::Duration putOff(const std::string& driverID, Clock::time_point now);
    /// Begins anew and expects nothing, as with a reload by hand.
    void reset(const std::string& driverID);
    /// It is not tried again until a command reloads it.
    void giveUp(const std::string& driverID);

    /// Those whose time has come, each once.
    std::vector<std::string> takeDue(Clock::time_point now);
    /// When the next one's time comes.
    std::optional<Clock::time_point> nextDue() const;

    /// Whether it will be due.
    bool isWaiting(const std::string& driverID) const;

    /// The start of a driver that was due begins. False when it has been overtaken by a reload.
    bool begin(const std::string& driverID);

    const RestartPlan::Settings& settings() const { return m_settings; }

private:
    enum class EState { Resting, Waiting, Due };
    struct Driver {
        explicit Driver(const RestartPlan::Settings& settings) : plan(settings) {}
        RestartPlan plan;
        EState state = EState::Resting;
        Clock::time_point when;
    };

    const RestartPlan::Settings m_settings;
    std::map<std::string, Driver> m_drivers;
};
