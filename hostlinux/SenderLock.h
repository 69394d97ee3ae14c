#pragma once

#include "Deadline.h"
#include "FutexMutex.h"
#include "QueueFile.h"

namespace sal {

/// The lock that the senders of all processes share: a mutex inside the object, then a word in shared memory
/// that holds the owner's ticket. A ticket's lock on the file dies with its process, and only after the last
/// thread of it has stopped, so whoever waits asks the kernel whether the owner still lives and takes over
/// when it does not: nothing rests on process or thread IDs, which the system gives out again. A stopped
/// owner keeps the lock.
class SenderLock {
public:
    enum class Result { eLocked, eTimedOut, eBroken };

    SenderLock(FutexWord& word, QueueFile& file, std::uint32_t ticket);

    /// eBroken when the word is no longer mapped or reads as no ticket for long.
    Result lock(Deadline& deadline);
    bool tryLock();
    /// False when somebody else has written to the word meanwhile.
    bool unlock();

    static constexpr std::uint32_t s_maxTicket = 0x7fffffff;

private:
    static constexpr std::uint32_t s_waitersBit = 0x80000000;

    bool tryWord();
    Result lockWord(Deadline& deadline);

    FutexMutex m_mutex;
    FutexWord& m_word;
    QueueFile& m_file;
    const std::uint32_t m_ticket;
};

}  // namespace sal
