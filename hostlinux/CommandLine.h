#pragma once

#include <string>
#include <vector>

namespace sal {

/// A console line taken apart as a shell does: blanks separate words; '...' keeps all as it is; in "..." a
/// backslash keeps a quote or a backslash; elsewhere it keeps any character.
struct CommandLine {
    std::vector<std::string> words;
    std::string error;  ///< what is wrong with the line; empty when nothing is

    static CommandLine split(const std::string& line);
};

}  // namespace sal
