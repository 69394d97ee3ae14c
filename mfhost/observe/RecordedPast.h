#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "PastReader.h"
#include "RecordedStream.h"

/// Reads what was recorded of a span of time: the segments of this host and of those before it, then the
/// rings; and tells in which times something may be missing. It reads the newest segments only, so many bytes
/// of them at most. Owned by whoever asks; one thread, not one that others wait for: it takes up to some
/// seconds.
class RecordedPast {
public:
    using Time = stream::Time;

    /// Bytes of segments that are read for one question, packed as they are.
    static constexpr std::size_t s_mostBytes = std::size_t{32} << 20;
    /// Holes that are told; beyond them the last one grows.
    static constexpr std::size_t s_mostHoles = 500;

    struct Span {
        Time from;
        Time to;
    };
    enum class EHole {
        NotRecorded,  ///< no host ran, or it did not record, or what it kept is gone
        Lapped,       ///< pushed out before it was kept
        Missing,      ///< a record was never completed
        Damaged,
        OverLimit,  ///< more than the recorder keeps in a second
        Disk,       ///< the disk did not take it
        NotRead     ///< it is there, but too much to be read for one question
    };
    struct Hole {
        EHole reason = EHole::NotRecorded;
        Time from;
        Time to;

        bool operator==(const Hole&) const = default;
    };
    /// Takes a record. isAnew: what was known before it may not hold any more. It is the first one of another
    /// host than the one before it, or some before it are missing in the time before the span.
    using Take =
        std::function<void(const stream::StreamRecord& record, const stream::KeyNames& names, bool isAnew)>;

    /// Both outlive it. An empty directory: nothing is kept beyond the rings.
    RecordedPast(const RecordedStream& recorded, std::string directory, std::size_t mostBytes = s_mostBytes)
        : m_recorded(recorded), m_directory(std::move(directory)), m_mostBytes(mostBytes) {}

    /// Gives each record up to the span's end in its order, such from before the span too, as they come by
    /// the way. False when isToStop, asked now and then, said so before all was read.
    bool read(const Span& span, const Take& take, const std::function<bool()>& isToStop);

    /// Of the span, in the order in which they were found.
    const std::vector<Hole>& holes() const { return m_holes; }

private:
    std::vector<std::string> chooseSegments(Time from);
    std::unique_ptr<stream::SegmentReader> openSegment(const std::string& path);
    void began(Time first);
    void addHole(EHole reason, Time from, Time to);
    void addKept(const stream::StreamRecord& gap);

    const RecordedStream& m_recorded;
    const std::string m_directory;
    const std::size_t m_mostBytes;
    Span m_span;
    bool m_isLeftOut = false;  ///< segments of the span are not read
    bool m_isBroken = false;   ///< one cannot be read; what comes next comes after a hole
    bool m_isAnew = false;     ///< of the next record that is given
    std::vector<Hole> m_holes;
};

/// "not-recorded", "lapped", "missing", "damaged", "beyond-limit", "disk" or "not-read".
const char* inWords(RecordedPast::EHole reason);
/// The same as a sentence for people.
const char* explained(RecordedPast::EHole reason);
