#pragma once

#include <optional>
#include <string>

#include "Finding.h"

/// Keeps files from the XML library that would hang it or exhaust its stack: what is no regular file, is
/// larger than 16 MB, or nests elements deeper than 100 levels.
class FileGuard {
public:
    static constexpr int s_maxDepth = 100;

    /// A file as one reading found it.
    struct Reading {
        std::optional<std::string> bytes;  ///< nothing where they could not be had
        std::string error;                 ///< why there are none
        /// What keeps the file from the library and what would be right; nothing for a file that may be read,
        /// and for one that cannot be opened at all, which the library reports itself.
        std::optional<Finding> finding;
    };
    /// Opens and reads the file once. Never waits for the other end of a pipe. Any thread.
    static Reading read(const std::string& path);

    /// The finding of such a reading.
    static std::optional<Finding> finding(const std::string& path);
    /// The same in words.
    static std::optional<std::string> refusal(const std::string& path);

    /// The line, counted from 1, on which an element nests too deep; nothing when none does. Follows the
    /// library's own reading of odd markup, so that nothing can hide elements from the count.
    static std::optional<int> tooDeepLine(const std::string& text);
};
