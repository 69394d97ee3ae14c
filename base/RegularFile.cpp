#include "RegularFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "UniqueFd.h"

namespace base {
namespace {

constexpr std::size_t s_step = 64u << 10;

RegularFile refused(RegularFile file, RegularFile::EFault fault, std::string reason) {
    file.bytes.clear();
    file.fault = fault;
    file.reason = std::move(reason);
    return file;
}

RegularFile tooLarge(RegularFile file, std::size_t limit) {
    return refused(std::move(file), RegularFile::EFault::TooLarge,
                   "larger than " + std::to_string(limit) + " bytes");
}

}  // namespace

RegularFile RegularFile::read(const std::string& path, std::size_t limit) {
    constexpr const char* otherKind = "not a regular file";
    RegularFile file;
    // Without O_NONBLOCK the open itself would wait for the other end of a pipe.
    const UniqueFd descriptor(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
    // A socket is not opened at all.
    if (!descriptor && errno == ENXIO)
        return refused(file, EFault::NotRegular, otherKind);
    if (!descriptor)
        return refused(file, EFault::NotOpened, std::strerror(errno));
    struct stat status {};
    if (::fstat(descriptor.get(), &status) != 0)
        return refused(file, EFault::NotRead, std::strerror(errno));
    if (!S_ISREG(status.st_mode))
        return refused(file, EFault::NotRegular, otherKind);
    file.mode = status.st_mode & 07777;
    file.size = static_cast<std::size_t>(status.st_size);
    if (file.size > limit)
        return tooLarge(std::move(file), limit);

    // The file may grow or shrink meanwhile, and some of the system's do not know their size.
    file.bytes.resize(file.size + 1);
    for (std::size_t filled = 0;;) {
        if (filled == file.bytes.size())
            file.bytes.resize(filled + s_step);
        const ssize_t count =
            ::read(descriptor.get(), file.bytes.data() + filled, file.bytes.size() - filled);
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            return refused(std::move(file), EFault::NotRead, std::strerror(errno));
        filled += static_cast<std::size_t>(count);
        if (filled > limit) {
            file.size = filled;
            return tooLarge(std::move(file), limit);
        }
        if (count == 0) {
            file.bytes.resize(filled);
            file.size = filled;
            return file;
        }
    }
}

bool writeAll(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t count = ::write(fd, bytes.data(), bytes.size());
        if (count < 0 && errno != EINTR)
            return false;
        if (count > 0)
            bytes.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
}

}  // namespace base
