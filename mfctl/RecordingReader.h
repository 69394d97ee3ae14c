#pragma once

#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "IStreamReader.h"
#include "JoinedGaps.h"
#include "RecordingFiles.h"
#include "SegmentReader.h"
#include "StreamSource.h"

/// Reads all that there is of a recording, up to now: the segments, then from the rings what they have in
/// full. What stands in both is given once, from the rings. Reading a place where a host is just writing
/// waits for it, a fifth of a second at most. Throws a ControlError where a file cannot be read; a segment
/// among others that is no recording is passed over. One thread.
class RecordingReader final : public stream::IStreamReader {
public:
    /// Records of both times and between.
    struct Bounds {
        stream::Time from = stream::Time::min();
        stream::Time to = stream::Time::max();
    };
    RecordingReader(const RecordingFiles& files, const Bounds& bounds);

    /// A record, a gap, or the end.
    EResult next(Clock::time_point now) override;
    const stream::StreamRecord& record() const override { return m_pPart->record(); }
    const stream::StreamGap& gap() const override { return m_pPart->gap(); }
    const stream::KeyNames& names() const override { return m_pPart->names(); }
    stream::StreamCursor cursor() const override { return m_pPart->cursor(); }

    /// Why segments were passed over so far.
    const std::set<std::string>& faults() const { return m_faults; }

private:
    void placeRing();
    /// Goes on to the next file that has something within the bounds; false where there is none.
    bool openNext();
    std::unique_ptr<stream::SegmentReader> tryOpen(std::size_t index);
    std::unique_ptr<stream::IStreamReader> openSegmentAt(std::size_t index);
    std::unique_ptr<stream::IStreamReader> openRings();
    EResult step(Clock::time_point now);
    bool isWanted(EResult result) const;

    const RecordingFiles m_files;
    const Bounds m_bounds;
    std::unique_ptr<stream::StreamSource> m_pSource;
    std::uint64_t m_ringFrom = 0;  ///< with this number the rings begin; 0: with the oldest
    std::uint64_t m_ringTo = 0;    ///< the last number when it was opened
    std::size_t m_ringAfter = 0;   ///< so many segments come before the rings
    std::size_t m_next = 0;        ///< segment
    bool m_areRingsRead = false;
    bool m_isRing = false;     ///< m_pPart reads the rings
    bool m_isOfRings = false;  ///< it reads a segment of the rings' host
    std::unique_ptr<stream::IStreamReader> m_pPart;
    std::set<std::string> m_faults;
};
