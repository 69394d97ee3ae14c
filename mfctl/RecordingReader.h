#pragma once

#include <memory>
#include <set>
#include <string>

#include "PastReader.h"
#include "RecordingFiles.h"
#include "StreamSource.h"

/// Reads all that there is of a recording's files, as stream::PastReader has it. Throws a ControlError where
/// a file cannot be read; a segment among others that is no recording is passed over. One thread.
class RecordingReader final : public stream::IStreamReader {
public:
    using Bounds = stream::PastReader::Bounds;

    RecordingReader(const RecordingFiles& files, const Bounds& bounds);

    /// A record, a gap, or the end.
    EResult next(Clock::time_point now) override { return m_past.next(now); }
    const stream::StreamRecord& record() const override { return m_past.record(); }
    const stream::StreamGap& gap() const override { return m_past.gap(); }
    const stream::KeyNames& names() const override { return m_past.names(); }
    stream::StreamCursor cursor() const override { return m_past.cursor(); }

    /// Why segments were passed over so far.
    const std::set<std::string>& faults() const { return m_faults; }

private:
    stream::PastReader::Parts parts();
    std::unique_ptr<stream::SegmentReader> tryOpen(std::size_t index);

    const RecordingFiles m_files;
    const std::unique_ptr<stream::StreamSource> m_pSource;
    std::set<std::string> m_faults;
    stream::PastReader m_past;
};
