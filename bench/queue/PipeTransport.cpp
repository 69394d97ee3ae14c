#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "Transport.h"

namespace {

/// A megabyte deep, the most that a user may have.
class PipeTransport : public Transport {
public:
    PipeTransport() {
        if (pipe2(m_ends, O_CLOEXEC) != 0)
            throw std::system_error(errno, std::generic_category(), "pipe2");
        fcntl(m_ends[1], F_SETPIPE_SZ, 1 << 20);
    }
    ~PipeTransport() override {
        close(m_ends[0]);
        close(m_ends[1]);
    }
    void send(const void* pMessage, std::size_t size) override {
        if (write(m_ends[1], pMessage, size) != static_cast<ssize_t>(size))
            throw std::system_error(errno, std::generic_category(), "write");
    }
    void receive(void* pMessage, std::size_t size) override {
        auto* pBytes = static_cast<char*>(pMessage);
        for (std::size_t got = 0; got < size;) {
            const ssize_t count = read(m_ends[0], pBytes + got, size - got);
            if (count <= 0)
                throw std::system_error(errno, std::generic_category(), "read");
            got += static_cast<std::size_t>(count);
        }
    }

private:
    int m_ends[2] = {-1, -1};
};

}  // namespace

std::unique_ptr<Transport> makePipeTransport(std::size_t) {
    return std::make_unique<PipeTransport>();
}
