#pragma once

#include <unistd.h>

#include <utility>

namespace sal {

/// Owns a file descriptor.
class FileHandle {
public:
    FileHandle() = default;
    explicit FileHandle(int descriptor) : m_descriptor(descriptor) {}
    FileHandle(FileHandle&& other) noexcept : m_descriptor(std::exchange(other.m_descriptor, -1)) {}
    FileHandle& operator=(FileHandle&& other) noexcept {
        std::swap(m_descriptor, other.m_descriptor);
        return *this;
    }
    ~FileHandle() { reset(); }

    explicit operator bool() const { return m_descriptor >= 0; }
    int get() const { return m_descriptor; }
    void reset() {
        if (m_descriptor >= 0) {
            ::close(std::exchange(m_descriptor, -1));
        }
    }

private:
    int m_descriptor = -1;
};

}  // namespace sal
