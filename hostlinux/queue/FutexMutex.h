#pragma once

#include "Deadline.h"
#include "Futex.h"

namespace sal {

/// A mutex inside the process that keeps a time-out on the monotonic clock and spins shortly before it
/// sleeps.
class FutexMutex {
public:
    bool tryLock() {
        std::uint32_t expected = eFree;
        return m_word.compare_exchange_strong(expected, eLocked, std::memory_order_acquire,
                                              std::memory_order_relaxed);
    }

    /// False when the deadline has passed.
    bool lock(Deadline& deadline) {
        for (int spin = 0; spin < s_spins; ++spin) {
            if (tryLock())
                return true;
            spinPause();
        }
        while (m_word.exchange(eContended, std::memory_order_acquire) != eFree) {
            const auto time = deadline.left(std::chrono::milliseconds(100));
            if (time == Deadline::Clock::duration::zero())
                return false;
            futexWait(m_word, eContended, time, EFutexScope::Process);
        }
        return true;
    }

    void unlock() {
        if (m_word.exchange(eFree, std::memory_order_release) == eContended)
            futexWake(m_word, 1, EFutexScope::Process);
    }

private:
    enum EState : std::uint32_t { eFree, eLocked, eContended };
    static constexpr int s_spins = 100;

    FutexWord m_word{eFree};
};

}  // namespace sal
