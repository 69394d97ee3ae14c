#include "JournalSink.h"

#include <spdlog/pattern_formatter.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <utility>

namespace sal {
namespace {

/// As syslog numbers them.
const char* priorityOf(spdlog::level::level_enum level) {
    switch (level) {
        case spdlog::level::critical:
            return "2";
        case spdlog::level::err:
            return "3";
        case spdlog::level::warn:
            return "4";
        case spdlog::level::info:
            return "6";
        default:
            return "7";
    }
}

/// A value of several lines is told by its length, eight bytes with the lowest first.
void append(std::string& datagram, std::string_view name, std::string_view value) {
    datagram += name;
    if (value.find('\n') == std::string_view::npos) {
        datagram += '=';
    } else {
        datagram += '\n';
        for (std::uint64_t length = value.size(), i = 0; i < 8; ++i, length >>= 8)
            datagram += static_cast<char>(length & 0xff);
    }
    datagram += value;
    datagram += '\n';
}

}  // namespace

JournalSink::JournalSink(Settings settings, spdlog::sink_ptr pOther)
    : m_settings(std::move(settings)),
      m_pOther(std::move(pOther)),
      m_socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)),
      m_pFormatter(std::make_unique<spdlog::pattern_formatter>("%v")) {}

void JournalSink::log(const spdlog::details::log_msg& message) {
    if (!send(datagram(message)))
        m_pOther->log(message);
}

std::string JournalSink::datagram(const spdlog::details::log_msg& message) {
    spdlog::memory_buf_t line;
    m_pFormatter->format(message, line);
    std::string_view text(line.data(), line.size());
    while (text.ends_with('\n'))
        text.remove_suffix(1);
    const std::string output(message.logger_name.data(), message.logger_name.size());
    std::string driver = m_settings.driver;
    if (driver.empty() && m_settings.driverOf)
        driver = m_settings.driverOf(output, std::string(message.payload.data(), message.payload.size()));

    std::string datagram;
    datagram.reserve(text.size() + 128);
    append(datagram, "MESSAGE", text);
    append(datagram, "PRIORITY", priorityOf(message.level));
    append(datagram, "SYSLOG_IDENTIFIER", m_settings.identifier);
    // What the host passes on of a driver process has the driver's ID before its output.
    const bool isPassedOn = !driver.empty() && output.starts_with(driver + " ");
    append(datagram, "MF_OUTPUT", isPassedOn ? output.substr(driver.size() + 1) : output);
    if (!driver.empty())
        append(datagram, "MF_DRIVER", driver);
    return datagram;
}

bool JournalSink::send(const std::string& datagram) const {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (m_settings.socket.size() >= sizeof address.sun_path)
        return false;
    std::memcpy(address.sun_path, m_settings.socket.c_str(), m_settings.socket.size() + 1);
    ssize_t sent = -1;
    do
        sent = ::sendto(m_socket.get(), datagram.data(), datagram.size(), MSG_NOSIGNAL,
                        reinterpret_cast<const sockaddr*>(&address), sizeof address);
    while (sent < 0 && errno == EINTR);
    return sent >= 0;
}

void JournalSink::set_pattern(const std::string& pattern) {
    m_pFormatter = std::make_unique<spdlog::pattern_formatter>(pattern);
}

void JournalSink::set_formatter(std::unique_ptr<spdlog::formatter> pFormatter) {
    m_pFormatter = std::move(pFormatter);
}

}  // namespace sal
