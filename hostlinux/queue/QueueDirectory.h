#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "UniqueFd.h"

namespace sal {

/// The directory of a host's queues: $MFD_QUEUE_DIR. Refused when another user could have put something into
/// it. A host without the variable makes one of its own in /dev/shm (HostQueueDirectory) and holds a shared
/// lock on it; where that lock is free, the host has ended.
class QueueDirectory {
public:
    /// Nothing, and why, when there is no directory that is ours alone.
    static std::optional<QueueDirectory> open(std::string& error);
    /// The same, but makes it when it is missing.
    static std::optional<QueueDirectory> openOrMake(std::string& error);

    /// Those that hosts of this user made for themselves and left when they ended.
    static std::vector<QueueDirectory> left();

    /// The file name of a queue: letters, digits, "_", "-" and inner dots stand for themselves, every other
    /// byte is written %XX, so that no name leads out of the directory. Nothing, and why, when none fits.
    static std::optional<std::string> fileName(const std::string& queue, std::string& error);

    /// The beginning of a host's own directory, and a name of that kind which mkdtemp() fills in.
    static std::string ownPattern();
    /// Whether a host has made it for itself.
    bool isHostsOwn() const;
    /// Takes the lock of a host that runs. False when the directory has just been removed as one that was
    /// left.
    bool lockForHost();
    /// Removes the directory of a host that has ended, when it is empty. An empty one that is still locked is
    /// waited for, since its host may be about to end.
    void removeIfLeft(std::chrono::milliseconds patience = {});
    bool isStillThere() const;

    int descriptor() const { return m_handle.get(); }
    const std::string& path() const { return m_path; }
    void reset() { m_handle.reset(); }

private:
    QueueDirectory(base::UniqueFd handle, std::string path)
        : m_handle(std::move(handle)), m_path(std::move(path)) {}
    static std::optional<QueueDirectory> openAt(const std::string& path, std::string& error);

    base::UniqueFd m_handle;
    std::string m_path;
};

}  // namespace sal
