#include <unistd.h>

#include <stdexcept>

#include "Transport.h"
#include "sal/MessageQueue.h"

namespace {

/// The driver queues' own: 16384 messages of at most 1024 bytes.
class SalTransport : public Transport {
public:
    SalTransport() {
        static int s_made = 0;
        m_name = "BENCH" + std::to_string(getpid()) + "_" + std::to_string(s_made++);
        if (!m_queue.create(m_name, 16384, 1024, 0))
            throw std::runtime_error("the queue cannot be made");
        m_creator = getpid();
    }
    void openSender() override { openEnd(); }
    void openReceiver() override { openEnd(); }
    void send(const void* pMessage, std::size_t size) override {
        if (!m_pEnd->send(static_cast<const unsigned char*>(pMessage), static_cast<int>(size), -1))
            throw std::runtime_error("send failed");
    }
    void receive(void* pMessage, std::size_t size) override {
        if (m_pEnd->receive(static_cast<unsigned char*>(pMessage), static_cast<int>(size), -1) !=
            static_cast<int>(size))
            throw std::runtime_error("receive failed");
    }

private:
    void openEnd() {
        if (getpid() == m_creator)
            m_pEnd = &m_queue;
        else if (m_opened.open(m_name))
            m_pEnd = &m_opened;
        else
            throw std::runtime_error("the queue cannot be opened");
    }

    std::string m_name;
    pid_t m_creator = 0;
    sal::MessageQueue m_queue;
    sal::MessageQueue m_opened;
    sal::MessageQueue* m_pEnd = nullptr;
};

}  // namespace

std::unique_ptr<Transport> makeSalTransport(std::size_t) {
    return std::make_unique<SalTransport>();
}
