#include "QueueLossDetector.h"

#include <utility>

namespace {

using Queue = QueueLossDetector::Queue;

bool isDamaged(const Queue* pQueue) {
    return pQueue && pQueue->isBroken;
}

/// The reader of the input queue holds a lock of its own besides.
bool isLetGo(const Queue* pQueue, bool isRead) {
    if (!pQueue)
        return false;
    return (pQueue->wasAttached && !pQueue->isAttached) ||
           (isRead && pQueue->receiverPid != 0 && !pQueue->receiverAttached);
}

}  // namespace

std::vector<QueueLossDetector::Verdict> QueueLossDetector::judge(const std::vector<Sample>& samples,
                                                                 Duration now) {
    std::vector<Verdict> lost;
    std::map<int, Duration> losses;
    for (const Sample& sample : samples) {
        const auto find = [&](const std::string& what) {
            lost.push_back({sample.driverID, sample.pid, what});
        };
        if (isDamaged(sample.pInput) || isDamaged(sample.pOutput)) {
            find(isDamaged(sample.pInput) ? "its input queue is damaged" : "its output queue is damaged");
            continue;
        }
        const bool hasLostInput = isLetGo(sample.pInput, true);
        if (!hasLostInput && !isLetGo(sample.pOutput, false))
            continue;
        const auto before = m_losses.find(sample.pid);
        const Duration since = before != m_losses.end() ? before->second : now;
        losses.emplace(sample.pid, since);
        if (now - since >= m_patience)
            find(hasLostInput ? "it has let go of its input queue" : "it has let go of its output queue");
    }
    m_losses = std::move(losses);
    return lost;
}
