#pragma once

#include <optional>
#include <string>

#include "DirectoryLock.h"
#include "UniqueFd.h"

/// The directory of the drivers' links, which every start empties. Made when missing and locked for as long
/// as the object lives, so that no second host empties it under a running workplace. Main thread.
class DataDirectory {
public:
    explicit DataDirectory(std::string path);

    /// Nothing when this host has the directory; else why not, and who holds it.
    std::optional<std::string> acquire();

    /// Names of entries that are no links, and so were put there by somebody else.
    std::string foreignEntries() const;

private:
    std::string m_path;
    base::UniqueFd m_fd;
    std::optional<DirectoryLock> m_lock;  ///< gone before the descriptor
};
