#include "SenderLock.h"

#include <algorithm>
#include <optional>
#include <thread>

#include "ProcessFence.h"

namespace sal {

namespace {

constexpr int s_spins = 100;
// An owner that dies leaves the others asleep, so this bounds how long its death goes unnoticed.
constexpr std::chrono::milliseconds s_probeSlice{20};
// How long to look away from a favoured thread that is inside, at least and at most: it does not wake those
// who wait for it.
constexpr std::chrono::microseconds s_shortestLook{50};
constexpr std::chrono::microseconds s_longestLook{1000};
// Favour pays for its withdrawal from some hundred messages on. Each time it has to be earned harder, so
// that senders by turns do not keep taking it from each other.
constexpr unsigned int s_firstFavour = 256;
constexpr unsigned int s_hardestFavour = 8192;

/// Never 0, never given out again.
std::uint64_t threadNumber() {
    static std::atomic<std::uint64_t> s_count{0};
    [[gnu::tls_model("initial-exec")]] static thread_local std::uint64_t t_number = 0;
    if (t_number == 0)
        t_number = s_count.fetch_add(1, std::memory_order_relaxed) + 1;
    return t_number;
}

}  // namespace

SenderLock::SenderLock(SenderLockWords& words, QueueFile& file, std::uint32_t ticket, bool mayBeFavoured)
    : m_words(words),
      m_file(file),
      m_ticket(ticket),
      m_mayBeFavoured(mayBeFavoured),
      m_timesNeeded(s_firstFavour) {}

bool SenderLock::enterFavoured() {
    if (m_words.favoured.load(std::memory_order_relaxed) != m_ticket ||
        m_favouredThread.load(std::memory_order_relaxed) != threadNumber())
        return false;
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
    if (enterFavoured())
        return true;
    if (!m_mutex.tryLock())
        return false;
    if (tryWord()) {
        if (settle(nullptr) == EResult::Locked) {
            m_isFavoured = false;
            return true;
        }
        unlockWord();
    }
    m_mutex.unlock();
    return false;
}

SenderLock::EResult SenderLock::lock(Deadline& deadline) {
    if (enterFavoured())
        return EResult::Locked;
    if (!m_mutex.tryLock() && !m_mutex.lock(deadline))
        return EResult::TimedOut;
    EResult result = tryWord() ? EResult::Locked : lockWord(deadline);
    if (result == EResult::Locked) {
        result = settle(&deadline);
        if (result == EResult::Locked) {
            m_isFavoured = false;
            considerFavour();
            return result;
        }
        unlockWord();
    }
    m_mutex.unlock();
    return result;
}

SenderLock::EResult SenderLock::lockWord(Deadline& deadline) {
    FutexWord& word = m_words.holder;
    for (int spin = 0; spin < s_spins; ++spin) {
        spinPause();
        if (tryWord())
            return EResult::Locked;
    }
    // A sender that has slept cannot know whether others still sleep, so it keeps the waiters' bit.
    const std::uint32_t mine = m_ticket | s_waitersBit;
    bool probe = false;
    for (;;) {
        std::uint32_t value = word.load(std::memory_order_relaxed);
        const std::uint32_t owner = value & ~s_waitersBit;
        // Our own ticket is never there while we hold the mutex, unless another process damaged the word.
        const bool isFree = owner == 0 || owner == m_ticket || (probe && !m_file.ticketHeld(owner));
        if (isFree) {
            if (word.compare_exchange_strong(value, mine, std::memory_order_acq_rel,
                                             std::memory_order_relaxed))
                return EResult::Locked;
            probe = false;
            continue;
        }
        if (value == owner &&
            !word.compare_exchange_strong(value, value | s_waitersBit, std::memory_order_relaxed))
            continue;
        const auto time = deadline.left(s_probeSlice);
        if (time == Deadline::Clock::duration::zero()) {
            // The time may be shorter than a slice: a dead owner is found all the same.
            if (!probe) {
                probe = true;
                continue;
            }
            return EResult::TimedOut;
        }
        switch (futexWait(word, owner | s_waitersBit, time, EFutexScope::Shared)) {
            case EFutexWake::Changed:
                probe = false;
                break;
            case EFutexWake::TimedOut:
                probe = true;
                break;
            case EFutexWake::Unmapped:
                return EResult::Unmapped;
        }
    }
}

SenderLock::EResult SenderLock::settle(Deadline* pDeadline) {
    if (m_pSeat) {
        // A thread of this process may have been favoured on this handle, and another process may have waited
        // until it was out: this load orders what it did to this object before what follows.
        m_pSeat->inside.load(std::memory_order_acquire);
    }
    if (const std::uint32_t favoured = m_words.favoured.load(std::memory_order_relaxed); favoured != 0) {
        // First, so that the sender that takes over from a holder that dies here settles it.
        m_words.unsettled.store(1, std::memory_order_relaxed);
        m_words.favoured.store(0, std::memory_order_release);
        if (favoured == m_ticket && m_mayBeFavoured) {
            // A thread of this object.
            heavyFenceOfProcess();
        } else {
            heavyFence();
            // The fence may have passed by the favoured one, which may be inside without being seen.
            std::this_thread::sleep_for(s_settleTime);
        }
    }
    if (m_words.unsettled.load(std::memory_order_relaxed) == 0)
        return EResult::Locked;
    for (SenderLockWords::Seat& seat : m_words.seats) {
        const EResult result = waitOutside(seat, pDeadline);
        if (result != EResult::Locked)
            return result;
    }
    m_words.unsettled.store(0, std::memory_order_relaxed);
    return EResult::Locked;
}

SenderLock::EResult SenderLock::waitOutside(SenderLockWords::Seat& seat, Deadline* pDeadline) {
    auto look = s_shortestLook;
    std::optional<Deadline::Clock::time_point> probed;
    for (int times = 0;; ++times) {
        const std::uint32_t inside = seat.inside.load(std::memory_order_acquire);
        if (inside == 0)
            return EResult::Locked;
        const std::uint32_t owner = seat.owner.load(std::memory_order_relaxed);
        if (inside != SenderLockWords::markOf(owner))
            return EResult::Broken;
        if (times < s_spins) {
            spinPause();
            continue;
        }
        const auto now = Deadline::Clock::now();
        if (!probed || now - *probed >= s_probeSlice) {
            probed = now;
            if (owner != m_ticket && !m_file.ticketHeld(owner)) {
                seat.inside.store(0, std::memory_order_relaxed);
                return EResult::Locked;
            }
        }
        const auto time = pDeadline ? pDeadline->left(look) : Deadline::Clock::duration::zero();
        if (time == Deadline::Clock::duration::zero())
            return EResult::TimedOut;
        std::this_thread::sleep_for(time);
        look = std::min(2 * look, s_longestLook);
    }
}

void SenderLock::considerFavour() {
    if (!m_mayBeFavoured)
        return;
    const std::uint64_t me = threadNumber();
    if (m_lastThread != me || m_words.last.load(std::memory_order_relaxed) != m_ticket) {
        m_lastThread = me;
        m_words.last.store(m_ticket, std::memory_order_relaxed);
        m_timesInARow = 0;
        return;
    }
    if (++m_timesInARow < m_timesNeeded)
        return;
    m_timesInARow = 0;
    m_timesNeeded = std::min(2 * m_timesNeeded, s_hardestFavour);
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
            // No thread is inside: all is settled, and a dead owner's does not come in.
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
    if ((word & s_waitersBit) != 0)
        futexWake(m_words.holder, 1, EFutexScope::Shared);
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
