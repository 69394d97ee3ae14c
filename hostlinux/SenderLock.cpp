#include "SenderLock.h"

namespace sal {

namespace {

constexpr int g_spins = 100;
// An owner that dies leaves the others asleep, so this bounds how long its death goes unnoticed.
constexpr std::chrono::milliseconds g_slice{20};

}  // namespace

SenderLock::SenderLock(FutexWord& word, QueueFile& file, std::uint32_t ticket)
    : m_word(word), m_file(file), m_ticket(ticket) {}

bool SenderLock::tryWord() {
    std::uint32_t expected = 0;
    return m_word.compare_exchange_strong(expected, m_ticket, std::memory_order_acquire,
                                          std::memory_order_relaxed);
}

bool SenderLock::tryLock() {
    if (!m_mutex.tryLock()) {
        return false;
    }
    if (!tryWord()) {
        m_mutex.unlock();
        return false;
    }
    return true;
}

SenderLock::Result SenderLock::lock(Deadline& deadline) {
    if (!m_mutex.tryLock() && !m_mutex.lock(deadline)) {
        return Result::eTimedOut;
    }
    const Result result = tryWord() ? Result::eLocked : lockWord(deadline);
    if (result != Result::eLocked) {
        m_mutex.unlock();
    }
    return result;
}

SenderLock::Result SenderLock::lockWord(Deadline& deadline) {
    for (int spin = 0; spin < g_spins; ++spin) {
        spinPause();
        if (tryWord()) {
            return Result::eLocked;
        }
    }
    // Whoever has slept cannot know whether others still sleep, so it keeps the waiters' bit.
    const std::uint32_t mine = m_ticket | s_waitersBit;
    bool probe = false;
    for (;;) {
        std::uint32_t word = m_word.load(std::memory_order_relaxed);
        const std::uint32_t owner = word & ~s_waitersBit;
        // Our own ticket is never there while we hold the mutex, unless somebody damaged the word.
        const bool isFree = owner == 0 || owner == m_ticket || (probe && !m_file.ticketHeld(owner));
        if (isFree) {
            if (m_word.compare_exchange_strong(word, mine, std::memory_order_acq_rel,
                                               std::memory_order_relaxed)) {
                return Result::eLocked;
            }
            probe = false;
            continue;
        }
        if (word == owner &&
            !m_word.compare_exchange_strong(word, word | s_waitersBit, std::memory_order_relaxed)) {
            continue;
        }
        const auto time = deadline.left(g_slice);
        if (time == Deadline::Clock::duration::zero()) {
            // The time may be shorter than a slice: a dead owner is found all the same.
            if (!probe) {
                probe = true;
                continue;
            }
            return Result::eTimedOut;
        }
        switch (futexWait(m_word, owner | s_waitersBit, time, FutexScope::eShared)) {
            case FutexWake::eChanged:
                probe = false;
                break;
            case FutexWake::eTimedOut:
                probe = true;
                break;
            case FutexWake::eUnmapped:
                return Result::eBroken;
        }
    }
}

bool SenderLock::unlock() {
    const std::uint32_t word = m_word.exchange(0, std::memory_order_release);
    if ((word & s_waitersBit) != 0) {
        futexWake(m_word, 1, FutexScope::eShared);
    }
    m_mutex.unlock();
    return (word & ~s_waitersBit) == m_ticket;
}

}  // namespace sal
