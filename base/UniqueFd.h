#pragma once

#include <unistd.h>

#include <utility>

namespace base {

/// Owns a file descriptor, and closes it when it goes. Belongs to one thread at a time.
class UniqueFd {
public:
    UniqueFd() = default;
    /// A negative number is none, as the system's calls return it.
    explicit UniqueFd(int fd) : m_fd(fd) {}
    UniqueFd(UniqueFd&& other) noexcept : m_fd(std::exchange(other.m_fd, -1)) {}
    UniqueFd& operator=(UniqueFd other) noexcept {
        std::swap(m_fd, other.m_fd);
        return *this;
    }
    ~UniqueFd() { reset(); }

    explicit operator bool() const { return m_fd >= 0; }
    /// -1, or what was given, when there is none.
    int get() const { return m_fd; }
    /// Hands it over: it is no longer closed here.
    int release() { return std::exchange(m_fd, -1); }
    void reset() {
        if (m_fd >= 0)
            ::close(std::exchange(m_fd, -1));
    }

private:
    int m_fd = -1;
};

}  // namespace base
