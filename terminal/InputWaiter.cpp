#include "InputWaiter.h"

#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include "Needed.h"

InputWaiter::InputWaiter(int fd) : m_fd(fd), m_wakeup("the console") {}

void InputWaiter::watchSize() {
    sigset_t size;
    sigemptyset(&size);
    sigaddset(&size, SIGWINCH);
    ::pthread_sigmask(SIG_BLOCK, &size, nullptr);
    m_size = base::UniqueFd(
        base::neededDescriptor(::signalfd(-1, &size, SFD_CLOEXEC | SFD_NONBLOCK), "the terminal's size"));
}

bool InputWaiter::takeResize() const {
    signalfd_siginfo info{};
    return ::read(m_size.get(), &info, sizeof info) == sizeof info;
}

InputWaiter::EResult InputWaiter::wait(std::chrono::milliseconds patience) {
    while (!m_stopped) {
        pollfd watched[] = {{m_fd, POLLIN, 0}, {m_wakeup.fd(), POLLIN, 0}, {m_size.get(), POLLIN, 0}};
        const int count = ::poll(watched, 3, static_cast<int>(patience.count()));
        if (count == 0)
            return EResult::Idle;
        if (count < 0)
            continue;
        const bool isWoken = watched[1].revents && m_wakeup.take();
        if (m_stopped)
            break;
        const bool isResized = watched[2].revents && takeResize();
        // What has come besides is kept for the next wait.
        if (isResized || watched[0].revents) {
            if (isWoken)
                nudge();
            return isResized ? EResult::Resized : EResult::Input;
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
