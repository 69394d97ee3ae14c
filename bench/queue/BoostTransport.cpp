#include <unistd.h>

#include <boost/interprocess/ipc/message_queue.hpp>
#include <stdexcept>

#include "Transport.h"

namespace {

namespace ipc = boost::interprocess;

/// The depth of the driver queues.
class BoostTransport : public Transport {
public:
    explicit BoostTransport(std::size_t messageSize) : m_size(messageSize) {
        static int s_made = 0;
        m_name = "bench" + std::to_string(getpid()) + "_" + std::to_string(s_made++);
        m_pQueue = std::make_unique<ipc::message_queue>(ipc::create_only, m_name.c_str(), 16384, messageSize);
        m_owner = getpid();
    }
    ~BoostTransport() override {
        if (getpid() == m_owner)
            ipc::message_queue::remove(m_name.c_str());
    }
    void openSender() override {
        m_pQueue = std::make_unique<ipc::message_queue>(ipc::open_only, m_name.c_str());
    }
    void send(const void* pMessage, std::size_t size) override { m_pQueue->send(pMessage, size, 0); }
    void receive(void* pMessage, std::size_t size) override {
        ipc::message_queue::size_type received = 0;
        unsigned int priority = 0;
        m_pQueue->receive(pMessage, m_size, received, priority);
        if (received != size)
            throw std::runtime_error("another size");
    }

private:
    std::string m_name;
    std::size_t m_size;
    pid_t m_owner = 0;
    std::unique_ptr<ipc::message_queue> m_pQueue;
};

}  // namespace

std::unique_ptr<Transport> makeBoostTransport(std::size_t messageSize) {
    return std::make_unique<BoostTransport>(messageSize);
}
