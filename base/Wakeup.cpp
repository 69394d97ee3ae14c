#include "Wakeup.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace base {

Wakeup::Wakeup(const std::string& purpose) : m_fd(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (!m_fd)
        throw std::system_error(errno, std::generic_category(), "no descriptor can be had for " + purpose);
}

void Wakeup::wake(int fd) {
    const int error = errno;
    const eventfd_t one = 1;
    // Where it fails the counter is full, and the thread that waits is awake.
    static_cast<void>(!::write(fd, &one, sizeof one));
    errno = error;
}

bool Wakeup::take() const {
    eventfd_t count = 0;
    return ::eventfd_read(fd(), &count) == 0;
}

void Wakeup::wait() const {
    while (!take()) {
        pollfd woken{fd(), POLLIN, 0};
        ::poll(&woken, 1, -1);
    }
}

}  // namespace base
