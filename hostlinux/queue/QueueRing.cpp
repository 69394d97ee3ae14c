#include "QueueRing.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace sal {

namespace {

/// Chunks that keep their memory however low the backlog is.
constexpr std::uint32_t s_keptChunks = 3;
constexpr std::chrono::seconds s_trimPatience{1};
/// Bounds how long senders wait for the lock meanwhile.
constexpr std::uint32_t s_trimmedAtOnce = 256;

constexpr std::uint32_t countBetween(const QueueCursor& head, const QueueCursor& tail) {
    return (tail.count - head.count) & QueueCursor::s_countMask;
}

constexpr std::uint32_t chunksBetween(const QueueCursor& head, const QueueCursor& tail) {
    return (tail.sequence - head.sequence) & QueueCursor::s_sequenceMask;
}

}  // namespace

QueueRing::QueueRing(std::byte* pBase, const QueueGeometry& geometry, QueueFile& file)
    : m_geometry(geometry),
      m_file(file),
      m_pHeader(reinterpret_cast<QueueHeader*>(pBase)),
      m_pRing(reinterpret_cast<std::atomic<std::uint32_t>*>(pBase + geometry.ringOffset)),
      m_pAllocated(reinterpret_cast<std::atomic<std::uint8_t>*>(pBase + geometry.allocatedOffset)),
      m_pChunks(pBase + geometry.chunksOffset),
      m_used((geometry.chunkCount + 63) / 64) {}

bool QueueRing::plausible(const QueueCursor& head, const QueueCursor& tail) const {
    const std::uint32_t messages = countBetween(head, tail);
    const std::uint32_t chunks = chunksBetween(head, tail);
    if (messages > m_geometry.capacity || chunks >= m_geometry.chunkCount ||
        head.offset > m_geometry.chunkSize || tail.offset > m_geometry.chunkSize)
        return false;
    return messages == 0 ? head == tail : chunks > 0 || head.offset < tail.offset;
}

bool QueueRing::markUsed(const QueueCursor& head, const QueueCursor& tail) {
    std::fill(m_used.begin(), m_used.end(), 0);
    for (std::uint32_t i = 0; i <= chunksBetween(head, tail); ++i) {
        const std::uint32_t chunk = ringEntry(head.sequence + i).load(std::memory_order_relaxed);
        if (chunk >= m_geometry.chunkCount)
            return false;
        m_used[chunk / 64] |= std::uint64_t{1} << chunk % 64;
    }
    return true;
}

std::uint32_t QueueRing::freeChunk() const {
    for (std::uint32_t i = 0; i < m_used.size(); ++i) {
        if (m_used[i] != ~std::uint64_t{0})
            return i * 64 + static_cast<std::uint32_t>(std::countr_one(m_used[i]));
    }
    return m_geometry.chunkCount;
}

