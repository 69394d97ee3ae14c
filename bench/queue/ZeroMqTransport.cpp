#include <unistd.h>
#include <zmq.h>

#include <stdexcept>

#include "Transport.h"

namespace {

/// PUSH to PULL over ipc://, with the depth of the driver queues on each side. Contexts do not survive a
/// fork, so each side makes its own.
class ZeroMqTransport : public Transport {
public:
    ZeroMqTransport() {
        static int s_made = 0;
        m_address = "ipc://@bench" + std::to_string(getpid()) + "_" + std::to_string(s_made++);
    }
    ~ZeroMqTransport() override {
        if (m_pSocket)
            zmq_close(m_pSocket);
        if (m_pContext)
            zmq_ctx_term(m_pContext);
    }
    void openSender() override { open(ZMQ_PUSH); }
    void openReceiver() override { open(ZMQ_PULL); }
    void send(const void* pMessage, std::size_t size) override {
        if (zmq_send(m_pSocket, pMessage, size, 0) < 0)
            throw std::runtime_error(zmq_strerror(zmq_errno()));
    }
    void receive(void* pMessage, std::size_t size) override {
        if (zmq_recv(m_pSocket, pMessage, size, 0) != static_cast<int>(size))
            throw std::runtime_error("zmq_recv");
    }

private:
    void open(int type) {
        m_pContext = zmq_ctx_new();
        m_pSocket = zmq_socket(m_pContext, type);
        const int depth = 16384;
        zmq_setsockopt(m_pSocket, ZMQ_SNDHWM, &depth, sizeof depth);
        zmq_setsockopt(m_pSocket, ZMQ_RCVHWM, &depth, sizeof depth);
        const int result = type == ZMQ_PULL ? zmq_bind(m_pSocket, m_address.c_str())
                                            : zmq_connect(m_pSocket, m_address.c_str());
        if (result != 0)
            throw std::runtime_error(zmq_strerror(zmq_errno()));
    }

    std::string m_address;
    void* m_pContext = nullptr;
    void* m_pSocket = nullptr;
};

}  // namespace

std::unique_ptr<Transport> makeZeroMqTransport(std::size_t) {
    return std::make_unique<ZeroMqTransport>();
}
