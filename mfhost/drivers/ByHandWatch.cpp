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

void ByHandWatch::look() {
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
        if (receiver.empty())
            continue;
        loaded.insert(receiver);
        if (damaged.contains(receiver))
            isDamaged(receiver);
        else
            look(receiver, static_cast<int>(queue.receiverPid), queue.receiverAttached);
    }
    for (const DriverTable::Driver& driver : m_drivers.drivers()) {
        if (driver.isByHand && driver.isAlive && !loaded.contains(driver.id))
            static_cast<void>(m_drivers.processEnded(driver.id, driver.pid, "unloaded", {}, false));
    }
}

int ByHandWatch::runningProcess(const std::string& driverID) const {
    const auto driver = m_drivers.find(driverID);
    return driver && driver->isByHand && driver->isAlive ? driver->pid : 0;
}

void ByHandWatch::look(const std::string& driverID, int pid, bool isAttached) {
    if (pid <= 0)
        return;
    const auto known = m_drivers.find(driverID);
    const bool isOther = !known || !known->isByHand || known->pid != pid;
    const int running = runningProcess(driverID);
    // For a moment a new process holds the queue, but the number is still that of the one before.
    if (isOther || (running == 0 && isAttached && exists(pid))) {
        if (running > 0)
            ended(driverID, running);
        m_drivers.processStarted(driverID, pid, true);
        hostLog(sal::LogOutput::eInfo)
            << driverID << ": process " << pid << " was started by hand and serves it" << std::endl;
    }
    // One that came and went unseen may have left values, too.
    if (!isAttached && runningProcess(driverID) > 0)
        ended(driverID, pid);
}

void ByHandWatch::isDamaged(const std::string& driverID) {
    const int pid = runningProcess(driverID);
    if (pid == 0)
        return;
    static_cast<void>(m_drivers.processEnded(driverID, pid, "one of its queues is damaged", {}, false));
    hostLog(sal::LogOutput::eError) << driverID << ": process " << pid
                                    << ", which was started by hand, cannot be reached any more: one of its "
                                       "queues is damaged; reloadDriver "
                                    << driverID << " makes them anew" << std::endl;
}

void ByHandWatch::ended(const std::string& driverID, int pid) {
    const auto end = m_drivers.processEnded(driverID, pid, "its process has ended", {}, false);
    auto& line = hostLog(sal::LogOutput::eInfo);
    line << driverID << ": process " << pid << ", which was started by hand, ended";
    if (end && end->staleValues > 0)
        line << "; " << end->staleValues << (end->staleValues == 1 ? " value is" : " values are") << " stale";
    line << std::endl;
}
