#include "DataDirectory.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <utility>

DataDirectory::DataDirectory(std::string path) : m_path(std::move(path)) {}

DataDirectory::~DataDirectory() {
    if (m_fd >= 0)
        ::close(m_fd);
}

std::optional<std::string> DataDirectory::acquire() {
    if (::mkdir(m_path.c_str(), 0755) != 0 && errno != EEXIST)
        return "cannot make " + m_path + ": " + std::strerror(errno) +
               "; make it yourself, or run with --sandbox";
    m_fd = ::open(m_path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (m_fd < 0) {
        if (errno == ENOTDIR)
            return m_path + " is not a directory";
        return "cannot open " + m_path + ": " + std::strerror(errno);
    }
    if (::faccessat(AT_FDCWD, m_path.c_str(), W_OK | X_OK, AT_EACCESS) != 0)
        return "cannot write in " + m_path + ": " + std::strerror(errno) +
               "; run with --sandbox to do without";
    if (::flock(m_fd, LOCK_EX | LOCK_NB) != 0) {
        if (errno == EWOULDBLOCK)
            return "another host runs with " + m_path + holder();
        return "cannot lock " + m_path + ": " + std::strerror(errno);
    }
    return std::nullopt;
}

std::string DataDirectory::holder() const {
    struct stat status {};
    if (::fstat(m_fd, &status) != 0)
        return {};
    char file[64];
    std::snprintf(file, sizeof file, "%02x:%02x:%llu", major(status.st_dev), minor(status.st_dev),
                  static_cast<unsigned long long>(status.st_ino));
    // "1: FLOCK ADVISORY WRITE 1234 fe:00:5678 0 EOF"
    std::ifstream locks("/proc/locks");
    for (std::string line; std::getline(locks, line);) {
        std::istringstream fields(line);
        std::string number, kind, advisory, access, process, inode;
        fields >> number >> kind >> advisory >> access >> process >> inode;
        if (kind == "FLOCK" && inode == file)
            return " (process " + process + ")";
    }
    return {};
}

std::string DataDirectory::foreignEntries() const {
    std::string names;
    std::error_code error;
    int count = 0;
    const std::filesystem::directory_iterator end;
    for (std::filesystem::directory_iterator entry(m_path, error); entry != end; entry.increment(error)) {
        if (entry->is_symlink(error))
            continue;
        if (++count > 3)
            return names + ", ...";
        names += (names.empty() ? "" : ", ") + entry->path().filename().string();
    }
    return names;
}
