#include "SteppedPeer.h"

#include <fcntl.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "StartProgram.h"

namespace {

/// The signal that the process has stopped with; 0 when it has ended.
int waitForStop(pid_t pid) {
    int status = 0;
    return waitpid(pid, &status, 0) == pid && WIFSTOPPED(status) ? WSTOPSIG(status) : 0;
}

}  // namespace

SteppedPeer::SteppedPeer(const std::string& command, const std::string& queue) {
    const std::string word = "step-" + command;
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    // The look-up of symbols is not to be stepped through.
    m_pid = startProgram({QUEUE_PEER, word, queue}, {{nowhere, STDOUT_FILENO}, {nowhere, STDERR_FILENO}},
                         {"LD_BIND_NOW=1"});
    close(nowhere);
    m_isAtBeginning = waitForStop(m_pid) == SIGSTOP;
}

SteppedPeer::~SteppedPeer() {
    kill();
}

long SteppedPeer::run(long instructions) {
    for (long done = 0; done < instructions; ++done) {
        if (ptrace(PTRACE_SINGLESTEP, m_pid, nullptr, nullptr) != 0)
            return done;
        if (waitForStop(m_pid) != SIGTRAP)
            return done;
    }
    return instructions;
}

void SteppedPeer::finish() {
    if (ptrace(PTRACE_CONT, m_pid, nullptr, nullptr) == 0)
        waitForStop(m_pid);
}

void SteppedPeer::kill() {
    if (m_pid <= 0)
        return;
    ::kill(m_pid, SIGKILL);
    // A traced process may report a stop before its end.
    int status = 0;
    while (waitpid(m_pid, &status, 0) == m_pid && WIFSTOPPED(status)) {
    }
    m_pid = -1;
}
