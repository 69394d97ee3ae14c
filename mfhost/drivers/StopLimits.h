#pragma once

#include <chrono>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "SeenTime.h"
#include "sal/MessageQueue.h"

/// Judges whose time to stop is up: that of a driver which holds up the command thread, of a process that was
/// replaced or told to end, and of the host once its shutdown has begun. Ends nothing itself. Owned by
/// ProcessSupervisor; any thread.
class StopLimits {
public:
    using Clock = std::chrono::steady_clock;

    struct Settings {
        std::chrono::milliseconds stopTimeout;
        std::chrono::milliseconds shutdownLimit;
        std::chrono::milliseconds killDelay;
        std::chrono::milliseconds replacedLimit;
    };
    /// A driver that the host cannot send to.
    struct Stuck {
        std::string driverID;
        bool isLocked = false;  ///< another sender does not leave its input queue; else that is full
    };
    /// What a shutdown has come to.
    struct Due {
        bool fullQueues = false;  ///< processes with a full or locked queue are to end
        bool processes = false;   ///< all processes are to end
        bool host = false;        ///< the host is to end, whatever still runs
        int exitCode = 0;
    };

    /// How often the supervisor looks; what comes last in a shutdown leaves time for two looks more.
    static constexpr std::chrono::milliseconds s_interval{50};

    explicit StopLimits(Settings settings) : m_settings(settings) {}

    /// What began then has had the stop time-out.
    bool isStopOver(Clock::time_point began, Clock::time_point now) const;
    /// A process that was unloaded or replaced then has had its time to end.
    bool isReplacedOver(Clock::time_point replaced, Clock::time_point now) const;
    /// A process that was sent SIGTERM then is to be killed.
    bool isKillDue(Clock::time_point terminated, Clock::time_point now) const;
    /// The first driver for whose input queue a thread of the host has waited for the stop time-out.
    std::optional<Stuck> stuck(const std::vector<sal::MessageQueue::Status>& queues) const;

    /// False, and without effect, when it has begun before.
    bool beginShutdown(int exitCode, Clock::time_point now);
    bool isShuttingDown() const;
    /// The manager is gone: the host waits for nothing but its driver processes.
    void beginProcessEnd(Clock::time_point now);
    bool isEndingProcesses() const;
    /// Nothing while no shutdown has begun. Time in which the supervisor did not look does not count, but for
    /// a short pause: neither had those that are to end run then.
    Due due(Clock::time_point now);

private:
    const Settings m_settings;
    mutable std::mutex m_mutex;
    std::optional<Clock::time_point> m_shutdownBegan;
    std::optional<Clock::time_point> m_processEndBegan;
    int m_exitCode = 0;
    SeenTime m_shutdownSeen{4 * s_interval};
    SeenTime m_processEndSeen{4 * s_interval};
};
