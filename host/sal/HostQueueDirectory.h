#pragma once

#include <memory>
#include <string>

#include "sal/Export.h"

namespace sal {

/// The directory of a host's queues, as long as the host runs: the one that MFD_QUEUE_DIR names, else one of
/// its own, /dev/shm/mfd-UID-XXXXXX, whose name no process can take beforehand and which no other user can
/// enter. Driver processes find it by that variable. Made by the main thread before it starts another thread,
/// since it sets the variable; destroyed when the host has no queue any more. One in a process.
class SAL_API HostQueueDirectory {
public:
    /// Where no directory can be made, create() of each queue tries again and says why it cannot.
    HostQueueDirectory();
    /// Removes a directory of its own with all queues in it.
    ~HostQueueDirectory();
    HostQueueDirectory(const HostQueueDirectory&) = delete;
    HostQueueDirectory& operator=(const HostQueueDirectory&) = delete;

    /// The value of MFD_QUEUE_DIR for a driver process that is started by hand.
    const std::string& path() const;

    /// Where the directory is its own: removes those that hosts of this user left in /dev/shm when they were
    /// killed. Queues that a live process still holds stay, and create() refuses their names as long. Any
    /// thread.
    void removeLeft() const;

    /// Before an _exit() that destroys nothing: removes what no other process holds any more. True when
    /// nothing is left; driver processes that still run remove the rest when they end. Any thread, whatever
    /// the others are doing.
    static bool removeNow();

private:
    struct Impl;
    std::unique_ptr<Impl> m_pImpl;
};

}  // namespace sal
