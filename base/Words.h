#pragma once

#include <string>
#include <vector>

namespace base {

/// The words of a console line.
struct Words {
    std::vector<std::string> words;  ///< none for an empty line, a comment, and a line with an error
    std::string error;               ///< what is wrong with the line; empty when nothing is
};

/// Takes a line apart as a shell does: blanks separate words; '...' keeps all as it is; in "..." a backslash
/// keeps a quote or a backslash; elsewhere it keeps any character. A line whose first character but blanks is
/// # is a comment. Any thread.
Words splitWords(const std::string& line);

/// The text as one word of a command that is typed into a shell: as it is, or in '...'. Any thread.
std::string shellWord(const std::string& text);

}  // namespace base
