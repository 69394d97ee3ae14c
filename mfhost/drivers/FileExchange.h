#pragma once

#include <optional>
#include <string>
#include <vector>

/// Puts several files in the places of others, and those from before back where that does not work out. Each
/// file is exchanged at once; all of them together are not. Used on one thread.
class FileExchange {
public:
    struct Change {
        std::string path;
        std::optional<std::string> bytes;  ///< nothing for a file that is to go
    };

    /// Why it was not done, with the file's path, after which all is as before; empty when it was.
    std::string perform(const std::vector<Change>& changes);
    /// Puts back what perform has changed. What of it cannot be put back, with why; empty when all is as
    /// before.
    std::string takeBack();

private:
    static std::string write(const Change& change);

    std::vector<Change> m_before;  ///< of what was changed, in that order
};
