#include "StandardErrorSink.h"

#include <poll.h>
#include <spdlog/pattern_formatter.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>
#include <utility>

namespace sal {
namespace {

std::string_view colourOf(spdlog::level::level_enum level) {
    switch (level) {
        case spdlog::level::critical:
            return "\033[1;31m";
        case spdlog::level::err:
            return "\033[31m";
        case spdlog::level::warn:
            return "\033[33m";
        case spdlog::level::trace:
            return "\033[2m";
        default:
            return "\033[32m";
    }
}

void write(std::string_view text) {
    if (const int error = StandardErrorSink::writeAll(text); error != 0)
        throw spdlog::spdlog_ex("standard error", error);
}

}  // namespace

int StandardErrorSink::writeAll(std::string_view text) {
    while (!text.empty()) {
        const ssize_t count = ::write(STDERR_FILENO, text.data(), text.size());
        if (count >= 0) {
            text.remove_prefix(static_cast<std::size_t>(count));
        } else if (errno == EAGAIN) {
            // Another process that shares the terminal has made it non-blocking.
            pollfd ready{STDERR_FILENO, POLLOUT, 0};
            ::poll(&ready, 1, -1);
        } else if (errno != EINTR) {
            return errno;
        }
    }
    return 0;
}

void StandardErrorSink::log(const spdlog::details::log_msg& message) {
    spdlog::memory_buf_t line;
    m_pFormatter->format(message, line);
    const std::string_view text(line.data(), line.size());
    if (!m_colour || message.color_range_end <= message.color_range_start) {
        write(text);
        return;
    }
    std::string coloured(text.substr(0, message.color_range_start));
    coloured += colourOf(message.level);
    coloured += text.substr(message.color_range_start, message.color_range_end - message.color_range_start);
    coloured += "\033[0m";
    coloured += text.substr(message.color_range_end);
    write(coloured);
}

void StandardErrorSink::set_pattern(const std::string& pattern) {
    m_pFormatter = std::make_unique<spdlog::pattern_formatter>(pattern);
}

void StandardErrorSink::set_formatter(std::unique_ptr<spdlog::formatter> pFormatter) {
    m_pFormatter = std::move(pFormatter);
}

}  // namespace sal
