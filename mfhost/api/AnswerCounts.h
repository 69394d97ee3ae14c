#pragma once

#include <cstdint>
#include <map>
#include <mutex>

/// How many requests the API has answered, by the status of the answer. Owned by HostApi. Any thread.
class AnswerCounts {
public:
    AnswerCounts() = default;
    AnswerCounts(const AnswerCounts&) = delete;
    AnswerCounts& operator=(const AnswerCounts&) = delete;

    void add(unsigned status) {
        const std::lock_guard lock(m_mutex);
        ++m_counts[status];
    }
    /// Of the statuses that there were.
    std::map<unsigned, std::uint64_t> counts() const {
        const std::lock_guard lock(m_mutex);
        return m_counts;
    }

private:
    mutable std::mutex m_mutex;
    std::map<unsigned, std::uint64_t> m_counts;
};
