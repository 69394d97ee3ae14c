#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

/// Lets one line a second of each cause pass, and counts the others: the last of them comes later, with their
/// number. Used by one thread.
class LineLimit {
public:
    using Time = std::chrono::steady_clock::time_point;

    /// The line when it is to be written now. What the cause is, the caller says, never a stranger.
    std::optional<std::string> take(const std::string& cause, const std::string& line, Time now);
    /// Those that were held back and are due by now.
    std::vector<std::string> due(Time now);

private:
    struct Cause {
        Time next;                ///< nothing is written before
        std::uint64_t count = 0;  ///< held back since the last
        std::string line;         ///< the last of these
    };

    std::map<std::string, Cause> m_causes;
};
