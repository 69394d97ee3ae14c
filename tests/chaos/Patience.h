#pragma once

#include <atomic>
#include <chrono>

/// How long something may still take, not counting the time in which nobody could do anything because all
/// processes were stopped or the machine slept. Asked again and again, at least each half second; one thread.
class Patience {
public:
    using Clock = std::chrono::steady_clock;

    explicit Patience(std::chrono::milliseconds time) : m_left(time) {}

    bool isOver();
    std::chrono::milliseconds left() const {
        return std::chrono::duration_cast<std::chrono::milliseconds>(m_left);
    }

    /// How often anybody who waits has found that time had stood still.
    static unsigned int standstills() { return s_standstills; }

private:
    static std::atomic<unsigned int> s_standstills;

    Clock::duration m_left;
    Clock::time_point m_asked = Clock::now();
};
