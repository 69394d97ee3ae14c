#include <mqueue.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <system_error>

#include "Transport.h"

namespace {

/// As deep as this machine allows.
class PosixMqTransport : public Transport {
public:
    explicit PosixMqTransport(std::size_t messageSize) : m_size(messageSize) {
        static int s_made = 0;
        const std::string name = "/bench" + std::to_string(getpid()) + "_" + std::to_string(s_made++);
        for (long depth = 16384; depth >= 1; depth = depth > 16 ? depth * 9 / 10 : depth - 1) {
            mq_attr attributes{};
            attributes.mq_maxmsg = depth;
            attributes.mq_msgsize = static_cast<long>(messageSize);
            m_queue = mq_open(name.c_str(), O_CREAT | O_EXCL | O_RDWR, 0600, &attributes);
            if (m_queue != -1)
                break;
        }
        if (m_queue == -1)
            throw std::system_error(errno, std::generic_category(), "mq_open");
        mq_unlink(name.c_str());
    }
    ~PosixMqTransport() override { mq_close(m_queue); }
    void send(const void* pMessage, std::size_t size) override {
        if (mq_send(m_queue, static_cast<const char*>(pMessage), size, 0) != 0)
            throw std::system_error(errno, std::generic_category(), "mq_send");
    }
    void receive(void* pMessage, std::size_t size) override {
        if (mq_receive(m_queue, static_cast<char*>(pMessage), m_size, nullptr) != static_cast<ssize_t>(size))
            throw std::system_error(errno, std::generic_category(), "mq_receive");
    }

private:
    mqd_t m_queue = -1;
    std::size_t m_size;
};

}  // namespace

std::unique_ptr<Transport> makePosixMqTransport(std::size_t messageSize) {
    return std::make_unique<PosixMqTransport>(messageSize);
}
