#include "InputWaiter.h"

#include <poll.h>

InputWaiter::InputWaiter(int fd) : m_fd(fd), m_wakeup("the console") {}

InputWaiter::EResult InputWaiter::wait() {
    while (!m_stopped) {
        pollfd watched[] = {{m_fd, POLLIN, 0}, {m_wakeup.fd(), POLLIN, 0}};
        if (::poll(watched, 2, -1) <= 0)
            continue;
        const bool isWoken = watched[1].revents && m_wakeup.take();
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
    m_wakeup.wake();
}
