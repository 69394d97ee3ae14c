#include "InputWaiter.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cstdint>

#include "Needed.h"

InputWaiter::InputWaiter(int fd)
    : m_fd(fd), m_wakeFd(neededDescriptor(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK), "the console")) {}

InputWaiter::~InputWaiter() {
    ::close(m_wakeFd);
}

InputWaiter::EResult InputWaiter::wait() {
    while (!m_stopped) {
        pollfd watched[] = {{m_fd, POLLIN, 0}, {m_wakeFd, POLLIN, 0}};
        if (::poll(watched, 2, -1) <= 0)
            continue;
        std::uint64_t count = 0;
        const bool isWoken = watched[1].revents && ::read(m_wakeFd, &count, sizeof count) == sizeof count;
        if (m_stopped)
            break;
        if (watched[0].revents) {
            // Input goes first; the nudge is kept for the next wait.
            if (isWoken)
                nudge();
            return EResult::Input;
        }
        if (isWoken)
            return EResult::Nudged;
    }
    return EResult::Stopped;
}

void InputWaiter::stop() {
    m_stopped = true;
    nudge();
}

void InputWaiter::nudge() {
    const std::uint64_t one = 1;
    static_cast<void>(!::write(m_wakeFd, &one, sizeof one));
}
