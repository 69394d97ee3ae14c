#include "OutputFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "RegularFile.h"
#include "UniqueFd.h"

namespace {

bool settle(int fd, const std::string& content) {
    return base::writeAll(fd, content) && ::fsync(fd) == 0;
}

}  // namespace

std::string createFile(const std::string& path, const std::string& content, mode_t mode) {
    const base::UniqueFd file(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode));
    if (!file)
        return path + ": " + std::strerror(errno);
    if (settle(file.get(), content))
        return {};
    std::string error = path + ": " + std::strerror(errno);
    ::unlink(path.c_str());
    return error;
}

std::string replaceFile(const std::string& path, const std::string& content) {
    const std::string draft = path + "." + std::to_string(::getpid());
    if (std::string error = createFile(draft, content, 0644); !error.empty())
        return error;
    if (std::rename(draft.c_str(), path.c_str()) == 0)
        return {};
    std::string error = path + ": " + std::strerror(errno);
    ::unlink(draft.c_str());
    return error;
}
