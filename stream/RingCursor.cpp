#include "RingCursor.h"

#include <algorithm>

namespace stream {

RingCursor::RingCursor(const StreamSource& source, ERing ring, Clock::duration patience)
    : m_source(source), m_ring(ring), m_patience(patience), m_position(0) {
    m_position = oldest();
    // A lap begins anywhere in a record but for the first one.
    m_isAdrift = m_position != m_source.size(m_ring);
}

RingCursor RingCursor::ofNewest(const StreamSource& source, ERing ring, std::uint64_t bytes) {
    RingCursor cursor(source, ring);
    const std::uint64_t back = bytes / layout::s_alignment * layout::s_alignment;
    const std::uint64_t head = source.head(ring);
    if (head > back && head - back > cursor.m_position)
        cursor.goTo(head - back);
    return cursor;
}

RingCursor RingCursor::before(const StreamSource& source, ERing ring, std::uint64_t number) {
    RingCursor cursor(source, ring);
    // A writer may be held up between its place and its number: numbers rise but for that.
    const std::uint64_t slack = source.size(ring) / 64 / layout::s_alignment * layout::s_alignment;
    std::uint64_t low = cursor.m_position;
    std::uint64_t high = source.head(ring);
    while (high - low > 2 * slack) {
        const std::uint64_t middle = low + (high - low) / 2 / layout::s_alignment * layout::s_alignment;
        RingCursor probe(source, ring, middle);
        StreamRecord record;
        std::size_t size = 0;
        probe.seek(high);
        const bool isThere = source.read(ring, probe.m_position, record, size);
        if (isThere && record.number < number)
            low = middle;
        else
            high = middle;
    }
    if (low > cursor.m_position + slack)
        cursor.goTo(low - slack);
    return cursor;
}

std::uint64_t RingCursor::oldest() const {
    const std::uint64_t size = m_source.size(m_ring);
    return std::max(m_source.head(m_ring) - size, size);
}

void RingCursor::seek(std::uint64_t end) {
    StreamRecord ignored;
    std::size_t size = 0;
    while (m_position < end && !m_source.read(m_ring, m_position, ignored, size))
        m_position += layout::s_alignment;
}

RingCursor::EStep RingCursor::step(StreamRecord& record, Clock::time_point now) {
    const std::uint64_t head = m_source.head(m_ring);
    if (m_position >= head)
        return EStep::Empty;
    if (head - m_position > m_source.size(m_ring)) {
        // Further on than need be: writers go on while somebody reads.
        m_position = oldest() + m_source.size(m_ring) / 8 / layout::s_alignment * layout::s_alignment;
        m_isAtHole = false;
        m_isAdrift = true;
        return EStep::Lapped;
    }
    std::size_t size = 0;
    if (m_source.read(m_ring, m_position, record, size)) {
        m_position += size;
        m_isAtHole = false;
        m_isAdrift = false;
        return EStep::Record;
    }
    if (m_isAdrift) {
        // To the first record that is there; what is being written before it was not waited for.
        seek(head);
        m_isAdrift = false;
        return EStep::Passed;
    }
    if (!m_isAtHole) {
        m_isAtHole = true;
        m_holeSince = now;
        m_headThen = head;
    }
    if (m_source.isLive() && now - m_holeSince < m_patience)
        return EStep::Wait;
    m_position += layout::s_alignment;
    seek(m_headThen);
    m_isAtHole = false;
    return EStep::Passed;
}

}  // namespace stream
