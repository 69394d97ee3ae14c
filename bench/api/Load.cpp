#include "Load.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <utility>

namespace {

constexpr std::chrono::seconds s_patience{10};
constexpr std::chrono::milliseconds s_longestLag{500};

/// The status of the answer that the text begins with, and its length; 0 while there is no whole one.
std::pair<int, std::size_t> answerIn(const std::string& text) {
    const auto end = text.find("\r\n\r\n");
    const auto length = text.find("Content-Length: ");
    if (end == std::string::npos || length == std::string::npos || length > end)
        return {};
    const std::size_t size = end + 4 + static_cast<std::size_t>(std::atoll(text.c_str() + length + 16));
    return {text.size() < size ? 0 : std::atoi(text.c_str() + 9), size};
}

/// Differs for all requests of this machine, whoever asks.
std::string ownNumber() {
    static std::int64_t s_last = std::chrono::system_clock::now().time_since_epoch().count();
    return std::to_string(::getpid()) + "-" + std::to_string(++s_last);
}

}  // namespace

Load::Load(Settings settings)
    : m_settings(std::move(settings)), m_connections(static_cast<std::size_t>(m_settings.connections)) {
    for (Connection& connection : m_connections) {
        if (!connect(connection))
            throw std::runtime_error("cannot connect to " + m_settings.path);
    }
}

bool Load::connect(Connection& connection) const {
    connection = {};
    connection.socket = base::UniqueFd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    m_settings.path.copy(address.sun_path, sizeof address.sun_path - 1);
    return ::connect(connection.socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) ==
           0;
}

Load::Result Load::run() {
    const Clock::time_point started = Clock::now();
    Clock::time_point begin = started;
    auto count = static_cast<long>(m_settings.perSecond * m_settings.seconds);
    const std::chrono::duration<double> step(1.0 / m_settings.perSecond);
    const auto dueAt = [&](long number) {
        return begin + std::chrono::duration_cast<Clock::duration>(step * static_cast<double>(number));
    };
    long asked = 0;
    std::vector<pollfd> polled(m_connections.size());
    while (true) {
        const Clock::time_point now = Clock::now();
        if (m_settings.isOver())
            count = asked;
        if (asked < count && now - dueAt(asked) > s_longestLag)
            begin += now - dueAt(asked);
        bool isAnyAsked = false;
        // Also of a server that answers at once each connection is asked in its turn.
        const auto first = static_cast<std::size_t>(asked);
        for (std::size_t turn = 0; turn < m_connections.size(); ++turn) {
            const std::size_t i = (first + turn) % m_connections.size();
            Connection& connection = m_connections[i];
            if (!connection.isAsked && asked < count && dueAt(asked) <= now)
                ask(connection, dueAt(asked++));
            if (connection.isAsked && now - connection.asked > s_patience)
                fail(connection, "no answer within 10 s");
            isAnyAsked = isAnyAsked || connection.isAsked;
            polled[i] = {connection.isAsked ? connection.socket.get() : -1, POLLIN, 0};
        }
        if (asked == count && !isAnyAsked)
            break;
        timespec wait{0, 0};
        if (asked == count || dueAt(asked) > now)
            wait.tv_nsec = std::clamp<long>((dueAt(asked) - now).count(), 0, 50'000'000);
        const bool isFull = std::all_of(m_connections.begin(), m_connections.end(),
                                        [](const Connection& connection) { return connection.isAsked; });
        if (isFull || asked == count)
            wait.tv_nsec = 50'000'000;
        if (::ppoll(polled.data(), polled.size(), &wait, nullptr) <= 0)
            continue;
        for (std::size_t i = 0; i < m_connections.size(); ++i) {
            if (polled[i].revents != 0)
                take(m_connections[i]);
        }
    }
    m_result.seconds = std::chrono::duration<double>(Clock::now() - started).count();
    std::sort(m_result.microseconds.begin(), m_result.microseconds.end());
    return std::move(m_result);
}

void Load::ask(Connection& connection, Clock::time_point due) {
    connection.isAsked = true;
    connection.due = due;
    connection.asked = Clock::now();
    const std::string request = nextRequest();
    if (::send(connection.socket.get(), request.data(), request.size(), MSG_NOSIGNAL) !=
        static_cast<ssize_t>(request.size()))
        fail(connection, "a request cannot be sent");
}

std::string Load::nextRequest() {
    const Request& next = m_settings.requests[m_asked++ % m_settings.requests.size()];
    const std::string beginning = next.target + " HTTP/1.1\r\nHost: localhost\r\n";
    if (next.body.empty())
        return "GET " + beginning + "\r\n";
    std::string body = next.body;
    for (auto place = body.find('#'); place != std::string::npos; place = body.find('#'))
        body.replace(place, 1, ownNumber());
    return "POST " + beginning +
           "Content-Type: application/json\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" +
           body;
}

void Load::take(Connection& connection) {
    std::array<char, 65536> piece{};
    const ssize_t count = ::recv(connection.socket.get(), piece.data(), piece.size(), MSG_DONTWAIT);
    if (count <= 0) {
        if (count == 0 || errno != EAGAIN)
            fail(connection, "the connection has ended");
        return;
    }
    connection.input.append(piece.data(), static_cast<std::size_t>(count));
    const auto [status, size] = answerIn(connection.input);
    if (status == 0)
        return;
    connection.isAsked = false;
    if (status == 200) {
        ++m_result.answered;
        m_result.microseconds.push_back(
            std::chrono::duration<double, std::micro>(Clock::now() - connection.due).count());
    } else {
        noteFailure(connection.input.substr(0, size));
    }
    connection.input.erase(0, size);
}

void Load::noteFailure(std::string what) {
    ++m_result.failed;
    if (m_result.firstFailure.empty())
        m_result.firstFailure = std::move(what);
}

void Load::fail(Connection& connection, const std::string& what) {
    noteFailure(what);
    static_cast<void>(connect(connection));
}
