#include "StopSignals.h"

#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include "Needed.h"

StopSignals::StopSignals() : m_interrupt("signals") {
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
    sigset_t blocked = watched;
    // The console's, which waits for it by itself: a thread that has it unblocked would take it away.
    sigaddset(&blocked, SIGWINCH);
    ::pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
    m_signals = base::UniqueFd(
        base::neededDescriptor(::signalfd(-1, &watched, SFD_CLOEXEC | SFD_NONBLOCK), "signals"));
}

int StopSignals::wait() {
    for (;;) {
        pollfd watched[] = {{m_signals.get(), POLLIN, 0}, {m_interrupt.fd(), POLLIN, 0}};
        if (::poll(watched, 2, -1) <= 0)
            continue;
        signalfd_siginfo info{};
        if (watched[0].revents && ::read(m_signals.get(), &info, sizeof info) == sizeof info) {
            m_isTerminalGone = info.ssi_signo == SIGHUP && info.ssi_code == SI_KERNEL;
            return static_cast<int>(info.ssi_signo);
        }
        if (watched[1].revents)
            return 0;
    }
}

void StopSignals::interrupt() {
    m_interrupt.wake();
}
