#pragma once

#include <string>
#include <vector>

#include "RecordingSearch.h"

/// The files that a recording is made of. Each operation throws a ControlError: 4 where the caller may not
/// look at them, 1 where there is no recording. Main thread.
struct RecordingFiles {
    std::vector<std::string> segments;  ///< in their order
    std::string ring;                   ///< empty for none

    /// What a host, or the command line, has named.
    static RecordingFiles of(const RecordingPlace& place);
    /// What lies at a path: a file of rings, a segment, or a directory of such, as a black box is.
    static RecordingFiles at(const std::string& path);
    /// What lies in a directory, but not below it.
    static RecordingFiles in(const std::string& directory);

    bool areNone() const { return segments.empty() && ring.empty(); }
};
