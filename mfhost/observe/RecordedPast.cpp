#include "RecordedPast.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <utility>

#include "Keeper.h"
#include "StreamText.h"

namespace {

using EResult = stream::IStreamReader::EResult;

/// A host that records writes its counts once a second: a begin that is later than that after the one that
/// was asked for is a hole.
constexpr std::chrono::seconds s_silence{2};
/// How often it is asked meanwhile whether to stop, in records.
constexpr unsigned s_askEach = 1024;
/// Nearer to each other they are told as one.
constexpr std::chrono::seconds s_near{1};

/// In the order of the enumerators: for programs, for people.
constexpr std::array<std::pair<const char*, const char*>, 7> s_words{{
    {"not-recorded", "nothing was recorded"},
    {"lapped", "newer records took its place"},
    {"missing", "records were never completed"},
    {"damaged", "the recording is damaged"},
    {"beyond-limit", "more came than is kept in a second"},
    {"disk", "the disk did not take it"},
    {"not-read", "too much to be read for one question; mfctl recording show has it"},
}};

stream::Time changedAt(const struct stat& status) {
    return stream::Time(std::chrono::seconds(status.st_mtim.tv_sec) +
                        std::chrono::nanoseconds(status.st_mtim.tv_nsec));
}

RecordedPast::EHole holeOf(stream::StreamGap::EReason reason) {
    switch (reason) {
        case stream::StreamGap::EReason::Lapped:
            return RecordedPast::EHole::Lapped;
        case stream::StreamGap::EReason::Missing:
            return RecordedPast::EHole::Missing;
        case stream::StreamGap::EReason::Damaged:
            break;
    }
    return RecordedPast::EHole::Damaged;
}

/// Of a keeper's record of a gap.
RecordedPast::EHole holeOf(std::uint32_t reason) {
    using enum RecordedPast::EHole;
    static constexpr std::array<RecordedPast::EHole, 5> s_holes{Lapped, Missing, Damaged, OverLimit, Disk};
    return reason < s_holes.size() ? s_holes[reason] : Damaged;
}

}  // namespace

std::vector<std::string> RecordedPast::chooseSegments(Time from) {
    std::vector<std::string> chosen;
    if (m_directory.empty())
        return chosen;
    const auto paths = Keeper::segments(m_directory);
    std::size_t bytes = 0;
    for (auto path = paths.rbegin(); path != paths.rend(); ++path) {
        struct stat status {};
        // The keeper may have removed it meanwhile.
        if (::stat(path->c_str(), &status) != 0)
            continue;
        // Nothing that was written later stands in it.
        if (changedAt(status) < from)
            break;
        bytes += static_cast<std::size_t>(status.st_size);
        if (bytes > m_mostBytes && !chosen.empty()) {
            m_isLeftOut = true;
            break;
        }
        chosen.push_back(*path);
    }
    std::reverse(chosen.begin(), chosen.end());
    return chosen;
}

std::unique_ptr<stream::SegmentReader> RecordedPast::openSegment(const std::string& path) {
    std::string error;
    auto pSegment = stream::SegmentReader::open(path, error);
    struct stat status {};
    // A keeper that has made its next one has not written into it yet, or has removed it.
    m_isBroken = m_isBroken || (!pSegment && ::stat(path.c_str(), &status) == 0 && status.st_size > 0);
    return pSegment;
}

bool RecordedPast::read(const Span& span, const Take& take, const std::function<bool()>& isToStop) {
    m_span = span;
    m_holes.clear();
    m_isLeftOut = m_isBroken = m_isAnew = false;
    const std::vector<std::string> segments = chooseSegments(span.from);
    stream::PastReader reader({.segments = segments.size(),
                               .openSegment = [&](std::size_t index) { return openSegment(segments[index]); },
                               .pRings = &m_recorded.source(),
                               .names = m_recorded.names()},
                              {.to = span.to});
    // What it has looked at to place the rings it opens again in its turn.
    m_isBroken = false;
    std::string instance;
    std::size_t part = 0;
    Time last;
    for (unsigned count = 0;; ++count) {
        if (count % s_askEach == 0 && isToStop())
            return false;
        const EResult result = reader.next(stream::IStreamReader::Clock::now());
        if (result == EResult::Gap) {
            const stream::StreamGap& gap = reader.gap();
            addHole(holeOf(gap.reason), gap.from == Time() ? last : gap.from, gap.to);
            continue;
        }
        if (result != EResult::Record)
            break;
        const stream::StreamRecord& record = reader.record();
        if (last == Time())
            began(record.time);
        bool isOtherHost = false;
        if (std::exchange(part, reader.part()) != reader.part())
            isOtherHost = std::exchange(instance, reader.cursor().instance) != instance && last != Time();
        if (isOtherHost) {
            addHole(EHole::NotRecorded, last, record.time);
            m_isAnew = true;
        }
        if (std::exchange(m_isBroken, false))
            addHole(EHole::Damaged, last, record.time);
        last = record.time;
        if (record.kind == stream::EKind::Gap)
            addKept(record);
        else
            take(record, reader.names(), std::exchange(m_isAnew, false));
    }
    if (last == Time())
        began(span.to);
    else if (instance != m_recorded.source().instance())
        addHole(EHole::NotRecorded, last, span.to);
    return true;
}

/// The first record that there is came then.
void RecordedPast::began(Time first) {
    if (first - m_span.from < s_silence)
        return;
    const Time started = m_recorded.source().started();
    if (m_isLeftOut)
        return addHole(EHole::NotRead, m_span.from, first);
    addHole(EHole::NotRecorded, m_span.from, std::min(first, started));
    const Time recordedFrom = std::max(m_span.from, started);
    if (first - recordedFrom >= s_silence)
        addHole(EHole::Lapped, recordedFrom, first);
}

void RecordedPast::addKept(const stream::StreamRecord& gap) {
    const stream::StreamGap kept = stream::keptGap(gap);
    addHole(holeOf(gap.value), kept.from == Time() ? kept.to : kept.from, kept.to);
}

void RecordedPast::addHole(EHole reason, Time from, Time to) {
    m_isAnew = m_isAnew || to < m_span.from;
    const Hole hole{reason, std::max(from, m_span.from), std::min(to, m_span.to)};
    if (to < m_span.from || hole.to < hole.from || (from == to && reason == EHole::NotRecorded))
        return;
    const bool isNear =
        !m_holes.empty() && m_holes.back().reason == reason && hole.from - m_holes.back().to <= s_near;
    if (isNear || m_holes.size() >= s_mostHoles)
        m_holes.back().to = std::max(m_holes.back().to, hole.to);
    else
        m_holes.push_back(hole);
}

const char* inWords(RecordedPast::EHole reason) {
    return s_words.at(static_cast<std::size_t>(reason)).first;
}

const char* explained(RecordedPast::EHole reason) {
    return s_words.at(static_cast<std::size_t>(reason)).second;
}
