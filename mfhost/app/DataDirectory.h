#pragma once

#include <filesystem>
#include <functional>
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

    /// The same and the names of links that lead anywhere but below that directory: what a start of the
    /// workplace there would remove though it is not its own.
    std::string foreignEntries(const std::string& workDirectory) const;

private:
    /// Names of all entries but the host's own and the links that are own.
    std::string entriesBut(const std::function<bool(const std::filesystem::path& link)>& isOwn) const;

    std::string m_path;
    base::UniqueFd m_fd;
    std::optional<DirectoryLock> m_lock;  ///< gone before the descriptor
};
