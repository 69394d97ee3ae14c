#pragma once

#include <chrono>
#include <map>
#include <string>
#include <vector>

/// Tries out whether a driver's queues can be made, before the module is asked to: that one waits for their
/// names without an end. Owned by Workplace, used on the command thread.
class QueueTrial {
public:
    using Clock = std::chrono::steady_clock;

    /// How long a process whose host has ended may keep the name of a queue.
    explicit QueueTrial(std::chrono::milliseconds patience) : m_patience(patience) {}

    /// Empty, or why the queues of that driver cannot be made now. The caller says it.
    std::string fault(const std::string& driverID);

    /// The same for several, by their IDs: those of which there is something to say.
    std::map<std::string, std::string> faults(const std::vector<std::string>& driverIDs);

private:
    const std::chrono::milliseconds m_patience;
    std::map<std::string, Clock::time_point> m_faultSince;
};
