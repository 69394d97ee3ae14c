#include "QueuePeer.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <stdexcept>
#include <utility>

#include "HangGuard.h"
#include "StartProgram.h"

QueuePeer::QueuePeer(const std::vector<std::string>& arguments, const std::vector<std::string>& prefix) {
    std::vector<std::string> words = prefix;
    words.emplace_back(QUEUE_PEER);
    words.insert(words.end(), arguments.begin(), arguments.end());
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) {
        throw std::runtime_error("no pipe");
    }
    m_output = ends[0];
    m_pid = startProgram(std::move(words), {{ends[1], STDOUT_FILENO}});
    ::close(ends[1]);
}

QueuePeer::~QueuePeer() {
    kill();
    ::close(m_output);
}

std::string QueuePeer::line() {
    std::string text;
    pollfd ready{m_output, POLLIN, 0};
    while (::poll(&ready, 1, c_hangGuardMs) > 0) {
        char letter = 0;
        if (::read(m_output, &letter, 1) != 1 || letter == '\n') {
            break;
        }
        text += letter;
    }
    return text;
}

void QueuePeer::signal(int number) {
    if (m_pid > 0) {
        ::kill(m_pid, number);
    }
}

void QueuePeer::kill() {
    signal(SIGKILL);
    wait();
}

int QueuePeer::wait() {
    int status = 0;
    if (m_pid <= 0 || ::waitpid(m_pid, &status, 0) != m_pid) {
        return -1;
    }
    m_pid = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}
