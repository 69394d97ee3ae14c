#include "NotifySocket.h"

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <utility>

namespace {

constexpr timeval s_patience{.tv_sec = 2, .tv_usec = 0};

}  // namespace

NotifySocket::NotifySocket(std::string address)
    : m_address(std::move(address)),
      m_socket(isThere() ? ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0) : -1) {
    if (m_socket)
        ::setsockopt(m_socket.get(), SOL_SOCKET, SO_SNDTIMEO, &s_patience, sizeof s_patience);
}

std::string NotifySocket::send(const std::string& lines, EPatience patience) const {
    if (!isThere())
        return {};
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (m_address.size() >= sizeof address.sun_path)
        return "NOTIFY_SOCKET is too long for a socket's name";
    std::memcpy(address.sun_path, m_address.data(), m_address.size());
    std::size_t size = offsetof(sockaddr_un, sun_path) + m_address.size();
    if (m_address.front() == '@')
        address.sun_path[0] = '\0';
    else
        ++size;
    const int flags = MSG_NOSIGNAL | (patience == EPatience::None ? MSG_DONTWAIT : 0);
    while (::sendto(m_socket.get(), lines.data(), lines.size(), flags,
                    reinterpret_cast<const sockaddr*>(&address), static_cast<socklen_t>(size)) < 0) {
        if (errno != EINTR)
            return m_address + ": " + std::strerror(errno);
    }
    return {};
}
