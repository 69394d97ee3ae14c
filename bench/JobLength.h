#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>

/// Finds how many messages make a job that takes long enough to be measured. The shorter jobs before it are
/// the warm-up: half of that time in all, for whatever is measured. Used by one thread.
class JobLength {
public:
    /// The jobs' counts are multiples of that number.
    explicit JobLength(double seconds, std::uint64_t multiple = 1)
        : m_seconds(seconds), m_multiple(multiple), m_count(rounded(2000)) {}

    /// Of the next job.
    std::uint64_t count() const { return m_count; }

    /// Whether the job, which took so many seconds, counts; if not, there is another one to do.
    bool isEnough(double seconds) {
        if (seconds >= m_seconds && m_warmUp >= m_seconds / 2)
            return true;
        m_warmUp += seconds;
        const double wanted = m_warmUp < m_seconds / 2 ? m_seconds / 2 : m_seconds * 1.2;
        const double growth = std::clamp(wanted / std::max(seconds, 1e-9), 1.0, 16.0);
        m_count = rounded(static_cast<double>(m_count) * growth);
        return false;
    }

private:
    std::uint64_t rounded(double count) const {
        return static_cast<std::uint64_t>(std::ceil(count / static_cast<double>(m_multiple))) * m_multiple;
    }

    const double m_seconds;
    const std::uint64_t m_multiple;
    double m_warmUp = 0;  ///< seconds of jobs that did not count
    std::uint64_t m_count;
};
