#include "QueueTrial.h"

#include "sal/MessageQueue.h"

std::string QueueTrial::fault(const std::string& driverID) {
    for (const char* suffix : {"_INQ", "_OUTQ"}) {
        const std::string name = driverID + suffix;
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
