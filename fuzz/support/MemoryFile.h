#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "Expect.h"

/// A regular file without a place on any disk, written anew for each input.
class MemoryFile {
public:
    MemoryFile() : m_fd(memfd_create("input", MFD_CLOEXEC)) { expect(m_fd >= 0, "there are memory files"); }
    ~MemoryFile() { close(m_fd); }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    void write(const std::uint8_t* data, std::size_t size) const {
        expect(ftruncate(m_fd, 0) == 0 && pwrite(m_fd, data, size, 0) == static_cast<ssize_t>(size),
               "a memory file can be written");
    }
    /// Opens the file anew, from its beginning.
    std::string path() const { return "/proc/self/fd/" + std::to_string(m_fd); }

private:
    int m_fd;
};
