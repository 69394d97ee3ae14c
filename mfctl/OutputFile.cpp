#include "OutputFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "UniqueFd.h"

namespace {

constexpr std::size_t s_largestFile = 16u << 20;

bool writeAll(int fd, const std::string& content) {
    for (std::size_t written = 0; written < content.size();) {
        const ssize_t count = ::write(fd, content.data() + written, content.size() - written);
        if (count < 0 && errno != EINTR)
            return false;
        if (count > 0)
            written += static_cast<std::size_t>(count);
    }
    return ::fsync(fd) == 0;
}

}  // namespace

std::optional<std::string> OutputFile::read(const std::string& path, std::string& error, mode_t* pMode) {
    const base::UniqueFd file(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
    struct stat status {};
    if (!file || ::fstat(file.get(), &status) != 0) {
        error = std::strerror(errno);
        return std::nullopt;
    }
    if (!S_ISREG(status.st_mode)) {
        error = "not a regular file";
        return std::nullopt;
    }
    if (pMode)
        *pMode = status.st_mode & 07777;
    std::string content;
    for (;;) {
        constexpr std::size_t step = 64u << 10;
        const std::size_t used = content.size();
        content.resize(used + step);
        const ssize_t count = ::read(file.get(), content.data() + used, step);
        if (count < 0 && errno != EINTR) {
            error = std::strerror(errno);
            return std::nullopt;
        }
        content.resize(used + (count > 0 ? static_cast<std::size_t>(count) : 0));
        if (content.size() > s_largestFile) {
            error = "larger than 16 MB";
            return std::nullopt;
        }
        if (count == 0)
            return content;
    }
}

std::string OutputFile::create(const std::string& path, const std::string& content, mode_t mode) {
    const base::UniqueFd file(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode));
    if (!file)
        return path + ": " + std::strerror(errno);
    if (writeAll(file.get(), content))
        return {};
    std::string error = path + ": " + std::strerror(errno);
    ::unlink(path.c_str());
    return error;
}

std::string OutputFile::replace(const std::string& path, const std::string& content) {
    const std::string draft = path + "." + std::to_string(::getpid());
    if (std::string error = create(draft, content, 0644); !error.empty())
        return error;
    if (std::rename(draft.c_str(), path.c_str()) == 0)
        return {};
    std::string error = path + ": " + std::strerror(errno);
    ::unlink(draft.c_str());
    return error;
}
