#include "ProcessEnd.h"

#include <poll.h>
#include <signal.h>
#include <sys/wait.h>

#include <cerrno>
#include <cstring>

std::optional<ProcessEnd> ProcessEnd::collect(int pidFd) {
    siginfo_t info{};
    int result = 0;
    do {
        result = ::waitid(P_PIDFD, static_cast<id_t>(pidFd), &info, WEXITED | WNOHANG);
    } while (result != 0 && errno == EINTR);
    if (result == 0 && info.si_pid == 0)
        return std::nullopt;
    ProcessEnd end;
    if (result == 0) {
        end.m_isKnown = true;
        end.m_isExit = info.si_code == CLD_EXITED;
        end.m_status = info.si_status;
        return end;
    }
    // The descriptor tells the end even of a process that another part of the host has collected.
    pollfd ended{pidFd, POLLIN, 0};
    return ::poll(&ended, 1, 0) > 0 ? std::optional(end) : std::nullopt;
}

std::string ProcessEnd::cause() const {
    if (!m_isKnown)
        return "unknown end";
    if (m_isExit)
        return "exit code " + std::to_string(m_status);
    return "signal " + std::to_string(m_status) + " (" + ::strsignal(m_status) + ")";
}
