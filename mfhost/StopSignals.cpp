#include "StopSignals.h"

#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cstdint>

#include "Needed.h"

StopSignals::StopSignals() {
    ::signal(SIGPIPE, SIG_IGN);
    // A file that reaches the limit of its size is an error of the write.
    ::signal(SIGXFSZ, SIG_IGN);
    sigset_t watched;
    sigemptyset(&watched);
    sigaddset(&watched, SIGINT);
    sigaddset(&watched, SIGTERM);
    // nohup: the workplace is to outlive the terminal.
    struct sigaction hangUp {};
    if (::sigaction(SIGHUP, nullptr, &hangUp) == 0 && hangUp.sa_handler != SIG_IGN)
        sigaddset(&watched, SIGHUP);
    ::pthread_sigmask(SIG_BLOCK, &watched, nullptr);
    m_signalFd = neededDescriptor(::signalfd(-1, &watched, SFD_CLOEXEC | SFD_NONBLOCK), "signals");
    try {
        m_interruptFd = neededDescriptor(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK), "signals");
    } catch (...) {
        ::close(m_signalFd);
        throw;
    }
}

StopSignals::~StopSignals() {
    ::close(m_signalFd);
    ::close(m_interruptFd);
}

int StopSignals::wait() {
    for (;;) {
        pollfd watched[] = {{m_signalFd, POLLIN, 0}, {m_interruptFd, POLLIN, 0}};
        if (::poll(watched, 2, -1) <= 0)
            continue;
        signalfd_siginfo info{};
        if (watched[0].revents && ::read(m_signalFd, &info, sizeof info) == sizeof info)
            return static_cast<int>(info.ssi_signo);
        if (watched[1].revents)
            return 0;
    }
}

void StopSignals::interrupt() {
    const std::uint64_t one = 1;
    static_cast<void>(!::write(m_interruptFd, &one, sizeof one));
}
