#include "StreamReader.h"

#include <algorithm>
#include <utility>

#include "Printable.h"

namespace stream {

std::unique_ptr<StreamReader> StreamReader::open(const StreamSource& source, const StreamCursor& from,
                                                 std::string& error, std::optional<KeyNames> names) {
    if (from.place == StreamCursor::EPlace::Exact) {
        if (from.instance != source.instance()) {
            error = base::quoted(from.text()) + " is a place in another stream than this one, which is " +
                    source.instance();
            return nullptr;
        }
        const std::uint64_t end = from.ring ? source.head(*from.ring) : source.lastNumber() + 1;
        const bool isPlace = !from.ring || from.position % layout::s_alignment == 0;
        // How far a dead stream has come is not always known.
        if (!isPlace || (from.position > end && (source.isLive() || from.ring))) {
            error = base::quoted(from.text()) + " lies beyond the stream, which has come to " +
                    std::to_string(end);
            return nullptr;
        }
    }
    const bool isToLearn = !names.has_value();
    std::unique_ptr<StreamReader> pReader(
        new StreamReader(source, from, isToLearn ? KeyNames() : std::move(*names)));
    if (isToLearn)
        pReader->learnNames();
    return pReader;
}

std::unique_ptr<StreamReader> StreamReader::openNewest(const StreamSource& source, std::uint64_t auditBytes,
                                                       KeyNames names) {
    std::unique_ptr<StreamReader> pReader(new StreamReader(source, StreamCursor::newest(), std::move(names)));
    pReader->m_wholeFrom = pReader->m_begin;
    pReader->m_cursors.pop_back();
    pReader->m_cursors.push_back(RingCursor::ofNewest(source, ERing::Audit, auditBytes));
    return pReader;
}

StreamReader::StreamReader(const StreamSource& source, const StreamCursor& from, KeyNames names)
    : m_source(source), m_ring(from.ring), m_names(std::move(names)), m_begin(source.lastNumber() + 1) {
    for (const ERing ring : {ERing::Values, ERing::Audit}) {
        if (m_ring && *m_ring != ring)
            continue;
        if (from.place == StreamCursor::EPlace::Newest) {
            m_cursors.emplace_back(source, ring, source.head(ring));
        } else if (from.place == StreamCursor::EPlace::Exact && m_ring) {
            m_cursors.emplace_back(source, ring, std::max<std::uint64_t>(from.position, source.size(ring)));
        } else {
            m_cursors.push_back(from.place == StreamCursor::EPlace::Exact
                                    ? RingCursor::before(source, ring, from.position)
                                    : RingCursor(source, ring));
            m_isRingLapped[static_cast<std::size_t>(ring)] = m_cursors.back().position() != source.size(ring);
        }
    }
    m_isFromNewest = from.place == StreamCursor::EPlace::Newest;
    if (m_ring || m_isFromNewest)
        return;
    const bool isWhole = !m_isRingLapped[0] && !m_isRingLapped[1];
    if (from.place == StreamCursor::EPlace::Exact)
        m_expected = std::max<std::uint64_t>(from.position, 1);
    else if (isWhole)
        m_expected = 1;
}

void StreamReader::learnNames() {
    // Each definition is said again in every quarter of a lap. What is being written there now is read in its
    // turn.
    RingCursor cursor(m_source, ERing::Audit, Clock::duration::zero());
    const std::uint64_t end = m_source.head(ERing::Audit);
    m_learnedAt = end;
    StreamRecord record;
    while (cursor.position() < end) {
        const auto step = cursor.step(record, Clock::time_point());
        if (step == RingCursor::EStep::Record)
            m_names.learn(record);
        else if (step == RingCursor::EStep::Empty)
            return;
    }
}

void StreamReader::lapped(ERing ring) {
    m_isLapped = true;
    // Of one that began with the newest and has read nothing it is known all the same what is missing.
    if (m_isFromNewest && m_expected == 0)
        m_expected = m_begin;
    m_isRingLapped[static_cast<std::size_t>(ring)] = true;
    // Definitions may have been among what was missed.
    if (ring == ERing::Audit)
        learnNames();
}

StreamReader::EResult StreamReader::next(Clock::time_point now) {
    m_isWaiting = false;
    return m_ring ? nextOfOne(now) : nextOfBoth(now);
}

void StreamReader::keep() {
    ++m_pendingOf[static_cast<std::size_t>(ringOf(m_record.kind))];
    m_pending.push(std::move(m_record));
}

void StreamReader::takePending() {
    m_record = m_pending.top();
    m_pending.pop();
    --m_pendingOf[static_cast<std::size_t>(ringOf(m_record.kind))];
}

StreamReader::EFetched StreamReader::fetch(Clock::time_point now, bool ofAll) {
    const bool isFull = m_pending.size() >= s_farthest;
    bool hasSome = false;
    for (RingCursor& cursor : m_cursors) {
        const bool hasPending = m_pendingOf[static_cast<std::size_t>(cursor.ring())] > 0;
        if (hasPending && !(ofAll && (!isFull || cursor.isAtHole())))
            continue;
        switch (cursor.step(m_record, now)) {
            case RingCursor::EStep::Record:
                if (std::exchange(m_isRingLapped[static_cast<std::size_t>(cursor.ring())], false))
                    m_wholeFrom = std::max(m_wholeFrom, m_record.number);
                if (m_record.number == m_expected)
                    return EFetched::Due;
                // What is before it was given already, or lies before the place to begin with.
                if (m_record.number > m_expected)
                    keep();
                hasSome = true;
                break;
            case RingCursor::EStep::Lapped:
                lapped(cursor.ring());
                hasSome = true;
                break;
            case RingCursor::EStep::Passed:
                hasSome = true;
                break;
            case RingCursor::EStep::Wait:
                m_isWaiting = true;
                break;
            case RingCursor::EStep::Empty:
                break;
        }
    }
    return hasSome ? EFetched::Some : EFetched::None;
}

StreamReader::EResult StreamReader::nextOfBoth(Clock::time_point now) {
    for (;;) {
        while (!m_pending.empty() && m_pending.top().number < m_expected)
            takePending();
        if (!m_pending.empty() && m_pending.top().number == m_expected)
            break;
        m_isWaiting = false;
        EFetched fetched = fetch(now, false);
        if (fetched == EFetched::None)
            fetched = fetch(now, true);
        if (fetched == EFetched::Due)
            return deliver();
        if (fetched == EFetched::Some)
            continue;
        if (m_isWaiting)
            return EResult::Nothing;
        if (m_pending.empty())
            return idle();
        // Whoever takes a number has its place already, and so have all lower numbers: what is not found by
        // now will not come.
        if (m_expected != 0)
            return deliverGap(m_pending.top());
        break;
    }
    takePending();
    return deliver();
}

StreamReader::EResult StreamReader::nextOfOne(Clock::time_point now) {
    if (m_isGapTold) {
        m_isGapTold = false;
        takePending();
        return deliver();
    }
    RingCursor& cursor = m_cursors.front();
    bool hasPassed = false;
    for (;;) {
        switch (cursor.step(m_record, now)) {
            case RingCursor::EStep::Record:
                if (!hasPassed && !m_isLapped)
                    return deliver();
                m_isGapTold = true;
                keep();
                return deliverGap(m_pending.top());
            case RingCursor::EStep::Lapped:
                lapped(cursor.ring());
                break;
            case RingCursor::EStep::Passed:
                hasPassed = true;
                break;
            case RingCursor::EStep::Wait:
                m_isWaiting = true;
                return EResult::Nothing;
            case RingCursor::EStep::Empty:
                return idle();
        }
    }
}

StreamReader::EResult StreamReader::deliver() {
    m_expected = m_record.number + 1;
    m_last = m_record.time;
    m_names.learn(m_record);
    // Definitions stand in the other ring.
    const bool hasNumber = (m_record.key & 0xffffu) != 0;
    if (m_ring == ERing::Values && hasNumber && !m_names.find(m_record.key) &&
        m_source.head(ERing::Audit) != m_learnedAt)
        learnNames();
    return EResult::Record;
}

StreamReader::EResult StreamReader::deliverGap(const StreamRecord& next) {
    const bool isLapped = m_ring ? m_isLapped : next.number <= m_wholeFrom;
    m_gap.reason = isLapped            ? StreamGap::EReason::Lapped
                   : m_source.isLive() ? StreamGap::EReason::Missing
                                       : StreamGap::EReason::Damaged;
    m_gap.first = m_expected;
    m_gap.next = next.number;
    m_gap.from = m_last;
    m_gap.to = next.time;
    m_gap.count = m_ring ? 0 : next.number - m_expected;
    m_missed += m_gap.count;
    m_expected = next.number;
    m_isLapped = false;
    return EResult::Gap;
}

StreamCursor StreamReader::cursor() const {
    if (m_ring)
        return {StreamCursor::EPlace::Exact, m_source.instance(), m_ring, m_cursors.front().position()};
    const std::uint64_t next = m_expected != 0 ? m_expected : m_begin;
    return {StreamCursor::EPlace::Exact, m_source.instance(), std::nullopt, next};
}

}  // namespace stream
