#include "CannedHost.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <stdexcept>

namespace {

constexpr const char* s_prefix = "/api/v1";

/// Takes a whole request from the front; nothing where there is none yet.
std::optional<CannedHost::Request> takeRequest(std::string& bytes) {
    const std::size_t head = bytes.find("\r\n\r\n");
    if (head == std::string::npos)
        return std::nullopt;
    const std::string name = "\r\nContent-Length: ";
    const std::size_t field = bytes.find(name);
    const std::size_t size =
        field < head ? std::strtoul(bytes.c_str() + field + name.size(), nullptr, 10) : 0;
    if (bytes.size() < head + 4 + size)
        return std::nullopt;
    CannedHost::Request request;
    const std::size_t method = bytes.find(' ');
    request.method = bytes.substr(0, method);
    request.target = bytes.substr(method + 1, bytes.find(' ', method + 1) - method - 1);
    if (request.target.starts_with(s_prefix))
        request.target.erase(0, std::strlen(s_prefix));
    request.body = bytes.substr(head + 4, size);
    bytes.erase(0, head + 4 + size);
    return request;
}

}  // namespace

CannedHost::CannedHost(std::string path, const std::string& instance, const std::string& workplace)
    : m_path(std::move(path)), m_end("the canned host") {
    answer("GET ", R"({"version":"0.1.0","api":1,"instance":")" + instance + R"(","workplace":")" +
                       workplace +
                       R"(","started":"2026-11-22T12:00:00.000Z","pid":4711,"role":"admin","user":"root"})");
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (m_path.size() >= sizeof address.sun_path)
        throw std::runtime_error("too long for a socket: " + m_path);
    std::memcpy(address.sun_path, m_path.data(), m_path.size());
    ::unlink(m_path.c_str());
    m_listener = base::UniqueFd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (::bind(m_listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(m_listener.get(), 16) != 0)
        throw std::runtime_error("no socket at " + m_path + ": " + std::strerror(errno));
    m_thread = std::thread([this] { run(); });
}

CannedHost::~CannedHost() {
    m_end.wake();
    m_thread.join();
}

void CannedHost::answer(const std::string& what, const std::string& body, unsigned status) {
    const std::lock_guard lock(m_mutex);
    m_answers[what] = {status, body};
}

void CannedHost::breakOff(unsigned requests) {
    const std::lock_guard lock(m_mutex);
    m_toBreak = requests;
}

void CannedHost::fallSilent() {
    const std::lock_guard lock(m_mutex);
    m_isSilent = true;
}

std::vector<CannedHost::Request> CannedHost::requests() const {
    const std::lock_guard lock(m_mutex);
    return m_requests;
}

std::vector<CannedHost::Request> CannedHost::requests(const std::string& what) const {
    std::vector<Request> found;
    for (const Request& request : requests()) {
        if (request.method + " " + request.target == what)
            found.push_back(request);
    }
    return found;
}

std::string CannedHost::lastBody(const std::string& what) const {
    const auto found = requests(what);
    return found.empty() ? std::string() : found.back().body;
}

void CannedHost::run() {
    std::vector<Connection> connections;
    for (;;) {
        std::vector<pollfd> watched{{m_end.fd(), POLLIN, 0}, {m_listener.get(), POLLIN, 0}};
        for (const Connection& connection : connections)
            watched.push_back({connection.socket.get(), POLLIN, 0});
        if (::poll(watched.data(), watched.size(), -1) < 0)
            continue;
        if (watched[0].revents != 0)
            return;
        std::vector<Connection> kept;
        for (std::size_t i = 0; i < connections.size(); ++i) {
            if (watched[i + 2].revents == 0 || serve(connections[i]))
                kept.push_back(std::move(connections[i]));
        }
        connections = std::move(kept);
        if (watched[1].revents != 0)
            connections.push_back(
                {base::UniqueFd(::accept4(m_listener.get(), nullptr, nullptr, SOCK_CLOEXEC)), {}});
    }
}

/// False where the connection has come to its end.
bool CannedHost::serve(Connection& connection) {
    char piece[4096];
    const ssize_t count = ::recv(connection.socket.get(), piece, sizeof piece, 0);
    if (count <= 0)
        return false;
    connection.bytes.append(piece, static_cast<std::size_t>(count));
    while (const auto request = takeRequest(connection.bytes)) {
        if (!reply(connection.socket.get(), *request))
            return false;
    }
    return true;
}

bool CannedHost::reply(int socket, const Request& request) {
    Answer answer{404, R"({"error":{"code":"not-found","text":"there is no such resource","nearest":[]}})"};
    {
        const std::lock_guard lock(m_mutex);
        m_requests.push_back(request);
        if (m_toBreak > 0) {
            --m_toBreak;
            return false;
        }
        if (m_isSilent)
            return true;
        if (const auto found = m_answers.find(request.method + " " + request.target);
            found != m_answers.end())
            answer = found->second;
    }
    const std::string text =
        "HTTP/1.1 " + std::to_string(answer.status) +
        " Said\r\nContent-Type: application/json\r\nContent-Length: " + std::to_string(answer.body.size()) +
        "\r\n\r\n" + answer.body;
    return ::send(socket, text.data(), text.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(text.size());
}
