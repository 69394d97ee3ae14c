#include "sal/Directory.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <utility>

#include "LogLine.h"
#include "sal/LogOutput.h"

namespace sal {
namespace {

Directory::FileFilter s_fileFilter = nullptr;

struct CloseDirectory {
    void operator()(DIR* pDirectory) const { ::closedir(pDirectory); }
};
using OpenDirectory = std::unique_ptr<DIR, CloseDirectory>;

std::string lower(std::string text) {
    for (char& c : text) {
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');
    }
    return text;
}

/// The text after the last dot; a name that only begins with a dot has none.
std::string extensionOf(const std::string& name) {
    const auto dot = name.rfind('.');
    return dot == std::string::npos || dot == 0 ? std::string() : name.substr(dot + 1);
}

bool isRegularFile(DIR* pDirectory, const std::string& directory, const std::string& name) {
    struct stat status {};
    if (::fstatat(::dirfd(pDirectory), name.c_str(), &status, 0) == 0)
        return S_ISREG(status.st_mode);
    // A link that leads nowhere is no file; all else is one that is missed.
    if (errno != ENOENT && errno != ELOOP)
        logLine("FILE", LogOutput::eWarning,
                directory + "/" + name + " is left out: " + std::strerror(errno));
    return false;
}

/// The names that wanted accepts, in byte order.
template <class Wanted>
std::list<std::string> list(const std::string& path, const Wanted& wanted) {
    std::list<std::string> names;
    const OpenDirectory pDirectory(::opendir(path.c_str()));
    int error = pDirectory ? 0 : errno;
    while (pDirectory) {
        errno = 0;
        const dirent* pEntry = ::readdir(pDirectory.get());
        if (!pEntry) {
            error = errno;
            break;
        }
        std::string name = pEntry->d_name;
        if (name != "." && name != ".." && wanted(pDirectory.get(), name))
            names.push_back(std::move(name));
    }
    if (error != 0) {
        logLine("FILE", LogOutput::eWarning,
                "cannot list the directory " + path + ": " + std::strerror(error));
        return {};
    }
    names.sort();
    return names;
}

/// What keeps what is there from being a directory; 0 when it is one, error when it is something else.
int directoryError(const std::string& path, int error) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0)
        return errno == ENOENT ? error : errno;
    return S_ISDIR(status.st_mode) ? 0 : error;
}

/// Not open to others for writing, whatever the umask; and a umask that takes the owner's own rights away
/// does not. 0, or the system's reason.
int makeOne(const std::string& path) {
    if (::mkdir(path.c_str(), 0755) != 0)
        return errno;
    struct stat status {};
    if (::lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode) &&
        (status.st_mode & S_IRWXU) != S_IRWXU)
        ::chmod(path.c_str(), (status.st_mode & 07777) | S_IRWXU);
    return 0;
}

/// 0, or the system's reason.
int makeWithParents(const std::string& path) {
    const int firstError = makeOne(path);
    if (firstError == 0)
        return 0;
    const int error = directoryError(path, firstError);
    if (error != ENOENT)
        return error;
    const auto end = path.find_last_not_of('/');
    const auto slash = end == std::string::npos ? end : path.rfind('/', end);
    if (slash == std::string::npos || slash == 0)
        return error;
    if (const int parentError = makeWithParents(path.substr(0, slash)))
        return parentError;
    // Another thread or process may have made it meanwhile.
    const int lastError = makeOne(path);
    return lastError == 0 ? 0 : directoryError(path, lastError);
}

}  // namespace

Directory::Directory(const Path& path) : m_path(path) {}

std::list<std::string> Directory::getFileList(std::string extension, EDirectorySortType) const {
    const std::string wanted = lower(std::move(extension));
    return list(m_path.getPathString(), [&](DIR* pDirectory, const std::string& name) {
        if (lower(extensionOf(name)) != wanted || !isRegularFile(pDirectory, m_path.getPathString(), name))
            return false;
        Path full = m_path;
        full.expand(name);
        return !s_fileFilter || s_fileFilter(full.getPathString());
    });
}

std::list<std::string> Directory::getDirList(EDirectorySortType) const {
    return list(m_path.getPathString(), [](DIR*, const std::string&) { return true; });
}

bool Directory::createDirectory() const {
    const int error = makeWithParents(m_path.getPathString());
    if (error != 0)
        logLine("FILE", LogOutput::eError,
                "cannot create the directory " + m_path.getPathString() + ": " + std::strerror(error));
    return error == 0;
}

void Directory::setFileFilter(FileFilter filter) {
    s_fileFilter = filter;
}

}  // namespace sal
