#pragma once

#include <algorithm>
#include <chrono>

namespace sal {

/// The end of a time-out on the monotonic clock. A time-out of -1 never ends, 0 has ended before it began.
/// The clock is first read when somebody waits, so that a call that need not wait does not pay for it.
class Deadline {
public:
    using Clock = std::chrono::steady_clock;
    using Milliseconds = std::chrono::milliseconds;

    explicit Deadline(int timeout) : m_timeout(timeout) {}

    /// The time left, at most slice; zero when the deadline has passed.
    Clock::duration left(Clock::duration slice) {
        if (m_timeout < 0) {
            return slice;
        }
        if (m_timeout == 0) {
            return Clock::duration::zero();
        }
        const auto now = Clock::now();
        if (!m_started) {
            m_started = true;
            m_end = now + Milliseconds(m_timeout);
        }
        return std::clamp<Clock::duration>(m_end - now, Clock::duration::zero(), slice);
    }

private:
    int m_timeout;
    bool m_started = false;
    Clock::time_point m_end;
};

}  // namespace sal
