#include "HistoryFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <sstream>
#include <system_error>
#include <thread>
#include <utility>

#include "Printable.h"
#include "RegularFile.h"
#include "UniqueFd.h"

namespace fs = std::filesystem;

namespace {

/// Another host holds the file for moments only, unless it is stopped just then.
constexpr std::chrono::milliseconds s_lockPatience{200};
constexpr std::size_t s_sizeLimit = 2 * HistoryFile::s_lines * (HistoryFile::s_longestLine + 1);

std::string reasonOf(const std::string& path, int error) {
    return path + ": " + std::strerror(error);
}

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        if (!line.empty() && line.size() <= HistoryFile::s_longestLine && base::isPrintable(line))
            lines.push_back(std::move(line));
    }
    return lines;
}

void keepLatest(std::vector<std::string>& lines) {
    if (lines.size() > HistoryFile::s_lines)
        lines.erase(lines.begin(), lines.end() - static_cast<std::ptrdiff_t>(HistoryFile::s_lines));
}

bool lock(int fd) {
    const auto end = std::chrono::steady_clock::now() + s_lockPatience;
    while (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK || std::chrono::steady_clock::now() >= end)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

}  // namespace

std::string HistoryFile::usualPath() {
    const char* state = std::getenv("XDG_STATE_HOME");
    if (state && *state == '/')
        return std::string(state) + "/mfhost/history";
    const char* home = std::getenv("HOME");
    return home && *home == '/' ? std::string(home) + "/.local/state/mfhost/history" : std::string();
}

std::string HistoryFile::read(std::vector<std::string>& lines) const {
    lines.clear();
    if (m_path.empty())
        return {};
    std::error_code error;
    if (!fs::exists(m_path, error) && !error)
        return {};
    const base::RegularFile file = base::RegularFile::read(m_path, s_sizeLimit);
    if (!file)
        return m_path + ": " + file.reason;
    lines = linesOf(file.bytes);
    keepLatest(lines);
    return {};
}

std::string HistoryFile::add(const std::string& line) const {
    const bool isToKeep = !line.empty() && line.front() != ' ' && line.size() <= s_longestLine;
    if (m_path.empty() || !isToKeep || !base::isPrintable(line))
        return {};
    const fs::path directory = fs::path(m_path).parent_path();
    std::error_code error;
    // Only what is made here is closed to others.
    if (fs::create_directories(directory, error))
        fs::permissions(directory, fs::perms::owner_all, error);
    // A pipe in its place is no reason to wait.
    const base::UniqueFd file(
        ::open(m_path.c_str(), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, 0600));
    struct stat status {};
    if (!file || ::fstat(file.get(), &status) != 0)
        return reasonOf(m_path, errno);
    if (!S_ISREG(status.st_mode))
        return m_path + ": not a regular file";
    if (!lock(file.get()))
        return m_path + ": another process holds it";
    // The file is shortened where it stands, so that all hosts lock the same one.
    const base::RegularFile before = base::RegularFile::read(m_path, s_sizeLimit);
    std::vector<std::string> lines = linesOf(before.bytes);
    if (lines.size() >= 2 * s_lines || before.fault == base::RegularFile::EFault::TooLarge) {
        keepLatest(lines);
        std::string text;
        for (const std::string& kept : lines)
            text += kept + "\n";
        if (::ftruncate(file.get(), 0) != 0 || !base::writeAll(file.get(), text))
            return reasonOf(m_path, errno);
    }
    // The line before may have been cut short.
    const bool isCut = !before.bytes.empty() && before.bytes.back() != '\n';
    return base::writeAll(file.get(), (isCut ? "\n" : "") + line + "\n") ? std::string()
                                                                         : reasonOf(m_path, errno);
}
