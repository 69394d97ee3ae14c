#include "QueueTrial.h"

#include <utility>

#include "QueueNames.h"
#include "sal/MessageQueue.h"

std::map<std::string, std::string> QueueTrial::faults(const std::vector<std::string>& driverIDs) {
    std::vector<std::string> names;
    for (const std::string& driverID : driverIDs)
        names.insert(names.end(), {protocol::inputQueue(driverID), protocol::outputQueue(driverID)});
    std::map<std::string, std::string> faults;
    if (sal::MessageQueue::areFree(names))
        return faults;
    for (const std::string& driverID : driverIDs) {
        if (std::string why = fault(driverID); !why.empty())
            faults[driverID] = std::move(why);
    }
    return faults;
}

std::string QueueTrial::fault(const std::string& driverID) {
    for (const std::string& name : {protocol::inputQueue(driverID), protocol::outputQueue(driverID)}) {
        std::string why = sal::MessageQueue::createFault(name);
        if (why.empty())
            continue;
        const auto now = Clock::now();
        const auto since = m_faultSince.try_emplace(driverID, now).first->second;
        // The driver process of a host that was killed ends by itself within this time.
        if (now - since >= m_patience && sal::MessageQueue::retire(name))
            why = sal::MessageQueue::createFault(name);
        if (!why.empty())
            return "queue " + name + " cannot be made: " + why;
    }
    m_faultSince.erase(driverID);
    return {};
}
