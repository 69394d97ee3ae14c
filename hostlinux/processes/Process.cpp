#include "sal/Process.h"

#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>

#include "ErrorPipe.h"
#include "LogLine.h"
#include "MarkedEnvironment.h"
#include "ProcessObserver.h"
#include "QueueMaker.h"
#include "SpawnSettings.h"
#include "ThreadName.h"
#include "UniqueFd.h"
#include "sal/LogOutput.h"

namespace sal {
namespace {

void waitFor(const base::UniqueFd& process) {
    base::nameThread("reap child");
    siginfo_t info{};
    while (::waitid(P_PIDFD, static_cast<id_t>(process.get()), &info, WEXITED) != 0 && errno == EINTR) {
    }
}

/// Collects a child for which there is no observer.
void reapInBackground(base::UniqueFd process) {
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    try {
        std::thread(waitFor, std::move(process)).detach();
    } catch (const std::system_error& e) {
        logLine("PROCESS", LogOutput::eWarning,
                std::string("a child process stays uncollected: ") + e.what());
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

void sayFailed(const std::string& title, const Path& executable, const std::vector<std::string>& arguments,
               int error) {
    const std::string reason = std::strerror(error);
    logLine("PROCESS", LogOutput::eError,
            "cannot start \"" + title + "\" (" + executable.getPathString() + "): " + reason);
    ProcessObserver::tellFailed(arguments, reason);
}

/// A child's standard error, where the observer captures it.
struct CapturedErrors {
    base::UniqueFd reader;  ///< none where the child gets that of this process
    base::UniqueFd writer;

    static CapturedErrors make(const std::string& title) {
        std::array<int, 2> ends{};
        if (!ProcessObserver::capturesErrors())
            return {};
        CapturedErrors errors;
        if (::pipe2(ends.data(), O_CLOEXEC) == 0) {
            errors.reader = base::UniqueFd(ends[0]);
            const base::UniqueFd writer(ends[1]);
            // The child waits for room in it; this process never waits.
            if (::fcntl(errors.reader.get(), F_SETFL, O_NONBLOCK) == 0)
                errors.writer =
                    base::UniqueFd(::fcntl(writer.get(), F_DUPFD_CLOEXEC, SpawnSettings::s_handedOver + 1));
        }
        if (errors.writer)
            return errors;
        logLine("PROCESS", LogOutput::eWarning,
                "\"" + title + "\" gets the standard error of this process: " + std::strerror(errno));
        return {};
    }
};

/// What is set in a child's environment: which of the queues of this process it may open (a process that has
/// made none hands on what it was handed itself), what its standard error is, and what the observer wants.
std::vector<std::string> variablesFor(const CapturedErrors& errors,
                                      const std::vector<std::string>& arguments) {
    std::vector<std::string> variables = ProcessObserver::variables(arguments);
    if (const auto mark = QueueMaker::forChild())
        variables.push_back(std::string(QueueMaker::s_variable) + "=" + *mark);
    if (const std::string variable = ErrorPipe::variableFor(errors.writer.get()); !variable.empty())
        variables.push_back(variable);
    return variables;
}

}  // namespace

bool Process::createProcess(const std::string& title, Path& executable,
                            const std::vector<std::string>& arguments) {
    SpawnSettings settings;
    std::vector<char*> words{const_cast<char*>(title.c_str())};
    for (const std::string& argument : arguments)
        words.push_back(const_cast<char*>(argument.c_str()));
    words.push_back(nullptr);

    CapturedErrors errors = CapturedErrors::make(title);
    if (errors.writer)
        settings.replaceErrors(errors.writer.get(), ProcessObserver::formerErrors());
    const MarkedEnvironment environment(variablesFor(errors, arguments));
    pid_t pid = -1;
    const int error =
        settings.spawn(pid, executable.getPathString().c_str(), words.data(), environment.get());
    if (error != 0) {
        sayFailed(title, executable, arguments, error);
        return false;
    }
    // Unless a driver has it collected, the number is still its own.
    const int pidFd = static_cast<int>(::syscall(SYS_pidfd_open, pid, 0));
    if (pidFd < 0) {
        const int reason = errno;
        // Gone already, and collected by another thread of this process: the number may be another's by now.
        if (reason == ESRCH) {
            logLine("PROCESS", LogOutput::eError,
                    "\"" + title + "\" (" + executable.getPathString() +
                        ") ended as soon as it was started; how is not known");
            ProcessObserver::tellFailed(arguments, "it ended at once, how is not known");
            return false;
        }
        // A process whose end the host cannot see is worse than none.
        ::kill(pid, SIGKILL);
        while (::waitpid(pid, nullptr, 0) < 0 && errno == EINTR) {
        }
        sayFailed(title, executable, arguments, reason);
        return false;
    }
    errors.writer.reset();
    if (!ProcessObserver::tell({pid, pidFd, title, arguments, environment.mark(), errors.reader.get()}))
        reapInBackground(base::UniqueFd(pidFd));
    else
        static_cast<void>(errors.reader.release());
    return true;
}

void Process::Observer::startFailed(const std::vector<std::string>& /*arguments*/,
                                    const std::string& /*reason*/) {}

std::vector<std::string> Process::Observer::variables(const std::vector<std::string>& /*arguments*/) {
    return {};
}

void Process::Observer::awaitStart(int /*pid*/, unsigned int seconds) {
    std::this_thread::sleep_for(std::chrono::seconds(seconds));
}

void Process::setObserver(Observer* pObserver) {
    ProcessObserver::set(pObserver);
}

}  // namespace sal
