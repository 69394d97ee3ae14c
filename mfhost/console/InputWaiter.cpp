#include "InputWaiter.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cstdint>

InputWaiter::InputWaiter(int fd) : m_fd(fd), m_stopFd(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

InputWaiter::~InputWaiter() {
    ::close(m_stopFd);
}

bool InputWaiter::wait() {
    while (!m_stopped) {
        pollfd watched[] = {{m_fd, POLLIN, 0}, {m_stopFd, POLLIN, 0}};
        if (::poll(watched, 2, -1) > 0 && watched[0].revents)
            return !m_stopped;
    }
    return false;
}

void InputWaiter::stop() {
    m_stopped = true;
    const std::uint64_t one = 1;
    static_cast<void>(!::write(m_stopFd, &one, sizeof one));
}
