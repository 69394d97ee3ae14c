#include "MqttLine.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <stdexcept>
#include <utility>

namespace {

constexpr int s_stepMs = 2;
/// So much of one direction waits at most; then the sender does.
constexpr std::size_t s_mostWaiting = 4096;

sockaddr_in addressOf(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = ::htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = ::htonl(INADDR_LOOPBACK);
    return address;
}

/// How long the first packet is; 0 where the bytes do not say it yet.
std::size_t lengthOf(const std::string& bytes) {
    std::size_t length = 0;
    for (std::size_t i = 1; i < bytes.size() && i < 5; ++i) {
        length |= static_cast<std::size_t>(bytes[i] & 0x7f) << (7 * (i - 1));
        if ((bytes[i] & 0x80) == 0)
            return bytes.size() < length + i + 1 ? 0 : length + i + 1;
    }
    return 0;
}

}  // namespace

MqttLine::MqttLine(int port, int brokerPort) : m_port(port), m_brokerPort(brokerPort) {
    listen();
    m_thread = std::thread(&MqttLine::run, this);
}

MqttLine::~MqttLine() {
    m_isStopping = true;
    m_thread.join();
}

void MqttLine::listen() {
    m_listener = base::UniqueFd(::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    const int on = 1;
    ::setsockopt(m_listener.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    const sockaddr_in address = addressOf(m_port);
    if (::bind(m_listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(m_listener.get(), 16) != 0)
        throw std::runtime_error("nobody can listen at port " + std::to_string(m_port));
}

void MqttLine::cut() {
    const std::lock_guard lock(m_mutex);
    m_listener.reset();
    m_connections.clear();
}

void MqttLine::heal() {
    const std::lock_guard lock(m_mutex);
    for (const int way : {0, 1}) {
        m_states[way] = EState::Whole;
        m_changes[way] = nullptr;
    }
    m_delay = std::chrono::milliseconds(0);
    if (!m_listener)
        listen();
}

void MqttLine::set(EWay way, EState state) {
    const std::lock_guard lock(m_mutex);
    m_states[static_cast<int>(way)] = state;
}

void MqttLine::delay(std::chrono::milliseconds time) {
    const std::lock_guard lock(m_mutex);
    m_delay = time;
}

void MqttLine::change(EWay way, Change change) {
    const std::lock_guard lock(m_mutex);
    m_changes[static_cast<int>(way)] = std::move(change);
}

void MqttLine::run() {
    while (!m_isStopping) {
        {
            const std::lock_guard lock(m_mutex);
            accept();
            for (auto next = m_connections.begin(); next != m_connections.end();)
                next = serve(*next) ? std::next(next) : m_connections.erase(next);
        }
        ::poll(nullptr, 0, s_stepMs);
    }
}

void MqttLine::accept() {
    base::UniqueFd client(
        m_listener ? ::accept4(m_listener.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC) : -1);
    if (!client)
        return;
    base::UniqueFd broker(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const sockaddr_in address = addressOf(m_brokerPort);
    if (::connect(broker.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        return;
    const int on = 1;
    for (const int fd : {client.get(), broker.get()})
        ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    Connection& added = m_connections.emplace_back();
    added.client = std::move(client);
    added.broker = std::move(broker);
}

/// Whether the connection stays.
bool MqttLine::serve(Connection& connection) {
    const int ends[] = {connection.client.get(), connection.broker.get()};
    for (const int way : {0, 1}) {
        Flow& flow = connection.flows[way];
        read(ends[way], flow, way);
        if (!write(ends[1 - way], flow) || (flow.hasEnded && flow.waiting.empty() && flow.unsent.empty()))
            return false;
    }
    return true;
}

void MqttLine::read(int fd, Flow& flow, int way) {
    char bytes[16384];
    while (m_states[way] != EState::Still && !flow.hasEnded && flow.waiting.size() < s_mostWaiting) {
        const ssize_t count = ::recv(fd, bytes, sizeof bytes, MSG_DONTWAIT);
        if (count <= 0) {
            flow.hasEnded = count == 0 || (errno != EAGAIN && errno != EINTR);
            break;
        }
        flow.read.append(bytes, static_cast<std::size_t>(count));
        while (const std::size_t length = lengthOf(flow.read)) {
            const std::string packet = flow.read.substr(0, length);
            flow.read.erase(0, length);
            if (m_states[way] == EState::Lost)
                continue;
            for (const std::string& sent :
                 m_changes[way] ? m_changes[way](packet) : std::vector<std::string>{packet})
                flow.waiting.push_back({Clock::now() + m_delay, sent});
        }
    }
}

/// False when nothing can be written any more.
bool MqttLine::write(int fd, Flow& flow) {
    for (; !flow.waiting.empty() && flow.waiting.front().due <= Clock::now(); flow.waiting.pop_front())
        flow.unsent += flow.waiting.front().bytes;
    if (flow.unsent.empty())
        return true;
    const ssize_t count = ::send(fd, flow.unsent.data(), flow.unsent.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    if (count > 0)
        flow.unsent.erase(0, static_cast<std::size_t>(count));
    return count > 0 || errno == EAGAIN || errno == EINTR;
}
