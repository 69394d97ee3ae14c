#include "sal/Process.h"

#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <thread>

#include "LogLine.h"
#include "sal/LogOutput.h"

namespace sal {
namespace {

std::atomic<Process::Observer*> s_pObserver{nullptr};

/// What the child finds: no input, no foreign descriptor, a session and signals of its own.
class SpawnSettings {
public:
    SpawnSettings() {
        check(::posix_spawnattr_init(&m_attributes));
        check(::posix_spawn_file_actions_init(&m_actions));
        sigset_t all;
        sigset_t none;
        sigfillset(&all);
        sigemptyset(&none);
        check(::posix_spawnattr_setsigdefault(&m_attributes, &all));
        check(::posix_spawnattr_setsigmask(&m_attributes, &none));
        check(::posix_spawnattr_setflags(
            &m_attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSID));
        check(::posix_spawn_file_actions_addopen(&m_actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0));
        check(::posix_spawn_file_actions_addclosefrom_np(&m_actions, STDERR_FILENO + 1));
    }
    ~SpawnSettings() {
        ::posix_spawn_file_actions_destroy(&m_actions);
        ::posix_spawnattr_destroy(&m_attributes);
    }
    SpawnSettings(const SpawnSettings&) = delete;
    SpawnSettings& operator=(const SpawnSettings&) = delete;

    int error() const { return m_error; }
    const posix_spawnattr_t* attributes() const { return &m_attributes; }
    const posix_spawn_file_actions_t* actions() const { return &m_actions; }

private:
    void check(int result) {
        if (m_error == 0)
            m_error = result;
    }

    posix_spawnattr_t m_attributes{};
    posix_spawn_file_actions_t m_actions{};
    int m_error = 0;
};

void waitFor(int pidFd) {
    siginfo_t info{};
    while (::waitid(P_PIDFD, static_cast<id_t>(pidFd), &info, WEXITED) != 0 && errno == EINTR) {
    }
    ::close(pidFd);
}

/// Collects a child that nobody else watches.
void reapInBackground(int pidFd) {
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    try {
        std::thread(waitFor, pidFd).detach();
    } catch (const std::system_error& e) {
        logLine("PROCESS", LogOutput::eWarning,
                std::string("a child process stays uncollected: ") + e.what());
        ::close(pidFd);
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

void sayFailed(const std::string& title, const Path& executable, int error) {
    logLine("PROCESS", LogOutput::eError,
            "cannot start \"" + title + "\" (" + executable.getPathString() + "): " + std::strerror(error));
}

}  // namespace

bool Process::createProcess(const std::string& title, Path& executable,
                            const std::vector<std::string>& arguments) {
    const SpawnSettings settings;
    if (settings.error() != 0) {
        sayFailed(title, executable, settings.error());
        return false;
    }
    std::vector<char*> words{const_cast<char*>(title.c_str())};
    for (const std::string& argument : arguments)
        words.push_back(const_cast<char*>(argument.c_str()));
    words.push_back(nullptr);

    pid_t pid = -1;
    const int error = ::posix_spawn(&pid, executable.getPathString().c_str(), settings.actions(),
                                    settings.attributes(), words.data(), environ);
    if (error != 0) {
        sayFailed(title, executable, error);
        return false;
    }
    // Nobody but us collects this child, so the number is still its own.
    const int pidFd = static_cast<int>(::syscall(SYS_pidfd_open, pid, 0));
    if (pidFd < 0) {
        // A process that nobody can watch is worse than none.
        const int reason = errno;
        ::kill(pid, SIGKILL);
        while (::waitpid(pid, nullptr, 0) < 0 && errno == EINTR) {
        }
        sayFailed(title, executable, reason);
        return false;
    }
    if (Observer* pObserver = s_pObserver.load())
        pObserver->processStarted({pid, pidFd, title, arguments});
    else
        reapInBackground(pidFd);
    return true;
}

void Process::setObserver(Observer* pObserver) {
    s_pObserver = pObserver;
}

}  // namespace sal
