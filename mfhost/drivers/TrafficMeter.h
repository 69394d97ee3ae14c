#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "sal/MessageQueue.h"

/// How many messages a second driver processes take and send, from what their queues have carried between
/// two looks. Owned by ProcessSupervisor, used on its thread.
class TrafficMeter {
public:
    using Clock = std::chrono::steady_clock;
    using Queues = std::map<std::string, sal::MessageQueue::Status>;  ///< by name

    struct Rate {
        std::string driverID;
        double receivedPerSecond = 0;
        double sentPerSecond = 0;
    };

    /// Whether a second has passed, or nearly, since the last measurement.
    bool isDue(Clock::time_point now) const { return now - m_measured >= s_interval; }

    /// The rates since the last measurement, of the drivers whose queues were there then and still are.
    std::vector<Rate> measure(const std::vector<std::string>& driverIDs, const Queues& queues,
                              Clock::time_point now);

private:
    static constexpr std::chrono::milliseconds s_interval{900};

    /// What a driver's queues had carried at one moment.
    struct Carried {
        std::uint64_t received = 0;
        std::uint64_t sent = 0;
    };

    Clock::time_point m_measured;
    std::map<std::string, Carried> m_carried;
};
