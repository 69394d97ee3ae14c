#include "BrokerCounts.h"

#include <cstdlib>

#include "BareClient.h"
#include "Patience.h"
#include "SteadyTime.h"
#include "ThreadName.h"

BrokerCounts::BrokerCounts(int port, const std::string& password)
    : m_thread([this, port, password] { listen(port, password); }) {}

BrokerCounts::~BrokerCounts() {
    m_isStopping = true;
    m_thread.join();
}

void BrokerCounts::listen(int port, const std::string& password) {
    base::nameThread("broker", "counts");
    BareClient client(s_user, password, port, [this](const BareClient::Message& message) {
        const double number = std::strtod(message.payload.c_str(), nullptr);
        const std::lock_guard lock(m_mutex);
        if (message.topic == "$SYS/broker/publish/messages/sent") {
            m_last.out = number;
            m_last.at = steadyNanoseconds();
        } else if (message.topic == "$SYS/broker/publish/messages/received")
            m_last.plain = number;
        else if (message.topic == "$SYS/broker/publish/messages/dropped")
            m_last.dropped = number;
        else if (message.topic == "$SYS/broker/retained messages/count")
            m_last.retained = number;
        else if (message.topic == "$SYS/broker/clients/connected")
            m_last.connected = number;
    });
    for (const char* const pTopic : {"publish/messages/+", "retained messages/count", "clients/connected"})
        client.subscribe(std::string("$SYS/broker/") + pTopic);
    while (!m_isStopping && client.loop(100)) {
    }
}

/// It tells of each number only when that has changed, all of them together.
BrokerCounts::Count BrokerCounts::next() {
    const std::int64_t begin = steadyNanoseconds();
    Count count;
    waitUntil("the broker's own counts", [&] {
        const std::lock_guard lock(m_mutex);
        count = m_last;
        return count.at > begin && steadyNanoseconds() - count.at > 100'000'000;
    });
    return count;
}
