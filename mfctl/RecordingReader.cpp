#include "RecordingReader.h"

#include <filesystem>

#include "ControlError.h"
#include "RecordingFile.h"

RecordingReader::RecordingReader(const RecordingFiles& files, const Bounds& bounds)
    : m_files(files),
      m_pSource(files.ring.empty() ? nullptr : openRing(files.ring)),
      m_past(parts(), bounds) {}

stream::PastReader::Parts RecordingReader::parts() {
    return {.segments = m_files.segments.size(),
            .openSegment = [this](std::size_t index) { return tryOpen(index); },
            .pRings = m_pSource.get()};
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
