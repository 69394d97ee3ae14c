#pragma once

#include <chrono>
#include <map>
#include <string>
#include <vector>

#include "sal/MessageQueue.h"

/// Judges from samples which driver processes can no longer be reached, though they live: a queue of theirs
/// is damaged, or they have let go of it, by an exec or by closing its descriptor. One that has not opened
/// its queues yet is never judged. Owned and called by ProcessSupervisor, on its thread.
class QueueLossDetector {
public:
    using Duration = std::chrono::nanoseconds;
    using Queue = sal::MessageQueue::Status;

    /// What a driver's queues looked like at one moment; null where there is none.
    struct Sample {
        std::string driverID;
        int pid = 0;
        const Queue* pInput = nullptr;
        const Queue* pOutput = nullptr;
    };
    struct Verdict {
        std::string driverID;
        int pid = 0;
        std::string what;  ///< such as "its output queue is damaged"
    };

    /// A process that ends in order lets go of its queues first, and gets that long for its end.
    explicit QueueLossDetector(Duration patience) : m_patience(patience) {}

    /// Takes the samples of all drivers at one moment. A driver is named each time.
    std::vector<Verdict> judge(const std::vector<Sample>& samples, Duration now);

    /// Whether the process had let go of a queue in the last samples; its time need not be over.
    bool isLettingGo(int pid) const { return m_losses.contains(pid); }

private:
    const Duration m_patience;
    std::map<int, Duration> m_losses;  ///< process ID -> since when it has let go of a queue
};
