#include "StopLimits.h"

#include <algorithm>

#include "QueueNames.h"

namespace {

/// What the last log lines may take at an end that is enforced.
constexpr std::chrono::milliseconds s_lastWords{350};

}  // namespace

bool StopLimits::isStopOver(Clock::time_point began, Clock::time_point now) const {
    return now - began >= m_settings.stopTimeout;
}

bool StopLimits::isReplacedOver(Clock::time_point replaced, Clock::time_point now) const {
    return now - replaced >= m_settings.replacedLimit;
}

bool StopLimits::isKillDue(Clock::time_point terminated, Clock::time_point now) const {
    return now - terminated >= m_settings.killDelay;
}

std::optional<StopLimits::Stuck> StopLimits::stuck(
    const std::vector<sal::MessageQueue::Status>& queues) const {
    const auto limit = static_cast<unsigned int>(m_settings.stopTimeout.count());
    for (const sal::MessageQueue::Status& queue : queues) {
        // A queue to the host holds up no sender of the host's.
        if (const std::string driverID = protocol::receiverOf(queue.name);
            queue.waitingForMs >= limit && !driverID.empty())
            return Stuck{.driverID = driverID, .isLocked = queue.lockedForMs >= limit};
    }
    return std::nullopt;
}

bool StopLimits::beginShutdown(int exitCode, Clock::time_point now) {
    const std::lock_guard lock(m_mutex);
    if (m_shutdownBegan)
        return false;
    m_shutdownBegan = now;
    m_exitCode = exitCode;
    return true;
}

bool StopLimits::isShuttingDown() const {
    const std::lock_guard lock(m_mutex);
    return m_shutdownBegan.has_value();
}

void StopLimits::beginProcessEnd(Clock::time_point now) {
    const std::lock_guard lock(m_mutex);
    m_processEndBegan = now;
}

bool StopLimits::isEndingProcesses() const {
    const std::lock_guard lock(m_mutex);
    return m_processEndBegan.has_value();
}

StopLimits::Due StopLimits::due(Clock::time_point now) {
    const std::lock_guard lock(m_mutex);
    Due due{.exitCode = m_exitCode};
    if (!m_shutdownBegan)
        return due;
    const auto seen = m_shutdownSeen.look(*m_shutdownBegan, now);
    const auto limit = m_settings.shutdownLimit - s_lastWords;
    const auto killing = m_settings.killDelay + 2 * s_interval;
    // Early enough that those that do not heed SIGTERM are killed within the limit.
    const auto lastMoment = limit - killing;
    if (m_processEndBegan)
        due.processes =
            m_processEndSeen.look(*m_processEndBegan, now) >= m_settings.stopTimeout || seen >= lastMoment;
    else
        due.fullQueues = seen >= std::min(m_settings.stopTimeout, lastMoment - killing);
    due.host = seen >= limit;
    return due;
}
