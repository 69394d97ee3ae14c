#include "UnixTripPeer.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <system_error>
#include <thread>

namespace {

/// As many bytes as the FID "D01.Q000" has in a queue.
using Message = std::array<unsigned char, 16>;

void read(int socket, Message& message) {
    // On a stream, too: nobody sends a second message before the first is answered.
    if (recv(socket, message.data(), message.size(), MSG_WAITALL) != static_cast<ssize_t>(message.size()))
        throw std::system_error(errno, std::generic_category(), "recv");
}

void write(int socket, const Message& message) {
    if (send(socket, message.data(), message.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(message.size()))
        throw std::system_error(errno, std::generic_category(), "send");
}

void passOn(int from, int to) {
    Message message;
    for (;;) {
        read(from, message);
        write(to, message);
    }
}

}  // namespace

UnixTripPeer::UnixTripPeer(int type) {
    for (auto* pPair : {&m_asking, &m_answering})
        if (socketpair(AF_UNIX, type | SOCK_CLOEXEC, 0, pPair->data()) != 0)
            throw std::system_error(errno, std::generic_category(), "socketpair");
}

UnixTripPeer::~UnixTripPeer() {
    for (const auto& pair : {m_asking, m_answering})
        for (const int socket : pair)
            close(socket);
}

void UnixTripPeer::relay(const std::function<void()>& ready) {
    std::thread back(passOn, m_answering[1], m_asking[1]);
    ready();
    passOn(m_asking[1], m_answering[1]);
    back.join();
}

void UnixTripPeer::answer(const std::function<void()>& ready) {
    ready();
    passOn(m_answering[0], m_answering[0]);
}

void UnixTripPeer::ask(unsigned int number) {
    Message sent{};
    sent.fill(static_cast<unsigned char>(number));
    write(m_asking[0], sent);
    Message back{};
    read(m_asking[0], back);
    if (back != sent)
        throw std::runtime_error("another message came back");
}

std::unique_ptr<TripPeer> UnixTripPeer::makePacket(const std::string&) {
    return std::make_unique<UnixTripPeer>(SOCK_SEQPACKET);
}

std::unique_ptr<TripPeer> UnixTripPeer::makeStream(const std::string&) {
    return std::make_unique<UnixTripPeer>(SOCK_STREAM);
}
