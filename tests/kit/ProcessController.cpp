#include "ProcessController.h"

#include <poll.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <utility>

ProcessController::ProcessController(pid_t pid)
    : m_pid(pid), m_pidFd(static_cast<int>(syscall(SYS_pidfd_open, pid, 0))) {}

ProcessController::~ProcessController() {
    if (m_pidFd < 0)
        return;
    if (alive()) {
        signal(SIGKILL);
        waitEnd();
    }
    close(m_pidFd);
}

ProcessController::ProcessController(ProcessController&& other) noexcept
    : m_pid(std::exchange(other.m_pid, 0)), m_pidFd(std::exchange(other.m_pidFd, -1)) {}

ProcessController& ProcessController::operator=(ProcessController&& other) noexcept {
    std::swap(m_pid, other.m_pid);
    std::swap(m_pidFd, other.m_pidFd);
    return *this;
}

bool ProcessController::alive() const {
    pollfd fd{m_pidFd, POLLIN, 0};
    return m_pidFd >= 0 && poll(&fd, 1, 0) == 0;
}

void ProcessController::signal(int number) const {
    syscall(SYS_pidfd_send_signal, m_pidFd, number, nullptr, 0);
}

std::string ProcessController::waitEnd(std::chrono::seconds timeout) {
    pollfd fd{m_pidFd, POLLIN, 0};
    if (poll(&fd, 1, static_cast<int>(std::chrono::milliseconds(timeout).count())) != 1)
        return "still running";
    // An orphan becomes a child of this process an instant after it was one of the dead parent's.
    siginfo_t info{};
    for (int attempt = 0; attempt < 1000; ++attempt) {
        if (waitid(P_PIDFD, static_cast<id_t>(m_pidFd), &info, WEXITED) == 0)
            return (info.si_code == CLD_EXITED ? "exit " : "signal ") + std::to_string(info.si_status);
        usleep(1000);
    }
    return "reaped elsewhere";
}

int ProcessController::openDescriptors(pid_t pid) {
    const std::filesystem::directory_iterator entries("/proc/" + std::to_string(pid) + "/fd");
    return static_cast<int>(std::distance(begin(entries), end(entries)));
}

std::chrono::milliseconds ProcessController::processorTime() const {
    std::ifstream file("/proc/" + std::to_string(m_pid) + "/stat");
    std::string text;
    std::getline(file, text);
    std::istringstream fields(text.substr(text.rfind(')') + 1));
    std::string skipped;
    for (int field = 0; field < 11; ++field)
        fields >> skipped;
    long user = 0;
    long system = 0;
    fields >> user >> system;
    return std::chrono::milliseconds((user + system) * 1000 / sysconf(_SC_CLK_TCK));
}
