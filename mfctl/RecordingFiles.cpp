#include "RecordingFiles.h"

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "ControlError.h"
#include "Printable.h"

namespace fs = std::filesystem;

namespace {

/// What a segment begins with.
constexpr std::string_view s_frame = "MFFRAME1";

std::string beginningOf(const std::string& path) {
    std::string bytes(s_frame.size(), '\0');
    std::ifstream(path, std::ios::binary).read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return bytes;
}

}  // namespace

RecordingFiles RecordingFiles::in(const std::string& directory) {
    RecordingFiles files;
    std::error_code failed;
    for (fs::directory_iterator entry(directory, failed), end; !failed && entry != end;
         entry.increment(failed)) {
        const std::string name = entry->path().filename().string();
        if (name.ends_with(".seg"))
            files.segments.push_back(directory + '/' + name);
        else if (name == RecordingSearch::s_ringName)
            files.ring = directory + '/' + name;
    }
    if (failed == std::errc::permission_denied)
        throw ControlError(EExit::NotAllowed,
                           base::quoted(directory) +
                               " may be read by its host's user and by root only: " + failed.message());
    if (failed)
        throw ControlError(EExit::Failed, base::quoted(directory) + " cannot be read: " + failed.message());
    // Numbers have eight digits, and later more.
    std::sort(files.segments.begin(), files.segments.end(), [](const auto& one, const auto& other) {
        return one.size() != other.size() ? one.size() < other.size() : one < other;
    });
    return files;
}

RecordingFiles RecordingFiles::at(const std::string& path) {
    std::error_code failed;
    RecordingFiles files;
    if (fs::is_directory(path, failed))
        files = in(path);
    else if (path.ends_with(".seg") || beginningOf(path) == s_frame)
        files.segments.push_back(path);
    else
        files.ring = path;
    if (files.areNone())
        throw ControlError(EExit::Failed, "there is no recording in " + base::quoted(path));
    return files;
}

RecordingFiles RecordingFiles::of(const RecordingPlace& place) {
    RecordingFiles files;
    std::error_code failed;
    // A host that has just been started has not made it yet.
    if (!place.directory.empty() && (place.ring.empty() || fs::exists(place.directory, failed)))
        files = in(place.directory);
    if (!place.ring.empty())
        files.ring = place.ring;
    if (files.areNone())
        throw ControlError(EExit::Failed, "there is no recording in " + base::quoted(place.directory));
    return files;
}
