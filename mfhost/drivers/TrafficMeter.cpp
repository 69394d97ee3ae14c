#include "TrafficMeter.h"

#include <utility>

#include "QueueNames.h"

std::vector<TrafficMeter::Rate> TrafficMeter::measure(const std::vector<std::string>& driverIDs,
                                                      const Queues& queues, Clock::time_point now) {
    const double time = std::chrono::duration<double>(now - m_measured).count();
    m_measured = now;
    const auto messages = [&](const std::string& name) {
        const auto queue = queues.find(name);
        return queue == queues.end() ? 0 : queue->second.messages;
    };
    std::vector<Rate> rates;
    std::map<std::string, Carried> carried;
    for (const std::string& driverID : driverIDs) {
        const Carried current{messages(protocol::inputQueue(driverID)),
                              messages(protocol::outputQueue(driverID))};
        carried[driverID] = current;
        const auto before = m_carried.find(driverID);
        // Counters that went back belong to new queues.
        if (before == m_carried.end() || current.received < before->second.received ||
            current.sent < before->second.sent)
            continue;
        rates.push_back({driverID, static_cast<double>(current.received - before->second.received) / time,
                         static_cast<double>(current.sent - before->second.sent) / time});
    }
    m_carried = std::move(carried);
    return rates;
}
