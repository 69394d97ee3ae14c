#include "WebPort.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "RegularFile.h"

namespace {

/// Connections that are not taken yet.
constexpr int s_waiting = 64;

std::string readFile(const std::string& path, const char* pWhat, std::string& bytes) {
    if (path.empty())
        return {};
    const base::RegularFile file = base::RegularFile::read(path, 1u << 20);
    if (!file)
        return std::string(pWhat) + " " + path + " cannot be read: " + file.reason;
    bytes = file.bytes;
    return {};
}

/// Nobody but its owner may know what is in it.
std::string readSecret(const std::string& path, const char* pWhat, std::string& bytes) {
    const base::RegularFile file =
        path.empty() ? base::RegularFile() : base::RegularFile::read(path, 1u << 20);
    if (!path.empty() && file && (file.mode & 077) != 0)
        return std::string(pWhat) + " " + path + " may be read by others; chmod 0600 keeps it to its owner";
    return readFile(path, pWhat, bytes);
}

/// The address that a socket has, or is to have.
struct Place {
    sockaddr_storage storage{};
    socklen_t size = 0;

    explicit Place(const WebAddress& address) {
        if (address.isIPv6()) {
            auto* pPlace = reinterpret_cast<sockaddr_in6*>(&storage);
            pPlace->sin6_family = AF_INET6;
            pPlace->sin6_port = htons(address.port);
            ::inet_pton(AF_INET6, address.address.c_str(), &pPlace->sin6_addr);
            size = sizeof *pPlace;
        } else {
            auto* pPlace = reinterpret_cast<sockaddr_in*>(&storage);
            pPlace->sin_family = AF_INET;
            pPlace->sin_port = htons(address.port);
            ::inet_pton(AF_INET, address.address.c_str(), &pPlace->sin_addr);
            size = sizeof *pPlace;
        }
    }
    sockaddr* get() { return reinterpret_cast<sockaddr*>(&storage); }
    std::uint16_t port() const {
        // The same place in both.
        return ntohs(reinterpret_cast<const sockaddr_in*>(&storage)->sin_port);
    }
};

}  // namespace

std::string WebPort::open(const Settings& settings) {
    m_address = settings.address;
    std::string fault = readFile(settings.certificateFile, "the certificate", m_certificate);
    if (fault.empty())
        fault = readSecret(settings.keyFile, "the key", m_key);
    if (fault.empty())
        fault = readSecret(settings.tokenFile, "the file of tokens", m_tokens);
    if (!fault.empty())
        return fault;
    base::UniqueFd listener(
        ::socket(m_address.isIPv6() ? AF_INET6 : AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    const int on = 1;
    Place place(m_address);
    // Connections of a former host that are still being wound up do not keep the port.
    const bool isBound =
        listener && ::setsockopt(listener.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) == 0 &&
        ::bind(listener.get(), place.get(), place.size) == 0 && ::listen(listener.get(), s_waiting) == 0 &&
        ::getsockname(listener.get(), place.get(), &place.size) == 0;
    if (!isBound)
        return errno == EADDRINUSE ? m_address.text() + " is taken by another program"
                                   : m_address.text() + " cannot be opened: " + std::strerror(errno);
    m_address.port = place.port();
    m_listener = std::move(listener);
    return {};
}

std::string WebPort::url() const {
    if (m_address.isAny())
        return urlOf(m_address.isIPv6() ? "[::1]" : "127.0.0.1");
    return urlOf(m_address.host());
}

std::string WebPort::urlElsewhere() const {
    std::array<char, 256> name{};
    const bool isNamed = ::gethostname(name.data(), name.size() - 1) == 0 && name[0] != '\0';
    return m_address.isAny() && isNamed ? urlOf(name.data()) : url();
}

std::string WebPort::urlOf(const std::string& host) const {
    return (hasTls() ? "https://" : "http://") + host + ":" + std::to_string(m_address.port);
}
