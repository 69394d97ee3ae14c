#pragma once

#include "Deadline.h"
#include "FutexMutex.h"
#include "QueueFile.h"
#include "SenderLockWords.h"

namespace sal {

/// The lock that the senders of all processes share: a mutex inside the object, then a word in shared memory
/// with the owner's ticket. A ticket's lock on the file dies with its process, so a waiting sender asks the
/// kernel whether the owner lives, and takes over from a dead one; a stopped owner keeps the lock. Nothing
/// rests on process or thread IDs, which the system gives out again. A thread that has held it many times in
/// a row is favoured: it passes with plain stores and loads, a fraction of the cost, until another comes,
/// withdraws the favour, makes that seen with a fence in all processes, and waits until the favoured one is
/// out.
class SenderLock {
public:
    enum class EResult { Locked, TimedOut, Broken, Unmapped };

    /// mayBeFavoured: this process has joined the process fences.
    SenderLock(SenderLockWords& words, QueueFile& file, std::uint32_t ticket, bool mayBeFavoured);

    /// Broken when the words make no sense, Unmapped when they are no longer there.
    EResult lock(Deadline& deadline);
    /// Does not wait, but for a millisecond when it takes the favour from another process.
    bool tryLock();
    /// False when another process has overwritten the words meanwhile.
    bool unlock();

    static constexpr std::uint32_t s_maxTicket = 0x7fffffff;

private:
    static constexpr std::uint32_t s_waitersBit = 0x80000000;

    bool enterFavoured();
    bool tryWord();
    EResult lockWord(Deadline& deadline);
    /// Withdraws another's favour and waits until no favoured thread is inside. By the holder of the word; a
    /// null deadline does not wait for that.
    EResult settle(Deadline* pDeadline);
    EResult waitOutside(SenderLockWords::Seat& seat, Deadline* pDeadline);
    bool unlockWord();
    /// Whether the holder has earned favour. By the holder of the word.
    void considerFavour();
    bool takeSeat();

    FutexMutex m_mutex;
    SenderLockWords& m_words;
    QueueFile& m_file;
    const std::uint32_t m_ticket;
    const bool m_mayBeFavoured;

    /// The one thread of this object that is ever favoured; 0: none so far. Its seat is set before.
    std::atomic<std::uint64_t> m_favouredThread{0};
    SenderLockWords::Seat* m_pSeat = nullptr;

    // The lock's holder's.
    bool m_isFavoured = false;  ///< it came in by favour
    std::uint64_t m_lastThread = 0;
    unsigned int m_timesInARow = 0;
    unsigned int m_timesNeeded;
};

}  // namespace sal
