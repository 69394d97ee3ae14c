#pragma once

#include <arpa/inet.h>
#include <linux/sockios.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>

#include "HangGuard.h"
#include "UniqueFd.h"

/// A client of a Unix socket or of a port, byte by byte as a test wants it. One thread. What does not come
/// before the hang guard is as if the connection had ended.
class HttpClient {
public:
    struct Answer {
        int status = 0;  ///< 0: the connection ended before there was a whole one
        std::string head;
        std::string body;

        std::string field(const std::string& name) const {
            const auto begin = head.find("\r\n" + name + ": ");
            if (begin == std::string::npos)
                return {};
            const auto value = begin + name.size() + 4;
            return head.substr(value, head.find("\r\n", value) - value);
        }
    };

    HttpClient() = default;
    explicit HttpClient(const std::string& path) { connect(path); }

    bool connect(const std::string& path) {
        m_socket = base::UniqueFd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        if (path.size() >= sizeof address.sun_path)
            return false;
        std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
        return ::connect(m_socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    }
    /// At a port of this machine; "127.0.0.1" or "::1".
    bool connectTo(const std::string& address, std::uint16_t port) {
        const bool isIPv6 = address.find(':') != std::string::npos;
        m_socket = base::UniqueFd(::socket(isIPv6 ? AF_INET6 : AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        sockaddr_in6 place6{};
        place6.sin6_family = AF_INET6;
        place6.sin6_port = htons(port);
        sockaddr_in place4{};
        place4.sin_family = AF_INET;
        place4.sin_port = htons(port);
        void* pBytes = isIPv6 ? static_cast<void*>(&place6.sin6_addr) : static_cast<void*>(&place4.sin_addr);
        const sockaddr* pPlace =
            isIPv6 ? reinterpret_cast<const sockaddr*>(&place6) : reinterpret_cast<const sockaddr*>(&place4);
        return ::inet_pton(isIPv6 ? AF_INET6 : AF_INET, address.c_str(), pBytes) == 1 &&
               ::connect(m_socket.get(), pPlace, isIPv6 ? sizeof place6 : sizeof place4) == 0;
    }
    int fd() const { return m_socket.get(); }
    void close() { m_socket.reset(); }
    void endSending() { ::shutdown(m_socket.get(), SHUT_WR); }

    /// Whether all of it was taken.
    bool send(std::string_view bytes) {
        while (!bytes.empty()) {
            const ssize_t count = ::send(m_socket.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
            if (count < 0 && errno != EINTR)
                return false;
            if (count > 0)
                bytes.remove_prefix(static_cast<std::size_t>(count));
        }
        return true;
    }
    /// Waits until the other end has read what was sent.
    bool waitUntilRead() {
        return eventually(
            [this] {
                int unread = 0;
                return ::ioctl(m_socket.get(), SIOCOUTQ, &unread) != 0 || unread == 0;
            },
            std::chrono::milliseconds(0));
    }

    /// The next one; interim ones, too.
    Answer receive(bool isOfHead = false) {
        Answer answer;
        while (m_input.find("\r\n\r\n") == std::string::npos) {
            if (!read())
                return {};
        }
        const auto end = m_input.find("\r\n\r\n") + 4;
        answer.head = m_input.substr(0, end);
        const std::string length = answer.field("Content-Length");
        const std::size_t size = isOfHead ? 0 : static_cast<std::size_t>(std::atoll(length.c_str()));
        while (m_input.size() < end + size) {
            if (!read())
                return {};
        }
        answer.status = std::atoi(answer.head.substr(answer.head.find(' ') + 1).c_str());
        answer.body = m_input.substr(end, size);
        m_input.erase(0, end + size);
        return answer;
    }
    Answer ask(std::string_view request) {
        send(request);
        return receive();
    }
    /// So many bytes, of no HTTP any more; fewer where the connection ends.
    std::string receiveBytes(std::size_t count) {
        while (m_input.size() < count && read()) {
        }
        std::string bytes = m_input.substr(0, count);
        m_input.erase(0, bytes.size());
        return bytes;
    }
    /// Whether the connection ends, with nothing more to read before that.
    bool isAtEnd() { return m_input.empty() && !read(); }
    /// Whether there is something to read, or the end, within that time.
    bool isReadable(std::chrono::milliseconds time) const {
        pollfd status{m_socket.get(), POLLIN, 0};
        return ::poll(&status, 1, static_cast<int>(time.count())) == 1;
    }

private:
    bool read() {
        if (!isReadable(c_hangGuard))
            return false;
        char piece[65536];
        const ssize_t count = ::recv(m_socket.get(), piece, sizeof piece, 0);
        if (count <= 0)
            return false;
        m_input.append(piece, static_cast<std::size_t>(count));
        return true;
    }

    base::UniqueFd m_socket;
    std::string m_input;
};
