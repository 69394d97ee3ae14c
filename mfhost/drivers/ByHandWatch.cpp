#include "ByHandWatch.h"

#include <signal.h>

#include <cerrno>
#include <set>

#include "HostLog.h"
#include "QueueNames.h"

namespace {

bool exists(int pid) {
    return ::kill(pid, 0) == 0 || errno == EPERM;
}

}  // namespace

void ByHandWatch::refresh(const std::string& driverID) {
    const std::lock_guard lock(m_mutex);
    const auto queues = m_queues();
    std::set<std::string> damaged;
    for (const auto& queue : queues) {
        if (queue.isBroken)
            damaged.insert(protocol::ownerOf(queue.name));
    }
    std::set<std::string> loaded;
    for (const auto& queue : queues) {
        const std::string receiver = protocol::receiverOf(queue.name);
        if (receiver.empty() || (!driverID.empty() && receiver != driverID))
            continue;
        loaded.insert(receiver);
        if (damaged.contains(receiver))
            isDamaged(receiver);
        else
            look(receiver, static_cast<int>(queue.receiverPid), queue.receiverAttached);
    }
    for (auto& [id, process] : m_processes) {
        if (!process.isRunning || loaded.contains(id) || (!driverID.empty() && id != driverID))
            continue;
        process.isRunning = false;
        static_cast<void>(m_roster.processEnded(id, process.pid, "unloaded"));
    }
}

void ByHandWatch::look(const std::string& driverID, int pid, bool isAttached) {
    if (pid <= 0)
        return;
    Process& process = m_processes[driverID];
    const bool isOther = process.pid != pid;
    // For a moment a new process holds the queue, but the number is still that of the one before.
    if (isOther || (!process.isRunning && isAttached && exists(pid))) {
        if (process.isRunning)
            ended(driverID, process);
        process = {pid, true};
        m_roster.processStarted(driverID, pid, true);
        hostLog(sal::LogOutput::eInfo)
            << driverID << ": process " << pid << " was started by hand and serves it" << std::endl;
    }
    // One that came and went unseen may have left values, too.
    if (process.isRunning && !isAttached)
        ended(driverID, process);
}

void ByHandWatch::isDamaged(const std::string& driverID) {
    Process& process = m_processes[driverID];
    if (!process.isRunning)
        return;
    process.isRunning = false;
    static_cast<void>(m_roster.processEnded(driverID, process.pid, "one of its queues is damaged"));
    hostLog(sal::LogOutput::eError) << driverID << ": process " << process.pid
                                    << ", which was started by hand, cannot be reached any more: one of its "
                                       "queues is damaged; reloadDriver "
                                    << driverID << " makes them anew" << std::endl;
}

void ByHandWatch::ended(const std::string& driverID, Process& process) {
    process.isRunning = false;
    const auto staleValues = m_roster.processEnded(driverID, process.pid, "its process has ended");
    auto& line = hostLog(sal::LogOutput::eInfo);
    line << driverID << ": process " << process.pid << ", which was started by hand, ended";
    if (staleValues && *staleValues > 0)
        line << "; " << *staleValues << (*staleValues == 1 ? " value is" : " values are") << " stale";
    line << std::endl;
}
