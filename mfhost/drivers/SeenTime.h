#pragma once

#include <algorithm>
#include <chrono>

/// How long a thread has waited for something while it was there to see. What keeps the thread from running
/// for long (a machine that is much too busy, a stopped host) keeps those that it waits for from running as
/// well, so a pause between two looks counts for so much at most. One thread's.
class SeenTime {
public:
    using Clock = std::chrono::steady_clock;

    explicit SeenTime(Clock::duration longestPause) : m_longestPause(longestPause) {}

    /// Looks at a wait that began at that time: how much of it is seen by now.
    Clock::duration look(Clock::time_point began, Clock::time_point now) {
        if (m_began != began) {
            m_began = began;
            m_looked = began;
            m_seen = {};
        }
        m_seen += std::clamp(now - m_looked, Clock::duration::zero(), m_longestPause);
        m_looked = std::max(m_looked, now);
        return m_seen;
    }

private:
    const Clock::duration m_longestPause;
    Clock::time_point m_began;
    Clock::time_point m_looked;
    Clock::duration m_seen{};
};
