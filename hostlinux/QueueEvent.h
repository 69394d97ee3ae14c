#pragma once

#include "Futex.h"

namespace sal {

/// A wake-up in shared memory: a number that counts the wake-ups and a flag that says that somebody waits.
/// Waiter: prepare(), look again for what it waits for, wait(). Waker: publish, signal(). Both sides change
/// the flag with a read-modify-write, and these have one order: either the waker finds the flag or the
/// waiter's second look finds what was published. A waker may die in between, so a wait is always a short
/// one.
class QueueEvent {
public:
    /// The number to wait on.
    std::uint32_t prepare() {
        const std::uint32_t number = m_number.load(std::memory_order_acquire);
        m_waiting.exchange(1, std::memory_order_acq_rel);
        return number;
    }

    FutexWake wait(std::uint32_t number, std::chrono::nanoseconds time) {
        return futexWait(m_number, number, time, FutexScope::eShared);
    }

    /// A cheap look that may miss a waiter that is only just coming.
    bool seemsAwaited() const { return m_waiting.load(std::memory_order_relaxed) != 0; }

    void signal() {
        if (m_waiting.fetch_add(0, std::memory_order_acq_rel) != 0) {
            wakeAll();
        }
    }

    void wakeAll() {
        m_waiting.store(0, std::memory_order_relaxed);
        m_number.fetch_add(1, std::memory_order_acq_rel);
        futexWake(m_number, INT_MAX, FutexScope::eShared);
    }

private:
    FutexWord m_number{0};
    FutexWord m_waiting{0};
};

}  // namespace sal
