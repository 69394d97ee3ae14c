#pragma once

#include <optional>
#include <string>

#include "LockFile.h"
#include "UniqueFd.h"

/// Keeps the working directory for one host: two in it would write each other's marks, history and drivers'
/// files. Made by main once the directory is entered; lives as long as the host.
class WorkDirectoryLock {
public:
    WorkDirectoryLock() = default;
    WorkDirectoryLock(const WorkDirectoryLock&) = delete;
    WorkDirectoryLock& operator=(const WorkDirectoryLock&) = delete;

    /// Which other host has the directory; empty when none has. Where it cannot be locked, as one that is
    /// full or not to be written, the host goes on and says so.
    std::string acquire();

private:
    base::UniqueFd m_directory;
    std::optional<LockFile> m_lock;
};
