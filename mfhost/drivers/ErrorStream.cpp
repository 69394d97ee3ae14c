#include "ErrorStream.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

#include "Printable.h"
#include "sal/ModuleLoader.h"

namespace {

constexpr std::size_t s_kilobyte = 1024;

}  // namespace

ErrorStream::ErrorStream(std::string driverID, base::UniqueFd pipe, const Limits& limits, const Sink& sink)
    : m_driverID(std::move(driverID)), m_pipe(std::move(pipe)), m_limits(limits), m_sink(sink) {}

bool ErrorStream::read(std::size_t most) {
    std::array<char, 16 * s_kilobyte> buffer;
    for (std::size_t total = 0; total < most;) {
        const ssize_t count = ::read(m_pipe.get(), buffer.data(), buffer.size());
        if (count > 0) {
            take({buffer.data(), static_cast<std::size_t>(count)});
            total += static_cast<std::size_t>(count);
        } else if (count == 0) {
            return false;
        } else if (errno != EINTR) {
            return errno == EAGAIN;
        }
    }
    return true;
}

void ErrorStream::take(std::string_view bytes) {
    while (!bytes.empty()) {
        const auto end = bytes.find('\n');
        const std::string_view piece = bytes.substr(0, end);
        const std::size_t room = m_limits.lineLength - std::min(m_begun.size(), m_limits.lineLength);
        m_begun += piece.substr(0, room);
        m_isCut = m_isCut || piece.size() > room;
        if (end == std::string_view::npos)
            return;
        endLine();
        bytes.remove_prefix(end + 1);
    }
}

void ErrorStream::endLine() {
    std::string line = std::exchange(m_begun, std::string());
    if (std::exchange(m_isCut, false))
        line += " ...";
    const sal::LogManager::ErrorLine read = sal::LogManager::readErrorLine(line);
    if (!read.bare.empty())
        takeBare(read.bare);
    if (read.logged)
        takeLogged(*read.logged);
}

void ErrorStream::takeLogged(const sal::LogManager::Line& line) {
    if (const std::string fault = sal::ModuleLoader::faultIn(line.text); !fault.empty())
        m_loadFault = fault;
    if (const auto crash = sal::CrashNote::in(line.text))
        m_crash = crash;
    if (hasRoomFor(line.text.size()))
        m_sink(m_driverID, line, false);
}

void ErrorStream::takeBare(std::string_view text) {
    m_lastWords.emplace_back(text.substr(0, m_limits.lastWordLength));
    if (m_lastWords.size() > m_limits.lastWords)
        m_lastWords.pop_front();
    if (hasRoomFor(text.size()))
        m_sink(
            m_driverID,
            {std::chrono::system_clock::now(), sal::LogOutput::eWarning, m_driverID, base::printable(text)},
            true);
}

/// Whether a line of that length may still be told in this second; one that may not is counted.
bool ErrorStream::hasRoomFor(std::size_t length) {
    const auto now = Clock::now();
    if (now - m_secondBegan >= std::chrono::seconds(1)) {
        tellLeftOut();
        m_secondBegan = now;
        m_inSecond = 0;
    }
    // One that is left out leaves no room for a shorter one after it.
    m_inSecond += 1 + length / s_kilobyte;
    m_leftOut += m_inSecond > m_limits.lines ? 1 : 0;
    return m_inSecond <= m_limits.lines;
}

std::vector<std::string> ErrorStream::lastWords() const {
    std::vector<std::string> words;
    for (const std::string& word : m_lastWords)
        words.push_back(base::printable(word));
    return words;
}

void ErrorStream::tell() {
    if (Clock::now() - m_secondBegan >= std::chrono::seconds(1))
        tellLeftOut();
}

void ErrorStream::tellLeftOut() {
    const std::size_t count = std::exchange(m_leftOut, 0);
    if (count == 0)
        return;
    m_sink(m_driverID,
           {std::chrono::system_clock::now(), sal::LogOutput::eWarning, "HOST",
            m_driverID + ": " + std::to_string(count) + (count == 1 ? " line" : " lines") +
                " of its log and standard error are left out here: more than " +
                std::to_string(m_limits.lines) + " in a second"},
           false);
}

void ErrorStream::finish() {
    endLine();
    tellLeftOut();
}
