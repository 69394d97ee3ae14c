#include "ErrorPipeSink.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <exception>
#include <utility>

#include "ErrorPipe.h"
#include "LogLevel.h"
#include "Printable.h"
#include "StandardErrorSink.h"
#include "sal/LogOutput.h"

namespace sal {
ErrorPipeSink::ErrorPipeSink(std::string tag, SinkMaker makeFormer)
    : m_tag(std::move(tag)), m_makeFormer(std::move(makeFormer)) {}

ErrorPipeSink::~ErrorPipeSink() {
    if (m_pFormer || !ErrorPipe::isAbandoned())
        return;
    try {
        leaveHost();
    } catch (const std::exception&) {
        // Where that cannot be written there is nowhere to say so.
    }
}

void ErrorPipeSink::log(const spdlog::details::log_msg& message) {
    if (!m_pFormer) {
        const std::string_view text(message.payload.data(), message.payload.size());
        const int error = StandardErrorSink::writeAll(
            ErrorPipe::encode(fromSpdlog(message.level), message.time, speaker(message), text));
        if (error == 0)
            return;
        if (error != EPIPE || !leaveHost())
            throw spdlog::spdlog_ex("standard error", error);
    }
    m_pFormer->log(message);
}

/// False when there is nowhere to go.
bool ErrorPipeSink::leaveHost() {
    const auto left = ErrorPipe::leave();
    if (!left)
        return false;
    m_pFormer = m_makeFormer(m_tag);
    passOn(*left);
    return true;
}

/// What was on its way to the host, as that would have written it.
void ErrorPipeSink::passOn(std::string_view bytes) const {
    // A line of the log in it bears the tag already.
    const spdlog::sink_ptr pSink = m_makeFormer({});
    const auto write = [&](const LogManager::Line& line) {
        pSink->log(spdlog::details::log_msg(line.time, spdlog::source_loc{}, line.output,
                                            toSpdlog(line.level), line.text));
    };
    while (!bytes.empty()) {
        const std::string_view line = bytes.substr(0, bytes.find('\n'));
        bytes.remove_prefix(std::min(line.size() + 1, bytes.size()));
        const LogManager::ErrorLine read = ErrorPipe::read(line);
        if (!read.bare.empty())
            write({std::chrono::system_clock::now(), LogOutput::eWarning, m_tag, base::printable(read.bare)});
        if (read.logged)
            write(*read.logged);
    }
}

std::string ErrorPipeSink::speaker(const spdlog::details::log_msg& message) const {
    const std::string output(message.logger_name.data(), message.logger_name.size());
    return m_tag.empty() || m_tag == output ? output : m_tag + " " + output;
}

}  // namespace sal
