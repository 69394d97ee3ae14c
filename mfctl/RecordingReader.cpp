#include "RecordingReader.h"

#include <algorithm>
#include <filesystem>
#include <thread>
#include <utility>

#include "ControlError.h"
#include "RecordingFile.h"

namespace {

using stream::ERing;
using stream::StreamCursor;
using stream::StreamReader;

constexpr std::chrono::milliseconds s_step{10};
/// For a place that is being written: twice as long as a reader waits for it.
constexpr int s_steps = 20;

std::unique_ptr<StreamReader> openAt(const stream::StreamSource& source, const StreamCursor& from) {
    std::string error;
    auto pReader = StreamReader::open(source, from, error);
    if (!pReader)
        throw ControlError(EExit::Failed, error);
    return pReader;
}

/// From that number on nothing was pushed out of either ring.
std::uint64_t wholeFrom(const stream::StreamSource& source) {
    std::uint64_t number = 1;
    for (const ERing ring : {ERing::Values, ERing::Audit}) {
        const auto pReader = openAt(source, StreamCursor::oldest(ring));
        const bool isLapped = source.head(ring) > 2 * source.size(ring);
        if (isLapped && pReader->next({}) == stream::IStreamReader::EResult::Record)
            number = std::max(number, pReader->record().number);
    }
    return number;
}

}  // namespace

RecordingReader::RecordingReader(const RecordingFiles& files, const Bounds& bounds)
    : m_files(files), m_bounds(bounds), m_ringAfter(files.segments.size()) {
    if (m_files.ring.empty())
        return;
    m_pSource = openRing(m_files.ring);
    m_ringTo = m_pSource->lastNumber();
    placeRing();
}

void RecordingReader::placeRing() {
    for (std::size_t count = m_files.segments.size(); count > 0; --count) {
        const auto pSegment = tryOpen(count - 1);
        if (!pSegment || pSegment->instance() != m_pSource->instance())
            continue;
        m_ringAfter = count;
        m_ringFrom = std::min(pSegment->lastNumber() + 1, wholeFrom(*m_pSource));
        return;
    }
}

std::unique_ptr<stream::SegmentReader> RecordingReader::tryOpen(std::size_t index) {
    const std::string& path = m_files.segments[index];
    try {
        return openSegment(path);
    } catch (const ControlError& error) {
        const bool isAlone = m_files.segments.size() == 1 && m_files.ring.empty();
        if (isAlone || error.exit() != EExit::Failed)
            throw;
        // A host that has made its next one has not written into it yet.
        std::error_code failed;
        if (std::filesystem::file_size(path, failed) > 0)
            m_faults.insert(error.what());
        return nullptr;
    }
}

std::unique_ptr<stream::IStreamReader> RecordingReader::openSegmentAt(std::size_t index) {
    auto pSegment = tryOpen(index);
    if (!pSegment)
        return nullptr;
    m_isOfRings = m_pSource && pSegment->instance() == m_pSource->instance();
    const bool isInRings = m_isOfRings && pSegment->firstNumber() >= m_ringFrom;
    if (isInRings || pSegment->lastTime() < m_bounds.from || pSegment->firstTime() > m_bounds.to)
        return nullptr;
    pSegment->seek(m_bounds.from);
    return pSegment;
}

std::unique_ptr<stream::IStreamReader> RecordingReader::openRings() {
    m_areRingsRead = true;
    m_isRing = true;
    if (m_ringFrom == 0)
        return std::make_unique<stream::JoinedGaps>(openAt(*m_pSource, StreamCursor::oldest()));
    return std::make_unique<stream::JoinedGaps>(
        openAt(*m_pSource, {StreamCursor::EPlace::Exact, m_pSource->instance(), std::nullopt, m_ringFrom}));
}

bool RecordingReader::openNext() {
    for (;;) {
        m_isRing = false;
        std::unique_ptr<stream::IStreamReader> pPart;
        if (m_pSource && !m_areRingsRead && m_next == m_ringAfter)
            pPart = openRings();
        else if (m_next < m_files.segments.size())
            pPart = openSegmentAt(m_next++);
        else
            return false;
        if (!pPart)
            continue;
        m_pPart = std::move(pPart);
        return true;
    }
}

RecordingReader::EResult RecordingReader::step(Clock::time_point now) {
    EResult result = m_pPart->next(now);
    if (!m_isRing)
        return result;
    const auto& rings = static_cast<const stream::JoinedGaps&>(*m_pPart);
    for (int i = 0; result == EResult::Nothing && rings.isWaiting() && i < s_steps; ++i) {
        std::this_thread::sleep_for(s_step);
        result = m_pPart->next(Clock::now());
    }
    // What comes while this is read would keep it from ending.
    const bool isLater = result == EResult::Record && m_pSource->isLive() && record().number > m_ringTo;
    return result == EResult::Nothing || isLater ? EResult::End : result;
}

bool RecordingReader::isWanted(EResult result) const {
    if (result == EResult::Gap)
        return gap().to >= m_bounds.from && gap().from <= m_bounds.to;
    const bool isInRings = !m_isRing && m_isOfRings && record().number >= m_ringFrom;
    return !isInRings && record().time >= m_bounds.from && record().time <= m_bounds.to;
}

RecordingReader::EResult RecordingReader::next(Clock::time_point now) {
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
