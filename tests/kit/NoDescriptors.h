#pragma once

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

/// While one lives, the process gets no new descriptor, or no more than so many; those that it has it keeps.
class NoDescriptors {
public:
    explicit NoDescriptors(rlim_t but = 0) {
        ::getrlimit(RLIMIT_NOFILE, &m_before);
        const rlimit none{but == 0 ? 0 : lowestFree() + but, m_before.rlim_max};
        ::setrlimit(RLIMIT_NOFILE, &none);
    }
    ~NoDescriptors() { ::setrlimit(RLIMIT_NOFILE, &m_before); }
    NoDescriptors(const NoDescriptors&) = delete;
    NoDescriptors& operator=(const NoDescriptors&) = delete;

private:
    /// All above it are taken to be free.
    static rlim_t lowestFree() {
        const int free = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
        ::close(free);
        return static_cast<rlim_t>(free);
    }

    rlimit m_before{};
};
