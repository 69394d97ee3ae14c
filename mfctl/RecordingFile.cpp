#include "RecordingFile.h"

#include <fcntl.h>

#include <cerrno>
#include <cstring>

#include "ControlError.h"
#include "Printable.h"
#include "UniqueFd.h"

namespace {

/// What may not be read is told apart from what is no recording.
void requireReadable(const std::string& path) {
    const base::UniqueFd file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!file && (errno == EACCES || errno == EPERM))
        throw ControlError(
            EExit::NotAllowed,
            base::quoted(path) + " may be read by its host's user and by root only: " + std::strerror(errno));
}

}  // namespace

std::unique_ptr<stream::StreamSource> openRing(const std::string& path) {
    requireReadable(path);
    std::string error;
    auto pSource = stream::StreamSource::open(path, error);
    if (!pSource)
        throw ControlError(EExit::Failed, error);
    return pSource;
}

std::unique_ptr<stream::SegmentReader> openSegment(const std::string& path) {
    requireReadable(path);
    std::string error;
    auto pReader = stream::SegmentReader::open(path, error);
    if (!pReader)
        throw ControlError(EExit::Failed, error);
    return pReader;
}
