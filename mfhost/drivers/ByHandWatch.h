#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "DriverRoster.h"
#include "sal/MessageQueue.h"

/// Follows driver processes that the host has not started, but a debugger, say: they are no children of the
/// host, so it learns of them and of their end by the hold that they have on their input queue. They are
/// neither ended nor started again. Owned by Host where it starts no driver processes of its own.
class ByHandWatch {
public:
    using Queues = std::function<std::vector<sal::MessageQueue::Status>()>;

    ByHandWatch(DriverRoster& roster, Queues queues) : m_roster(roster), m_queues(std::move(queues)) {}
    ByHandWatch(const ByHandWatch&) = delete;
    ByHandWatch& operator=(const ByHandWatch&) = delete;

    /// Learns what has come and gone by now, of that driver or for an empty ID of all: when it returns, the
    /// values of those that ended are marked. Any thread but those that hold the roster or the store.
    void refresh(const std::string& driverID);

private:
    struct Process {
        int pid = 0;
        bool isRunning = false;
    };

    void look(const std::string& driverID, int pid, bool isAttached);
    void isDamaged(const std::string& driverID);
    void ended(const std::string& driverID, Process& process);

    DriverRoster& m_roster;
    const Queues m_queues;
    /// Held over the calls into the roster: the thread that learns of an end tells all of it before another
    /// may look.
    std::mutex m_mutex;
    std::map<std::string, Process> m_processes;
};
