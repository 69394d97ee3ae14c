#pragma once

#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <utility>

/// A forked child, killed with the object and with its parent. Its body returns nothing: at its end the child
/// waits to be killed, so that what the other processes have of it stays.
class ChildProcess {
public:
    template <class Body>
    explicit ChildProcess(Body body) {
        std::fflush(nullptr);
        m_pid = fork();
        if (m_pid == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            body();
            for (;;)
                pause();
        }
    }
    ChildProcess(ChildProcess&& other) noexcept : m_pid(std::exchange(other.m_pid, -1)) {}
    ChildProcess& operator=(ChildProcess&&) = delete;
    ~ChildProcess() {
        if (m_pid > 0) {
            kill(m_pid, SIGKILL);
            waitpid(m_pid, nullptr, 0);
        }
    }

    pid_t pid() const { return m_pid; }
    bool isRunning() const {
        siginfo_t info{};
        return waitid(P_PID, static_cast<id_t>(m_pid), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
               info.si_pid == 0;
    }

private:
    pid_t m_pid = -1;
};
