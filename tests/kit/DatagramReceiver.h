#pragma once

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <string>

#include "HangGuard.h"

/// A Unix socket that takes datagrams, as those of the service manager and of the journal do.
class DatagramReceiver {
public:
    explicit DatagramReceiver(const std::string& path)
        : m_path(path), m_socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        if (path.size() >= sizeof address.sun_path)
            throw std::runtime_error(path + " is too long for a socket");
        std::memcpy(address.sun_path, path.data(), path.size());
        // "@" begins a name that is in no file system, and ends with its last byte.
        const bool isAbstract = path.starts_with('@');
        if (isAbstract)
            address.sun_path[0] = '\0';
        const auto size =
            static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size() + (isAbstract ? 0 : 1));
        if (::bind(m_socket, reinterpret_cast<const sockaddr*>(&address), size) != 0)
            throw std::runtime_error("no socket at " + path);
    }
    ~DatagramReceiver() {
        ::close(m_socket);
        if (!m_path.starts_with('@'))
            ::unlink(m_path.c_str());
    }
    DatagramReceiver(const DatagramReceiver&) = delete;
    DatagramReceiver& operator=(const DatagramReceiver&) = delete;

    const std::string& path() const { return m_path; }

    /// The next one; nothing when none comes in that time.
    std::optional<std::string> receive(std::chrono::milliseconds patience = c_hangGuard) const {
        pollfd ready{m_socket, POLLIN, 0};
        if (::poll(&ready, 1, static_cast<int>(patience.count())) != 1)
            return std::nullopt;
        std::array<char, 1 << 18> bytes;
        const ssize_t size = ::recv(m_socket, bytes.data(), bytes.size(), 0);
        if (size < 0)
            return std::nullopt;
        return std::string(bytes.data(), static_cast<std::size_t>(size));
    }
    /// The next one in which the text stands, passing over others; nothing when none comes in time.
    std::optional<std::string> receiveWith(const std::string& text) const {
        const auto end = std::chrono::steady_clock::now() + c_hangGuard;
        while (std::chrono::steady_clock::now() < end) {
            auto datagram =
                receive(std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now()));
            if (datagram && datagram->find(text) != std::string::npos)
                return datagram;
        }
        return std::nullopt;
    }

private:
    const std::string m_path;
    const int m_socket;
};
