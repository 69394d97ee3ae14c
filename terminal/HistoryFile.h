#pragma once

#include <cstddef>
#include <string>
#include <vector>

/// The lines that were typed at consoles of this user, in a file that several hosts may use at once. Used by
/// the line editor; console thread.
class HistoryFile {
public:
    /// So many lines are kept, the latest; the file may have twice as many for a while.
    static constexpr std::size_t s_lines = 500;
    /// A longer line is not kept.
    static constexpr std::size_t s_longestLine = 4096;

    /// Nothing is kept for an empty path.
    explicit HistoryFile(std::string path) : m_path(std::move(path)) {}

    /// mfhost/history in XDG_STATE_HOME, or else in ~/.local/state; empty where neither is known.
    static std::string usualPath();

    /// The lines of the file, oldest first; none where there is no file. Why it cannot be read, or empty.
    std::string read(std::vector<std::string>& lines) const;
    /// Adds a line; makes the file, which none but the user may read, and its directories. A line that begins
    /// with a blank or cannot be shown as it is, is not kept. Why it cannot be, or empty.
    std::string add(const std::string& line) const;

private:
    const std::string m_path;
};
