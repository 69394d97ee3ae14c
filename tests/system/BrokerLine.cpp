#include "BrokerLine.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <stdexcept>
#include <utility>
#include <vector>

namespace {

sockaddr_in addressOf(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    return address;
}

void hurry(int fd) {
    const int yes = 1;
    ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
}

}  // namespace

BrokerLine::BrokerLine(int port, int brokerPort)
    : m_brokerPort(brokerPort), m_listener(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
    const int yes = 1;
    ::setsockopt(m_listener.get(), SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    const sockaddr_in here = addressOf(port);
    if (::bind(m_listener.get(), reinterpret_cast<const sockaddr*>(&here), sizeof here) != 0 ||
        ::listen(m_listener.get(), 16) != 0)
        throw std::runtime_error("port " + std::to_string(port) + " is not free");
    m_thread = std::thread(&BrokerLine::run, this);
}

BrokerLine::~BrokerLine() {
    m_isStopping = true;
    m_thread.join();
}

void BrokerLine::run() {
    while (!m_isStopping) {
        std::vector<pollfd> waits{{m_listener.get(), POLLIN, 0}};
        const EState state = m_state;
        const bool isUpHeld = state == EState::Cut || state == EState::Mute;
        const bool isDownHeld = state == EState::Cut || state == EState::Half;
        for (const Connection& each : m_connections) {
            if (!isUpHeld)
                waits.push_back({each.up.held.empty() ? each.site.get() : each.broker.get(),
                                 static_cast<short>(each.up.held.empty() ? POLLIN : POLLOUT), 0});
            if (!isDownHeld)
                waits.push_back({each.down.held.empty() ? each.broker.get() : each.site.get(),
                                 static_cast<short>(each.down.held.empty() ? POLLIN : POLLOUT), 0});
        }
        ::poll(waits.data(), waits.size(), 20);
        accept();
        for (Connection& each : m_connections) {
            pass(each.site.get(), each.broker.get(), each.up, isUpHeld);
            pass(each.broker.get(), each.site.get(), each.down, isDownHeld);
        }
        m_connections.remove_if(
            [](const Connection& each) { return each.up.hasEnded || each.down.hasEnded; });
    }
}

/// A site that connects while the broker is away is refused as the broker's own port would.
void BrokerLine::accept() {
    base::UniqueFd site(::accept4(m_listener.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (site.get() < 0)
        return;
    base::UniqueFd broker(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const sockaddr_in there = addressOf(m_brokerPort);
    if (::connect(broker.get(), reinterpret_cast<const sockaddr*>(&there), sizeof there) != 0)
        return;
    hurry(site.get());
    hurry(broker.get());
    m_connections.push_back({std::move(site), std::move(broker), {}, {}});
}

void BrokerLine::pass(int from, int to, Way& way, bool isHeld) {
    if (isHeld)
        return;
    if (way.held.empty()) {
        std::array<char, 65536> piece{};
        const ssize_t count = ::recv(from, piece.data(), piece.size(), MSG_DONTWAIT);
        way.hasEnded = count == 0 || (count < 0 && errno != EAGAIN && errno != EINTR);
        if (count > 0)
            way.held.assign(piece.data(), static_cast<std::size_t>(count));
    }
    while (!way.held.empty()) {
        const ssize_t count = ::send(to, way.held.data(), way.held.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
        if (count < 0) {
            way.hasEnded = errno != EAGAIN && errno != EINTR;
            return;
        }
        way.held.erase(0, static_cast<std::size_t>(count));
    }
}
