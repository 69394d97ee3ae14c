#pragma once

#include "Deadline.h"
#include "Futex.h"

namespace sal {

/// A mutex inside the process that keeps a time-out on the monotonic clock and spins shortly before it
/// sleeps.
class FutexMutex {
public:
    bool tryLock() {
        std::uint32_t expected = s_free;
        return m_word.compare_exchange_strong(expected, s_locked, std::memory_order_acquire,
                                              std::memory_order_relaxed);
    }

    /// False when the deadline has passed.
    bool lock(Deadline& deadline) {
        for (int spin = 0; spin < s_spins; ++spin) {
            if (tryLock())
                return true;
            spinPause();
        }
        while (m_word.exchange(s_contended, std::memory_order_acquire) != s_free) {
            const auto time = deadline.left(std::chrono::milliseconds(100));
            if (time == Deadline::Clock::duration::zero())
                return false;
            futexWait(m_word, s_contended, time, EFutexScope::Process);
        }
        return true;
    }

    void unlock() {
        if (m_word.exchange(s_free, std::memory_order_release) == s_contended)
            futexWake(m_word, 1, EFutexScope::Process);
    }

private:
    static constexpr std::uint32_t s_free = 0;
    static constexpr std::uint32_t s_locked = 1;
    static constexpr std::uint32_t s_contended = 2;  ///< a thread may sleep
    static constexpr int s_spins = 100;

    FutexWord m_word{s_free};
};

}  // namespace sal
