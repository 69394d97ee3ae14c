#include "DataDirectoryLock.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <functional>
#include <utility>

namespace {

/// Names of all entries but the host's own and the links that isOwn accepts.
std::string entriesBut(const std::string& path,
                       const std::function<bool(const std::filesystem::path&)>& isOwn) {
    std::string names;
    std::error_code error;
    int count = 0;
    const std::filesystem::directory_iterator end;
    for (std::filesystem::directory_iterator entry(path, error); entry != end; entry.increment(error)) {
        if ((entry->is_symlink(error) && isOwn(entry->path())) ||
            entry->path().filename() == LockFile::s_place)
            continue;
        if (++count > 3)
            return names + ", ...";
        names += (names.empty() ? "" : ", ") + entry->path().filename().string();
    }
    return names;
}

}  // namespace

DataDirectoryLock::DataDirectoryLock(std::string path) : m_path(std::move(path)) {}

std::string DataDirectoryLock::acquire() {
    if (::mkdir(m_path.c_str(), 0755) != 0 && errno != EEXIST)
        return "cannot make " + m_path + ": " + std::strerror(errno) +
               "; make it yourself, or run with --sandbox";
    m_fd = base::UniqueFd(::open(m_path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!m_fd) {
        if (errno == ENOTDIR)
            return m_path + " is not a directory";
        return "cannot open " + m_path + ": " + std::strerror(errno);
    }
    if (::faccessat(AT_FDCWD, m_path.c_str(), W_OK | X_OK, AT_EACCESS) != 0)
        return "cannot write in " + m_path + ": " + std::strerror(errno) +
               "; run with --sandbox to do without";
    return m_lock.emplace(m_path).acquire(m_fd.get());
}

std::string DataDirectoryLock::foreignEntries(const std::string& path) {
    return entriesBut(path, [](const std::filesystem::path&) { return true; });
}

std::string DataDirectoryLock::foreignEntries(const std::string& path, const std::string& workDirectory) {
    return entriesBut(path, [below = workDirectory + "/"](const std::filesystem::path& link) {
        std::error_code error;
        return std::filesystem::read_symlink(link, error).string().starts_with(below);
    });
}
