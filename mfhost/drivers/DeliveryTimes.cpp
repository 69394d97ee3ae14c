#include "DeliveryTimes.h"

#include <algorithm>
#include <utility>

namespace {

/// Messages taken out are counted so far, then from 0 on.
constexpr std::uint32_t s_countMask = (1u << 24) - 1;

/// Whether a count that begins again has come to another one.
bool hasReached(std::uint32_t count, std::uint32_t other) {
    return ((count - other) & s_countMask) <= s_countMask / 2;
}

}  // namespace

void DeliveryTimes::add(Histogram& histogram, Clock::duration time) {
    const double seconds = std::chrono::duration<double>(time).count();
    const auto bound = std::lower_bound(s_bounds.begin(), s_bounds.end(), seconds);
    ++histogram.counts.at(static_cast<std::size_t>(bound - s_bounds.begin()));
    histogram.sum += seconds;
}

void DeliveryTimes::look(const Queues& queues, Clock::time_point now) {
    const std::lock_guard lock(m_mutex);
    const Clock::time_point last = std::exchange(m_last, now);
    for (const sal::MessageQueue::Status& status : queues) {
        const auto [found, isNew] = m_queues.try_emplace(status.name);
        Queue& queue = found->second;
        queue.isSeen = true;
        if (isNew || status.messages < queue.messages) {
            // Another queue of that name has taken the place of the one before.
            queue.histogram.queue = status.name;
            queue.since = {};
            queue.messages = isNew ? status.messages : 0;
        }
        const bool isSome = status.messages != queue.messages;
        queue.messages = status.messages;
        if (queue.since != Clock::time_point()) {
            if (!hasReached(status.received, queue.awaited))
                continue;
            add(queue.histogram, now - queue.since);
            queue.since = {};
        } else if (isSome && status.depth == 0 && last != Clock::time_point()) {
            // It came and went between two looks.
            add(queue.histogram, (now - last) / 2);
        }
        if (status.depth > 0) {
            queue.awaited = (status.received + status.depth) & s_countMask;
            queue.since = now;
        }
    }
    std::erase_if(m_queues, [](const auto& each) { return !each.second.isSeen; });
    for (auto& [name, queue] : m_queues)
        queue.isSeen = false;
}

std::vector<DeliveryTimes::Histogram> DeliveryTimes::histograms() const {
    const std::lock_guard lock(m_mutex);
    std::vector<Histogram> all;
    for (const auto& [name, queue] : m_queues)
        all.push_back(queue.histogram);
    return all;
}
