#pragma once

#include "Futex.h"
#include "ProcessFence.h"

namespace sal {

/// A wake-up in shared memory: a number that counts the wake-ups and a flag that says that a thread waits.
/// Waiter: prepare(), look again for what it waits for, wait(). Waker: publish, signal(). Either the waker
/// finds the flag or the waiter's second look finds what was published, for one of two reasons: both sides
/// change the flag with a read-modify-write, and these have one order; or the waiter makes a heavy fence and
/// the waker a light one. Since that fence may pass by, wait() looks a third time. A waker may die in
/// between, so a wait is always a short one.
class QueueEvent {
public:
    struct Prepared {
        std::uint32_t number;  ///< to wait on
        bool hasFence;         ///< which may have passed by
    };

    /// Makes the heavy fence where it was promised.
    Prepared prepare() {
        if (m_isFenced.load(std::memory_order_relaxed) == 0)
            return {prepareUnfenced(), false};
        m_isFenced.store(0, std::memory_order_relaxed);
        return prepareFenced();
    }

    /// The same for an event whose wakers rely on the heavy fence always.
    Prepared prepareFenced() {
        const std::uint32_t number = prepareUnfenced();
        heavyFence();
        return {number, true};
    }

    /// After a fence looks once more for what the waiter waits for, when all that was published before
    /// prepare() has arrived. TimedOut when that look finds it, too.
    template <class Look>
    EFutexWake wait(const Prepared& prepared, std::chrono::nanoseconds time, Look look) {
        if (prepared.hasFence && time > s_settleTime) {
            const EFutexWake wake = futexWait(m_number, prepared.number, s_settleTime, EFutexScope::Shared);
            if (wake != EFutexWake::TimedOut || look())
                return wake;
            time -= s_settleTime;
        }
        return futexWait(m_number, prepared.number, time, EFutexScope::Shared);
    }

    /// By the only waiter, when it does not expect to wait soon: from now on the light fence will do.
    void promiseFence() { m_isFenced.store(1, std::memory_order_relaxed); }

    /// A cheap look. Without a fence before it, it may miss a waiter that is only just coming.
    bool seemsAwaited() const { return m_waiting.load(std::memory_order_relaxed) != 0; }

    void signal() {
        if (m_waiting.fetch_add(0, std::memory_order_acq_rel) != 0)
            wakeAll();
    }

    /// By a waker of a process that has joined the process fences. Where the fence is promised, the waiter
    /// sees by itself what was published.
    void signalFenced() {
        lightFence();
        if (m_isFenced.load(std::memory_order_relaxed) == 0)
            signal();
    }

    void wakeAll() {
        m_waiting.store(0, std::memory_order_relaxed);
        m_number.fetch_add(1, std::memory_order_acq_rel);
        futexWake(m_number, INT_MAX, EFutexScope::Shared);
    }

private:
    std::uint32_t prepareUnfenced() {
        const std::uint32_t number = m_number.load(std::memory_order_acquire);
        m_waiting.exchange(1, std::memory_order_acq_rel);
        return number;
    }

    FutexWord m_number{0};
    FutexWord m_waiting{0};
    std::atomic<std::uint32_t> m_isFenced{0};
};

}  // namespace sal
