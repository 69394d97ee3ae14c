#pragma once

#include <optional>
#include <string>

#include "Finding.h"

/// A file as the XML library may read it. Files that would hang the library or exhaust its stack are kept
/// from it: what is no regular file, is larger than 16 MB, or nests elements deeper than 100 levels. Any
/// thread.
struct XmlInput {
    static constexpr int s_maxDepth = 100;

    std::optional<std::string> bytes;  ///< nothing where the file could not be read
    std::string error;                 ///< why there are none
    /// What keeps the file from the library and what would be right; nothing for a file that the library may
    /// read, and for one that cannot be opened at all, which the library reports itself.
    std::optional<Finding> finding;

    /// Opens and reads the file once. Never waits for the other end of a pipe.
    static XmlInput read(const std::string& path);
    /// The finding of such a reading, in words; empty when there is none.
    static std::string refusal(const std::string& path);

    /// The line, counted from 1, on which an element nests too deep; nothing when none does. Follows the
    /// library's own reading of odd markup, so that nothing can hide elements from the count.
    static std::optional<int> tooDeepLine(const std::string& text);
};