QueueRing::EResult QueueRing::push(const unsigned char* data, std::uint32_t length) {
    QueueHeader& shared = *m_pHeader;
    const std::uint64_t tailWord = shared.tail.load(std::memory_order_acquire);
    auto tail = QueueCursor::unpack(tailWord);
    const auto lookAtHead = [&] {
        m_seenHead = QueueCursor::unpack(shared.head.load(std::memory_order_acquire));
        m_hasSeenHead = true;
    };
    // The head only ever moves on, so an old one errs on the safe side; but cursors wrap, and when others
    // have sent meanwhile this sender does not know how often.
    if (!m_hasSeenHead || tailWord != m_ownTail || countBetween(m_seenHead, tail) >= m_geometry.capacity)
        lookAtHead();
    if (!plausible(m_seenHead, tail)) {
        m_hasSeenHead = false;
        return EResult::Broken;
    }
    if (countBetween(m_seenHead, tail) >= m_geometry.capacity)
        return EResult::Full;
    std::uint32_t chunk = ringEntry(tail.sequence).load(std::memory_order_relaxed);
    if (chunk >= m_geometry.chunkCount)
        return EResult::Broken;
    const std::uint32_t size = QueueRecord::sizeOf(length);
    if (tail.offset + size > m_geometry.chunkSize) {
        std::byte* pRest = chunkBase(chunk) + tail.offset;
        const bool hasRest = tail.offset + QueueRecord::s_size <= m_geometry.chunkSize;
        lookAtHead();
        if (!plausible(m_seenHead, tail) || !markUsed(m_seenHead, tail) ||
            (chunk = freeChunk()) >= m_geometry.chunkCount)
            return EResult::Broken;
        // Memory first, so that the lack of it is an answer and not a signal at the first access.
        if (m_pAllocated[chunk].load(std::memory_order_relaxed) == 0) {
            if (!m_file.allocate(m_geometry.chunksOffset + std::size_t{chunk} * m_geometry.chunkSize,
                                 m_geometry.chunkSize))
                return EResult::NoMemory;
            m_pAllocated[chunk].store(1, std::memory_order_relaxed);
        }
        if (hasRest)
            recordAt(pRest).store(QueueRecord{QueueRecord::s_endOfChunk, 0}.pack(),
                                  std::memory_order_relaxed);
        ++tail.sequence;
        tail.offset = 0;
        ringEntry(tail.sequence).store(chunk, std::memory_order_relaxed);
    }
    std::byte* pRecord = chunkBase(chunk) + tail.offset;
    recordAt(pRecord).store(QueueRecord{length, QueueRecord::markOf(tail.count)}.pack(),
                            std::memory_order_relaxed);
    if (length > 0)
        std::memcpy(pRecord + QueueRecord::s_size, data, length);
    tail.count = (tail.count + 1) & QueueCursor::s_countMask;
    tail.sequence &= QueueCursor::s_sequenceMask;
    tail.offset += size;
    m_ownTail = tail.pack();
    shared.tail.store(m_ownTail, std::memory_order_release);

    const auto add = [](std::atomic<std::uint64_t>& counter, std::uint64_t amount) {
        counter.store(counter.load(std::memory_order_relaxed) + amount, std::memory_order_relaxed);
    };
    add(shared.messages, 1);
    add(shared.bytes, length);
    const std::uint32_t highWater = shared.highWater.load(std::memory_order_relaxed);
    if (countBetween(m_seenHead, tail) > highWater) {
        lookAtHead();
        // The receiver may have passed this message already.
        const std::uint32_t now = countBetween(m_seenHead, tail);
        if (now > highWater && now <= m_geometry.capacity)
            shared.highWater.store(now, std::memory_order_relaxed);
    }
    return EResult::Done;
}

bool QueueRing::beginReceiving() {
    m_head = QueueCursor::unpack(m_pHeader->head.load(std::memory_order_acquire));
    m_seenTail = QueueCursor::unpack(m_pHeader->tail.load(std::memory_order_acquire));
    m_isLow = false;
    return plausible(m_head, m_seenTail);
}

