#pragma once

#include <optional>
#include <string>

#include "LockFile.h"
#include "UniqueFd.h"

/// Makes the directory of the drivers' links, which every start empties, and keeps it for this host while the
/// object lives, so that no second host empties it under a running workplace. Made by main; main thread.
class DataDirectoryLock {
public:
    explicit DataDirectoryLock(std::string path);

    /// Makes and locks it. Empty when this host has the directory; else why not, and which process holds it.
    std::string acquire();

    /// Names of the directory's entries that are no links: no host has made them.
    static std::string foreignEntries(const std::string& path);

    /// The same and the names of links that lead anywhere but below the working directory: what a start of
    /// the workplace there would remove though it is not its own.
    static std::string foreignEntries(const std::string& path, const std::string& workDirectory);

private:
    std::string m_path;
    base::UniqueFd m_fd;
    std::optional<LockFile> m_lock;  ///< closed before the descriptor
};
