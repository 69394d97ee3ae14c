#include "FileReplacement.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "Printable.h"
#include "RegularFile.h"
#include "UniqueFd.h"

namespace base {
namespace {

/// What was done is done, also where its name may not outlive a loss of power.
void settleDirectory(const std::string& path) {
    static_cast<void>(syncDirectoryOf(path));
}

bool writeWhole(const std::string& path, std::string_view bytes, const struct stat* pBefore) {
    const UniqueFd file(
        ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0644));
    if (!file)
        return false;
    // Only root can give a file to another user; the others own what they may replace.
    if (pBefore && (pBefore->st_uid != ::geteuid() || pBefore->st_gid != ::getegid()))
        static_cast<void>(!::fchown(file.get(), pBefore->st_uid, pBefore->st_gid));
    if (pBefore && ::fchmod(file.get(), pBefore->st_mode & 0777) != 0)
        return false;
    return writeAll(file.get(), bytes) && ::fsync(file.get()) == 0;
}

}  // namespace

std::string replaceFile(const std::string& path, std::string_view bytes) {
    struct stat before {};
    const bool isThere = ::stat(path.c_str(), &before) == 0 && S_ISREG(before.st_mode);
    const std::string part = path + ".part";
    if (writeWhole(part, bytes, isThere ? &before : nullptr) &&
        std::rename(part.c_str(), path.c_str()) == 0) {
        settleDirectory(path);
        return {};
    }
    std::string reason = std::strerror(errno);
    ::unlink(part.c_str());
    return reason;
}

std::string removeFile(const std::string& path) {
    if (::unlink(path.c_str()) != 0)
        return errno == ENOENT ? std::string() : std::strerror(errno);
    settleDirectory(path);
    return {};
}

std::string syncDirectoryOf(const std::string& path) {
    const auto slash = path.rfind('/');
    const std::string directory = slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
    const UniqueFd descriptor(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (descriptor && (::fsync(descriptor.get()) == 0 || errno == EINVAL))
        return {};
    return quoted(directory) + " cannot be synced: " + std::strerror(errno);
}

}  // namespace base