QueueRing::EResult QueueRing::pop(unsigned char* buffer, std::uint32_t size, std::uint32_t& length) {
    QueueHeader& shared = *m_pHeader;
    if (m_head.count == m_seenTail.count)
        m_seenTail = QueueCursor::unpack(shared.tail.load(std::memory_order_acquire));
    // Only the receiver writes the head: a different one would make senders overwrite what is still unread.
    if (shared.head.load(std::memory_order_relaxed) != m_head.pack() || !plausible(m_head, m_seenTail))
        return EResult::Broken;
    if (m_head.count == m_seenTail.count)
        return EResult::Empty;
    const QueueCursor& tail = m_seenTail;
    QueueCursor head = m_head;
    for (int chunksLooked = 0;; ++chunksLooked) {
        const std::uint32_t chunk = ringEntry(head.sequence).load(std::memory_order_relaxed);
        if (chunk >= m_geometry.chunkCount)
            return EResult::Broken;
        std::byte* pRecord = chunkBase(chunk) + head.offset;
        const bool isLastChunk = head.sequence == tail.sequence;
        const std::uint32_t end = isLastChunk ? tail.offset : m_geometry.chunkSize;
        QueueRecord record;
        record.length = QueueRecord::s_endOfChunk;
        if (head.offset + QueueRecord::s_size <= end)
            record = QueueRecord::unpack(recordAt(pRecord).load(std::memory_order_relaxed));
        if (record.length == QueueRecord::s_endOfChunk) {
            // A fresh chunk begins with a record.
            if (isLastChunk || chunksLooked > 0)
                return EResult::Broken;
            head.sequence = (head.sequence + 1) & QueueCursor::s_sequenceMask;
            head.offset = 0;
            continue;
        }
        if (record.length > m_geometry.messageSize || record.mark != QueueRecord::markOf(head.count) ||
            head.offset + QueueRecord::sizeOf(record.length) > end)
            return EResult::Broken;
        if (const std::uint32_t copied = std::min(record.length, size); copied > 0)
            std::memcpy(buffer, pRecord + QueueRecord::s_size, copied);
        length = record.length;
        head.offset += QueueRecord::sizeOf(record.length);
        head.count = (head.count + 1) & QueueCursor::s_countMask;
        break;
    }
    m_hasEnteredChunk = head.sequence != m_head.sequence;
    m_head = head;
    m_left = countBetween(head, tail);
    shared.head.store(head.pack(), std::memory_order_release);
    if (chunksBetween(head, tail) >= s_keptChunks)
        m_isLow = false;
    return EResult::Done;
}

std::uint32_t QueueRing::countLeft() {
    const auto tail = QueueCursor::unpack(m_pHeader->tail.load(std::memory_order_acquire));
    // Nonsense is for the next pop() to find.
    if (plausible(m_head, tail)) {
        m_seenTail = tail;
        m_left = countBetween(m_head, tail);
        if (chunksBetween(m_head, tail) >= s_keptChunks)
            m_isLow = false;
    }
    return m_left;
}

std::uint32_t QueueRing::depth() const {
    const auto head = QueueCursor::unpack(m_pHeader->head.load(std::memory_order_acquire));
    const auto tail = QueueCursor::unpack(m_pHeader->tail.load(std::memory_order_acquire));
    return std::min(countBetween(head, tail), m_geometry.capacity);
}

bool QueueRing::wantsTrim(std::chrono::steady_clock::time_point now) {
    if (!m_isLow) {
        m_isLow = true;
        m_lowSince = now;
    }
    if (now - m_lowSince < s_trimPatience)
        return false;
    m_lowSince = now;
    for (std::uint32_t chunk = s_keptChunks; chunk < m_geometry.chunkCount; ++chunk) {
        if (m_pAllocated[chunk].load(std::memory_order_relaxed) != 0)
            return true;
    }
    return false;
}

void QueueRing::trim() {
    const auto head = QueueCursor::unpack(m_pHeader->head.load(std::memory_order_acquire));
    const auto tail = QueueCursor::unpack(m_pHeader->tail.load(std::memory_order_acquire));
    if (!plausible(head, tail) || !markUsed(head, tail))
        return;
    std::uint32_t trimmed = 0;
    for (std::uint32_t chunk = s_keptChunks; chunk < m_geometry.chunkCount && trimmed < s_trimmedAtOnce;) {
        std::uint32_t end = chunk;
        while (end < m_geometry.chunkCount && trimmed < s_trimmedAtOnce && !isUsed(end) &&
               m_pAllocated[end].load(std::memory_order_relaxed) != 0) {
            // Said before it is done: a chunk may be allocated twice but never be used without.
            m_pAllocated[end].store(0, std::memory_order_relaxed);
            ++end;
            ++trimmed;
        }
        if (end == chunk) {
            ++chunk;
            continue;
        }
        m_file.punch(m_geometry.chunksOffset + std::size_t{chunk} * m_geometry.chunkSize,
                     std::size_t{end - chunk} * m_geometry.chunkSize);
        chunk = end;
    }
}

}  // namespace sal
