#pragma once

#include <algorithm>
#include <chrono>

namespace sal {

/// The end of a time-out on the monotonic clock. A time-out of -1 never ends, 0 has ended before it began.
/// The clock is first read when the thread has to wait, so that a call that need not wait does not pay for
/// it.
class Deadline {
public:
    /// Is asked before each part of a wait.
    class Waiter {
    public:
        /// False ends the wait as if its time were over.
        virtual bool goesOn() = 0;

    protected:
        ~Waiter() = default;
    };

    using Clock = std::chrono::steady_clock;
    using Milliseconds = std::chrono::milliseconds;

    /// The waiter outlives the deadline; null for none.
    explicit Deadline(int timeout, Waiter* pWaiter = nullptr) : m_timeout(timeout), m_pWaiter(pWaiter) {}

    /// The time left, at most slice; zero when the deadline has passed. Called before each part of a wait.
    Clock::duration left(Clock::duration slice) {
        if (m_timeout == 0 || (m_pWaiter && !m_pWaiter->goesOn()))
            return Clock::duration::zero();
        if (m_timeout < 0)
            return slice;
        const auto now = Clock::now();
        if (!m_started) {
            m_started = true;
            m_end = now + Milliseconds(m_timeout);
        }
        return std::clamp<Clock::duration>(m_end - now, Clock::duration::zero(), slice);
    }

private:
    int m_timeout;
    Waiter* m_pWaiter;
    bool m_started = false;
    Clock::time_point m_end;
};

}  // namespace sal
