#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "QueueFile.h"
#include "QueueLayout.h"

namespace sal {

/// The messages of a queue, without waiting: puts one in, takes one out, gives memory back. Everything that
/// is read from the shared memory is checked before it is used. push() and trim() are called by the holder of
/// the senders' lock, pop() and what else belongs to the receiver by one thread at a time.
class QueueRing {
public:
    enum class EResult { Done, Full, Empty, NoMemory, Broken };

    QueueRing(std::byte* pBase, const QueueGeometry& geometry, QueueFile& file);

    EResult push(const unsigned char* data, std::uint32_t length);
    /// The place of the message that was pushed last, as a count of messages. Until another one is pushed.
    std::uint32_t sent() const { return QueueCursor::unpack(m_ownTail).count; }

    /// The receiver begins where the last one stopped. False when that makes no sense.
    bool beginReceiving();
    /// length comes back as the message's, even where it is cut to size.
    EResult pop(unsigned char* buffer, std::uint32_t size, std::uint32_t& length);
    /// The messages that are known to wait after the last pop(); there may be more.
    std::uint32_t left() const { return m_left; }
    /// Looks how many there are now. Receiver.
    std::uint32_t countLeft();
    /// Whether the last pop() was the first from its chunk.
    bool hasEnteredChunk() const { return m_hasEnteredChunk; }
    /// The place that the receiver has reached, as a count of messages.
    std::uint32_t received() const { return m_head.count; }

    /// Whether the backlog has been low for a second and memory may be given back. Receiver.
    bool wantsTrim(std::chrono::steady_clock::time_point now);
    /// Gives the memory of unused chunks back, but for the first few.
    void trim();

    QueueHeader& header() const { return *m_pHeader; }
    const QueueGeometry& geometry() const { return m_geometry; }
    std::uint32_t depth() const;

private:
    bool plausible(const QueueCursor& head, const QueueCursor& tail) const;
    bool markUsed(const QueueCursor& head, const QueueCursor& tail);
    std::uint32_t freeChunk() const;
    bool isUsed(std::uint32_t chunk) const { return (m_used[chunk / 64] >> chunk % 64 & 1) != 0; }

    std::atomic<std::uint32_t>& ringEntry(std::uint32_t sequence) const {
        return m_pRing[sequence & (m_geometry.ringSize - 1)];
    }
    std::byte* chunkBase(std::uint32_t chunk) const {
        return m_pChunks + std::size_t{chunk} * m_geometry.chunkSize;
    }
    static std::atomic<std::uint64_t>& recordAt(std::byte* pPlace) {
        return *reinterpret_cast<std::atomic<std::uint64_t>*>(pPlace);
    }

    const QueueGeometry m_geometry;
    QueueFile& m_file;
    QueueHeader* m_pHeader;
    std::atomic<std::uint32_t>* m_pRing;
    std::atomic<std::uint8_t>* m_pAllocated;
    std::byte* m_pChunks;

    // The lock's holder's. Both ends write their cursor for each message, so that a look at the other one is
    // the dearest part of a call: each uses what it saw last for as long as that will do.
    std::vector<std::uint64_t> m_used;  ///< a bit for each chunk; scratch
    QueueCursor m_seenHead;
    std::uint64_t m_ownTail = 0;  ///< while the shared tail says this, m_seenHead is of this round
    bool m_hasSeenHead = false;

    // The receiver's own.
    QueueCursor m_head;  ///< what the shared head must still say
    QueueCursor m_seenTail;
    std::uint32_t m_left = 0;
    std::chrono::steady_clock::time_point m_lowSince;
    bool m_isLow = false;
    bool m_hasEnteredChunk = false;
};

}  // namespace sal
