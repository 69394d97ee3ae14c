#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "QueueEvent.h"
#include "SenderLockWords.h"

namespace sal {

// A queue is one file: the header page, the ring of chunk numbers, a byte for each chunk that says whether
// its memory has been allocated, and the chunks. Messages are in the chunks as records, one after the other;
// a record that does not fit in the rest of a chunk goes to a fresh one, whose number becomes the next entry
// of the ring. A chunk that the receiver has passed is free again: nothing says so but the two cursors, so
// there is no free list that a dying process could damage.

/// A place in the queue, one 64-bit word, so that a message is published (tail) and consumed (head) by a
/// single store.
struct QueueCursor {
    std::uint32_t count = 0;     ///< messages before this place
    std::uint32_t sequence = 0;  ///< which entry of the ring names the chunk
    std::uint32_t offset = 0;    ///< bytes from the chunk's beginning, a multiple of s_alignment

    static constexpr std::uint32_t s_countMask = (1U << 24) - 1;
    static constexpr std::uint32_t s_sequenceMask = (1U << 20) - 1;
    static constexpr std::uint32_t s_offsetMask = (1U << 20) - 1;
    static constexpr std::uint32_t s_alignment = 8;

    static QueueCursor unpack(std::uint64_t word) {
        return {static_cast<std::uint32_t>(word >> 40),
                static_cast<std::uint32_t>(word >> 20) & s_sequenceMask,
                (static_cast<std::uint32_t>(word) & s_offsetMask) * s_alignment};
    }
    std::uint64_t pack() const {
        return std::uint64_t{count & s_countMask} << 40 | std::uint64_t{sequence & s_sequenceMask} << 20 |
               (offset / s_alignment);
    }
    bool operator==(const QueueCursor&) const = default;
};

/// What precedes each message, read with one load.
struct QueueRecord {
    std::uint32_t length = 0;
    std::uint32_t mark = 0;

    static constexpr std::uint32_t s_size = 8;
    static constexpr std::uint32_t s_endOfChunk = 0xffffffff;

    /// Ties a record to its place in the sequence of messages.
    static std::uint32_t markOf(std::uint32_t count) {
        return 0xa5000000U | (count & QueueCursor::s_countMask);
    }
    static std::uint32_t sizeOf(std::uint32_t length) {
        return s_size +
               (length + QueueCursor::s_alignment - 1) / QueueCursor::s_alignment * QueueCursor::s_alignment;
    }
    static QueueRecord unpack(std::uint64_t word) {
        return {static_cast<std::uint32_t>(word), static_cast<std::uint32_t>(word >> 32)};
    }
    std::uint64_t pack() const { return std::uint64_t{mark} << 32 | length; }
};

/// The sizes of a queue, all of them a consequence of its capacity and message size.
struct QueueGeometry {
    std::uint32_t capacity = 0;
    std::uint32_t messageSize = 0;
    std::uint32_t chunkSize = 0;
    std::uint32_t chunkCount = 0;
    std::uint32_t ringSize = 0;  ///< a power of two, so that a sequence number may wrap
    std::size_t ringOffset = 0;
    std::size_t allocatedOffset = 0;
    std::size_t chunksOffset = 0;
    std::size_t fileSize = 0;

    static constexpr std::uint32_t s_maxCapacity = 65535;
    static constexpr std::uint32_t s_maxMessageSize = 65536;

    /// Nothing when no queue can have these.
    static std::optional<QueueGeometry> make(std::uint32_t capacity, std::uint32_t messageSize);
    bool operator==(const QueueGeometry&) const = default;
};

/// The first page of the file. Peers are not trusted: what is constant is copied when attaching, the rest is
/// checked at each use.
struct QueueHeader {
    static constexpr std::uint64_t s_magic = 0x3145554555514d53;
    static constexpr std::uint32_t s_version = 3;

    std::uint64_t magic = s_magic;
    std::uint32_t version = s_version;
    std::uint32_t capacity = 0;
    std::uint32_t messageSize = 0;
    std::uint32_t creatorPid = 0;
    std::uint64_t pidNamespaceDevice = 0;
    std::uint64_t pidNamespaceInode = 0;
    std::uint64_t maker = 0;   ///< see QueueMaker::Mark
    std::uint64_t number = 0;  ///< of this queue among the maker's

    alignas(64) std::atomic<std::uint32_t> broken{0};
    std::atomic<std::uint32_t> nextTicket{0};
    std::atomic<std::uint32_t> receiverGeneration{0};  ///< how many receivers have attached so far
    std::atomic<std::uint32_t> receiverPid{0};

    alignas(64) SenderLockWords senderLock;

    // They change under the lock.
    alignas(64) std::atomic<std::uint32_t> highWater{0};
    std::atomic<std::uint64_t> messages{0};
    std::atomic<std::uint64_t> bytes{0};
    std::atomic<std::uint64_t> waits{0};

    alignas(64) std::atomic<std::uint64_t> tail{0};
    alignas(64) std::atomic<std::uint64_t> head{0};
    alignas(64) QueueEvent dataEvent;
    alignas(64) QueueEvent spaceEvent;
};

static_assert(std::atomic<std::uint64_t>::is_always_lock_free);
static_assert(sizeof(std::atomic<std::uint64_t>) == sizeof(std::uint64_t));
static_assert(sizeof(std::atomic<std::uint8_t>) == 1);
static_assert(sizeof(QueueHeader) <= 4096);

}  // namespace sal
