#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "DriverTable.h"
#include "sal/MessageQueue.h"

/// Follows driver processes that the host has not started, but a debugger, say: they are no children of the
/// host, so it learns of them and of their end by the hold that they have on their input queue. They are
/// neither ended nor started again. Owned by Host where it starts no driver processes of its own.
class ByHandWatch {
public:
    using Queues = std::function<std::vector<sal::MessageQueue::Status>()>;

    ByHandWatch(DriverTable& drivers, Queues queues) : m_drivers(drivers), m_queues(std::move(queues)) {}
    ByHandWatch(const ByHandWatch&) = delete;
    ByHandWatch& operator=(const ByHandWatch&) = delete;

    /// Learns what has come and gone by now: when it returns, the values of those that ended are marked. Any
    /// thread but those that hold the table of drivers or the store.
    void look();

private:
    void look(const std::string& driverID, int pid, bool isAttached);
    void isDamaged(const std::string& driverID);
    void ended(const std::string& driverID, int pid);
    /// The process that serves the driver; 0 for none.
    int runningProcess(const std::string& driverID) const;

    DriverTable& m_drivers;
    const Queues m_queues;
    /// Held over the calls into the table: the thread that learns of an end tells all of it before another
    /// may look.
    std::mutex m_mutex;
};
