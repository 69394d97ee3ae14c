#include "PastReader.h"

#include <algorithm>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

namespace stream {
namespace {

constexpr std::chrono::milliseconds s_step{10};
/// For a place that is being written: twice as long as a reader waits for it.
constexpr int s_steps = 20;

}  // namespace

PastReader::PastReader(Parts parts, const Bounds& bounds)
    : m_parts(std::move(parts)), m_bounds(bounds), m_ringAfter(m_parts.segments) {
    if (!m_parts.pRings)
        return;
    m_ringTo = m_parts.pRings->lastNumber();
    placeRings();
}

std::unique_ptr<StreamReader> PastReader::openRingsAt(const StreamCursor& from) const {
    std::string error;
    auto pReader = StreamReader::open(*m_parts.pRings, from, error, m_parts.names);
    if (!pReader)
        throw std::runtime_error(error);
    return pReader;
}

/// From that number on nothing was pushed out of either ring.
std::uint64_t PastReader::wholeFrom() const {
    const StreamSource& rings = *m_parts.pRings;
    std::uint64_t number = 1;
    for (const ERing ring : {ERing::Values, ERing::Audit}) {
        const auto pReader = openRingsAt(StreamCursor::oldest(ring));
        const bool isLapped = rings.head(ring) > 2 * rings.size(ring);
        if (isLapped && pReader->next({}) == EResult::Record)
            number = std::max(number, pReader->record().number);
    }
    return number;
}

void PastReader::placeRings() {
    for (std::size_t count = m_parts.segments; count > 0; --count) {
        const auto pSegment = m_parts.openSegment(count - 1);
        if (!pSegment || pSegment->instance() != m_parts.pRings->instance())
            continue;
        m_ringAfter = count;
        m_ringFrom = std::min(pSegment->lastNumber() + 1, wholeFrom());
        return;
    }
}

std::unique_ptr<IStreamReader> PastReader::openSegmentAt(std::size_t index) {
    auto pSegment = m_parts.openSegment(index);
    if (!pSegment)
        return nullptr;
    m_isOfRings = m_parts.pRings && pSegment->instance() == m_parts.pRings->instance();
    const bool isInRings = m_isOfRings && pSegment->firstNumber() >= m_ringFrom;
    if (isInRings || pSegment->lastTime() < m_bounds.from || pSegment->firstTime() > m_bounds.to)
        return nullptr;
    pSegment->seek(m_bounds.from);
    return pSegment;
}

std::unique_ptr<IStreamReader> PastReader::openRings() {
    m_areRingsRead = true;
    m_isRing = true;
    if (m_ringFrom == 0)
        return std::make_unique<JoinedGaps>(openRingsAt(StreamCursor::oldest()));
    return std::make_unique<JoinedGaps>(
        openRingsAt({StreamCursor::EPlace::Exact, m_parts.pRings->instance(), std::nullopt, m_ringFrom}));
}

bool PastReader::openNext() {
    for (;;) {
        m_isRing = false;
        std::unique_ptr<IStreamReader> pPart;
        if (m_parts.pRings && !m_areRingsRead && m_next == m_ringAfter)
            pPart = openRings();
        else if (m_next < m_parts.segments)
            pPart = openSegmentAt(m_next++);
        else
            return false;
        if (!pPart)
            continue;
        m_pPart = std::move(pPart);
        ++m_part;
        return true;
    }
}

PastReader::EResult PastReader::step(Clock::time_point now) {
    EResult result = m_pPart->next(now);
    if (!m_isRing)
        return result;
    const auto& rings = static_cast<const JoinedGaps&>(*m_pPart);
    for (int i = 0; result == EResult::Nothing && rings.isWaiting() && i < s_steps; ++i) {
        std::this_thread::sleep_for(s_step);
        result = m_pPart->next(Clock::now());
    }
    // What comes while this is read would keep it from ending.
    const bool isLater = result == EResult::Record && m_parts.pRings->isLive() && record().number > m_ringTo;
    return result == EResult::Nothing || isLater ? EResult::End : result;
}

bool PastReader::isWanted(EResult result) const {
    if (result == EResult::Gap)
        return gap().to >= m_bounds.from && gap().from <= m_bounds.to;
    const bool isInRings = !m_isRing && m_isOfRings && record().number >= m_ringFrom;
    return !isInRings && record().time >= m_bounds.from && record().time <= m_bounds.to;
}

PastReader::EResult PastReader::next(Clock::time_point now) {
    for (;;) {
        if (!m_pPart && !openNext())
            return EResult::End;
        const EResult result = step(now);
        if (result == EResult::Record || result == EResult::Gap) {
            if (isWanted(result))
                return result;
        } else if (!openNext()) {
            return EResult::End;
        }
    }
}

}  // namespace stream
