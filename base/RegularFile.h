#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>
#include <string_view>

namespace base {

/// A regular file as one reading found it, whole, or why it could not be had. Reading never waits for another
/// process: a pipe, a device or a directory is refused. Any thread.
struct RegularFile {
    enum class EFault {
        None,
        NotOpened,   ///< the system does not open it
        NotRead,     ///< it was opened, and the system does not read it
        NotRegular,  ///< a directory, a pipe, a socket, a device
        TooLarge,    ///< more than the limit
    };

    std::string bytes;  ///< empty unless fault is None
    EFault fault = EFault::None;
    std::string reason;    ///< "not a regular file", "larger than 64 bytes", or the system's; empty for None
    std::size_t size = 0;  ///< in bytes; where it is too large, at least so many
    mode_t mode = 0;       ///< the permission bits, once it was opened

    /// 16 MB: more than a person writes, and less than exhausts the memory.
    static constexpr std::size_t s_usualLimit = 16u << 20;
    /// A file of more bytes than the limit is refused.
    static RegularFile read(const std::string& path, std::size_t limit = s_usualLimit);

    explicit operator bool() const { return fault == EFault::None; }
};

/// Writes all of it, however many calls that takes. False with errno when the system refuses.
bool writeAll(int fd, std::string_view bytes);

}  // namespace base
