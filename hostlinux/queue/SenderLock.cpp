#include "SenderLock.h"

#include <algorithm>
#include <optional>
#include <thread>

#include "ProcessFence.h"

namespace sal {

namespace {

constexpr int g_spins = 100;
// An owner that dies leaves the others asleep, so this bounds how long its death goes unnoticed.
constexpr std::chrono::milliseconds g_slice{20};
// How long to look away from a favoured thread that is inside, at least and at most: it wakes nobody.
constexpr std::chrono::microseconds g_shortestLook{50};
constexpr std::chrono::microseconds g_longestLook{1000};
// Favour pays for its withdrawal from some hundred messages on. Each time it has to be earned harder, so
// that senders by turns do not keep taking it from each other.
constexpr unsigned int g_firstFavour = 256;
constexpr unsigned int g_hardestFavour = 8192;

/// Never 0, never given out again.
std::uint64_t threadNumber() {
    static std::atomic<std::uint64_t> s_count{0};
    [[gnu::tls_model("initial-exec")]] static thread_local std::uint64_t t_number = 0;
    if (t_number == 0) {
        t_number = s_count.fetch_add(1, std::memory_order_relaxed) + 1;
    }
    return t_number;
}

}  // namespace

SenderLock::SenderLock(SenderLockWords& words, QueueFile& file, std::uint32_t ticket, bool mayBeFavoured)
    : m_words(words),
      m_file(file),
      m_ticket(ticket),
      m_mayBeFavoured(mayBeFavoured),
      m_timesNeeded(g_firstFavour) {}

bool SenderLock::enterFavoured() {
    if (m_words.favoured.load(std::memory_order_relaxed) != m_ticket ||
        m_favouredThread.load(std::memory_order_relaxed) != threadNumber()) {
        return false;
    }
    m_pSeat->inside.store(SenderLockWords::markOf(m_ticket), std::memory_order_relaxed);
    lightFence();
    if (m_words.favoured.load(std::memory_order_acquire) != m_ticket) {
        m_pSeat->inside.store(0, std::memory_order_release);
        return false;
    }
    m_isFavoured = true;
    return true;
}

bool SenderLock::tryWord() {
    std::uint32_t expected = 0;
    return m_words.holder.compare_exchange_strong(expected, m_ticket, std::memory_order_acquire,
                                                  std::memory_order_relaxed);
}

bool SenderLock::tryLock() {
    if (enterFavoured()) {
        return true;
    }
    if (!m_mutex.tryLock()) {
        return false;
    }
    if (tryWord()) {
        if (settle(nullptr) == Result::eLocked) {
            m_isFavoured = false;
            return true;
        }
        unlockWord();
    }
    m_mutex.unlock();
    return false;
}

SenderLock::Result SenderLock::lock(Deadline& deadline) {
    if (enterFavoured()) {
        return Result::eLocked;
    }
    if (!m_mutex.tryLock() && !m_mutex.lock(deadline)) {
        return Result::eTimedOut;
    }
    Result result = tryWord() ? Result::eLocked : lockWord(deadline);
    if (result == Result::eLocked) {
        result = settle(&deadline);
        if (result == Result::eLocked) {
            m_isFavoured = false;
            considerFavour();
            return result;
        }
        unlockWord();
    }
    m_mutex.unlock();
    return result;
}

SenderLock::Result SenderLock::lockWord(Deadline& deadline) {
    FutexWord& word = m_words.holder;
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
        std::uint32_t value = word.load(std::memory_order_relaxed);
        const std::uint32_t owner = value & ~s_waitersBit;
        // Our own ticket is never there while we hold the mutex, unless somebody damaged the word.
        const bool isFree = owner == 0 || owner == m_ticket || (probe && !m_file.ticketHeld(owner));
        if (isFree) {
            if (word.compare_exchange_strong(value, mine, std::memory_order_acq_rel,
                                             std::memory_order_relaxed)) {
                return Result::eLocked;
            }
            probe = false;
            continue;
        }
        if (value == owner &&
            !word.compare_exchange_strong(value, value | s_waitersBit, std::memory_order_relaxed)) {
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
        switch (futexWait(word, owner | s_waitersBit, time, FutexScope::eShared)) {
            case FutexWake::eChanged:
                probe = false;
                break;
            case FutexWake::eTimedOut:
                probe = true;
                break;
            case FutexWake::eUnmapped:
                return Result::eUnmapped;
        }
    }
}

SenderLock::Result SenderLock::settle(Deadline* pDeadline) {
    if (m_pSeat != nullptr) {
        // What the favoured thread did to this object happened before, whoever has waited until it was out.
        m_pSeat->inside.load(std::memory_order_acquire);
    }
    if (m_words.favoured.load(std::memory_order_relaxed) != 0) {
        // First, so that whoever takes over from a holder that dies here settles it.
        m_words.unsettled.store(1, std::memory_order_relaxed);
        m_words.favoured.store(0, std::memory_order_release);
        heavyFence();
    }
    if (m_words.unsettled.load(std::memory_order_relaxed) == 0) {
        return Result::eLocked;
    }
    for (SenderLockWords::Seat& seat : m_words.seats) {
        const Result result = waitOutside(seat, pDeadline);
        if (result != Result::eLocked) {
            return result;
        }
    }
    m_words.unsettled.store(0, std::memory_order_relaxed);
    return Result::eLocked;
}

SenderLock::Result SenderLock::waitOutside(SenderLockWords::Seat& seat, Deadline* pDeadline) {
    auto look = g_shortestLook;
    std::optional<Deadline::Clock::time_point> probed;
    for (int times = 0;; ++times) {
        const std::uint32_t inside = seat.inside.load(std::memory_order_acquire);
        if (inside == 0) {
            return Result::eLocked;
        }
        const std::uint32_t owner = seat.owner.load(std::memory_order_relaxed);
        if (inside != SenderLockWords::markOf(owner)) {
            return Result::eBroken;
        }
        if (times < g_spins) {
            spinPause();
            continue;
        }
        const auto now = Deadline::Clock::now();
        if (!probed || now - *probed >= g_slice) {
            probed = now;
            if (owner != m_ticket && !m_file.ticketHeld(owner)) {
                seat.inside.store(0, std::memory_order_relaxed);
                return Result::eLocked;
            }
        }
        const auto time = pDeadline != nullptr ? pDeadline->left(look) : Deadline::Clock::duration::zero();
        if (time == Deadline::Clock::duration::zero()) {
            return Result::eTimedOut;
        }
        std::this_thread::sleep_for(time);
        look = std::min(2 * look, g_longestLook);
    }
}

void SenderLock::considerFavour() {
    if (!m_mayBeFavoured) {
        return;
    }
    const std::uint64_t me = threadNumber();
    if (m_lastThread != me || m_words.last.load(std::memory_order_relaxed) != m_ticket) {
        m_lastThread = me;
        m_words.last.store(m_ticket, std::memory_order_relaxed);
        m_timesInARow = 0;
        return;
    }
    if (++m_timesInARow < m_timesNeeded) {
        return;
    }
    m_timesInARow = 0;
    m_timesNeeded = std::min(2 * m_timesNeeded, g_hardestFavour);
    const std::uint64_t favoured = m_favouredThread.load(std::memory_order_relaxed);
    if (favoured == me || (favoured == 0 && takeSeat())) {
        m_favouredThread.store(me, std::memory_order_relaxed);
        m_words.favoured.store(m_ticket, std::memory_order_relaxed);
    }
}

bool SenderLock::takeSeat() {
    for (SenderLockWords::Seat& seat : m_words.seats) {
        const std::uint32_t owner = seat.owner.load(std::memory_order_relaxed);
        if (owner == 0 || (owner != m_ticket && !m_file.ticketHeld(owner))) {
            // Nobody is inside: all is settled, and the dead do not come in.
            seat.inside.store(0, std::memory_order_relaxed);
            seat.owner.store(m_ticket, std::memory_order_relaxed);
            m_pSeat = &seat;
            return true;
        }
    }
    return false;
}

bool SenderLock::unlockWord() {
    const std::uint32_t word = m_words.holder.exchange(0, std::memory_order_release);
    if ((word & s_waitersBit) != 0) {
        futexWake(m_words.holder, 1, FutexScope::eShared);
    }
    return (word & ~s_waitersBit) == m_ticket;
}

bool SenderLock::unlock() {
    if (m_isFavoured) {
        const bool isWhole =
            m_pSeat->inside.load(std::memory_order_relaxed) == SenderLockWords::markOf(m_ticket);
        m_pSeat->inside.store(0, std::memory_order_release);
        return isWhole;
    }
    const bool isWhole = unlockWord();
    m_mutex.unlock();
    return isWhole;
}

}  // namespace sal
