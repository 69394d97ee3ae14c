#include "ProcessSupervisor.h"

#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <utility>

#include "HostLog.h"

namespace {

constexpr const char* s_inQueueSuffix = "_INQ";
constexpr std::chrono::milliseconds s_checkInterval{50};

void sendSignal(int pidFd, int signal) {
    // The process may be gone already; then there is nothing to end.
    static_cast<void>(::syscall(SYS_pidfd_send_signal, pidFd, signal, nullptr, 0u));
}

std::string causeOf(const siginfo_t& info) {
    if (info.si_code == CLD_EXITED)
        return "exit code " + std::to_string(info.si_status);
    return "signal " + std::to_string(info.si_status) + " (" + ::strsignal(info.si_status) + ")";
}

/// The driver that a full queue belongs to; empty for a queue that drivers send on.
std::string receivingDriver(const std::string& queueName) {
    if (!queueName.ends_with(s_inQueueSuffix))
        return {};
    return queueName.substr(0, queueName.size() - std::strlen(s_inQueueSuffix));
}

std::string seconds(std::chrono::milliseconds duration) {
    std::string text = std::to_string(duration.count() / 1000);
    if (const auto rest = duration.count() % 1000)
        text += "." + std::to_string(rest / 100);
    return text + " s";
}

}  // namespace

ProcessSupervisor::ProcessSupervisor(DriverRoster& roster, Settings settings, Environment environment)
    : m_roster(roster),
      m_settings(settings),
      m_environment(std::move(environment)),
      m_wakeFd(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

ProcessSupervisor::~ProcessSupervisor() {
    {
        const std::lock_guard lock(m_mutex);
        m_stopping = true;
    }
    wake();
    if (m_thread.joinable())
        m_thread.join();
    for (const Watched& process : m_processes)
        ::close(process.pidFd);
    ::close(m_wakeFd);
}

void ProcessSupervisor::start() {
    m_thread = std::thread([this] { run(); });
}

void ProcessSupervisor::wake() {
    const std::uint64_t one = 1;
    static_cast<void>(!::write(m_wakeFd, &one, sizeof one));
}

void ProcessSupervisor::processStarted(const sal::Process::Started& process) {
    // The driver ID stands behind the module's path.
    const std::string driverID = process.arguments.size() > 1 ? process.arguments[1] : process.title;
    m_roster.processStarted(driverID, process.pid);
    {
        const std::lock_guard lock(m_mutex);
        m_processes.push_back({driverID, process.pid, process.pidFd, Clock::now(), std::nullopt, false});
    }
    wake();
}

void ProcessSupervisor::beginShutdown(int exitCode) {
    {
        const std::lock_guard lock(m_mutex);
        if (m_shutdownBegan)
            return;
        m_shutdownBegan = Clock::now();
        m_exitCode = exitCode;
    }
    wake();
}

void ProcessSupervisor::endProcesses() {
    std::unique_lock lock(m_mutex);
    m_endProcessesBegan = Clock::now();
    wake();
    m_allEnded.wait(lock, [this] { return m_processes.empty(); });
}

bool ProcessSupervisor::isBusy() {
    {
        const std::lock_guard lock(m_mutex);
        const bool isEnding = std::any_of(m_processes.begin(), m_processes.end(),
                                          [](const Watched& process) { return process.terminated; });
        if (m_shutdownBegan || isEnding)
            return true;
    }
    return m_environment.activity().busy;
}

void ProcessSupervisor::run() {
    pthread_setname_np(pthread_self(), "supervisor");
    for (;;) {
        std::vector<pollfd> watched{{m_wakeFd, POLLIN, 0}};
        {
            const std::lock_guard lock(m_mutex);
            if (m_stopping)
                return;
            for (const Watched& process : m_processes)
                watched.push_back({process.pidFd, POLLIN, 0});
        }
        const int timeout = isBusy() ? static_cast<int>(s_checkInterval.count()) : -1;
        if (::poll(watched.data(), watched.size(), timeout) > 0 && watched.front().revents) {
            std::uint64_t count = 0;
            static_cast<void>(!::read(m_wakeFd, &count, sizeof count));
        }
        reap();
        check();
    }
}

void ProcessSupervisor::reap() {
    std::vector<std::pair<Watched, siginfo_t>> endedNow;
    {
        const std::lock_guard lock(m_mutex);
        for (auto process = m_processes.begin(); process != m_processes.end();) {
            siginfo_t info{};
            const int result = ::waitid(P_PIDFD, static_cast<id_t>(process->pidFd), &info, WEXITED | WNOHANG);
            if (result == 0 && info.si_pid == 0) {
                ++process;
                continue;
            }
            endedNow.emplace_back(*process, info);
            ::close(process->pidFd);
            process = m_processes.erase(process);
        }
    }
    for (const auto& [process, info] : endedNow)
        ended(process, causeOf(info), info.si_code == CLD_EXITED && info.si_status == 0);
    const std::lock_guard lock(m_mutex);
    if (m_processes.empty())
        m_allEnded.notify_all();
}

void ProcessSupervisor::ended(const Watched& process, const std::string& cause, bool isOrderly) {
    const auto staleValues = m_roster.processEnded(process.driverID, process.pid, cause);
    if (staleValues)
        m_environment.receiverGone(process.driverID + s_inQueueSuffix);

    const CommandThread::Activity activity = m_environment.activity();
    bool isShutdown = false;
    bool isExpected = activity.busy && activity.driverID == process.driverID;
    {
        const std::lock_guard lock(m_mutex);
        isShutdown = m_shutdownBegan.has_value();
    }
    isExpected = process.terminated || ((isExpected || isShutdown) && isOrderly);
    auto& line = hostLog(isExpected ? sal::LogOutput::eInfo : sal::LogOutput::eError);
    line << process.driverID << ": process " << process.pid << " ended" << (isExpected ? "" : " unexpectedly")
         << ": " << cause;
    if (!isShutdown && staleValues && *staleValues > 0)
        line << "; " << *staleValues << (*staleValues == 1 ? " value is" : " values are") << " stale";
    line << std::endl;
}

void ProcessSupervisor::check() {
    const auto now = Clock::now();
    const CommandThread::Activity activity = m_environment.activity();
    if (activity.busy) {
        checkCommand(activity, now);
        checkCall(now);
    }
    checkShutdown(activity, now);

    const std::lock_guard lock(m_mutex);
    for (Watched& process : m_processes) {
        if (!process.terminated || process.isKilled || now - *process.terminated < m_settings.killDelay)
            continue;
        process.isKilled = true;
        hostLog(sal::LogOutput::eWarning) << process.driverID << ": process " << process.pid
                                          << " did not heed SIGTERM and is killed" << std::endl;
        sendSignal(process.pidFd, SIGKILL);
    }
}

void ProcessSupervisor::checkCommand(const CommandThread::Activity& activity, Clock::time_point now) {
    if (now - activity.since < m_settings.stopTimeout)
        return;
    const auto limit = static_cast<unsigned int>(m_settings.stopTimeout.count());
    std::string stuckDriver;
    for (const auto& queue : m_environment.queues()) {
        if (queue.waitingForMs >= limit)
            stuckDriver = receivingDriver(queue.name);
        if (!stuckDriver.empty())
            break;
    }

    const std::lock_guard lock(m_mutex);
    bool isFound = false;
    for (Watched& process : m_processes) {
        // A process that the command itself has started is not the one that it waits for.
        if (!activity.driverID.empty() && process.driverID == activity.driverID &&
            process.started < activity.since)
            terminate(process, "has not ended " + seconds(m_settings.stopTimeout) + " after it was to stop");
        if (!stuckDriver.empty() && process.driverID == stuckDriver) {
            isFound = true;
            terminate(process, "has not taken a message for " + seconds(m_settings.stopTimeout) +
                                   " and holds up \"" + activity.what + "\"");
        }
    }
    if (!stuckDriver.empty() && !isFound && !m_roster.hasProcess(stuckDriver) &&
        m_reportedQueue != stuckDriver) {
        hostLog(sal::LogOutput::eWarning)
            << stuckDriver << ": its queue is full and holds up \"" << activity.what
            << "\"; the host did not start its process" << std::endl;
        m_reportedQueue = stuckDriver;
    }
}

void ProcessSupervisor::checkCall(Clock::time_point now) {
    const auto call = m_roster.oldestCall();
    if (!call || now - call->since < m_settings.stopTimeout || m_reportedCall == call->since)
        return;
    m_reportedCall = call->since;
    hostLog(sal::LogOutput::eWarning)
        << call->driverID << ": " << call->operation << "() has not come back for "
        << seconds(m_settings.stopTimeout)
        << "; the driver runs in the host's process and cannot be ended alone" << std::endl;
}

void ProcessSupervisor::checkShutdown(const CommandThread::Activity& activity, Clock::time_point now) {
    int exitCode = 0;
    {
        const std::lock_guard lock(m_mutex);
        if (!m_shutdownBegan)
            return;
        const auto limit = *m_shutdownBegan + m_settings.shutdownLimit;
        if (m_endProcessesBegan) {
            // Early enough that those that do not heed SIGTERM are killed within the limit.
            const auto lastMoment = limit - m_settings.killDelay - 2 * s_checkInterval;
            const auto deadline = std::min(*m_endProcessesBegan + m_settings.stopTimeout, lastMoment);
            if (now >= deadline) {
                for (Watched& process : m_processes)
                    terminate(process, "still runs and holds up the shutdown");
            }
        }
        if (now < limit)
            return;
        for (const Watched& process : m_processes) {
            if (process.terminated)
                sendSignal(process.pidFd, SIGKILL);
        }
        exitCode = m_exitCode;
    }
    hostLog(sal::LogOutput::eError) << whoHoldsUp(activity) << " holds up the shutdown for "
                                    << seconds(m_settings.shutdownLimit) << "; the host ends without it"
                                    << std::endl;
    m_environment.exitNow(exitCode);
}

void ProcessSupervisor::terminate(Watched& process, const std::string& reason) {
    if (process.terminated)
        return;
    process.terminated = Clock::now();
    hostLog(sal::LogOutput::eWarning)
        << process.driverID << ": process " << process.pid << " " << reason << "; it is ended" << std::endl;
    sendSignal(process.pidFd, SIGTERM);
}

std::string ProcessSupervisor::whoHoldsUp(const CommandThread::Activity& activity) const {
    if (const auto call = m_roster.oldestCall())
        return call->driverID + ": " + call->operation + "()";
    for (const auto& queue : m_environment.queues()) {
        const std::string driverID = receivingDriver(queue.name);
        if (queue.waitingForMs > 0 && !driverID.empty())
            return driverID + ": its full queue";
    }
    const std::lock_guard lock(m_mutex);
    if (m_endProcessesBegan && !m_processes.empty())
        return m_processes.front().driverID + ": process " + std::to_string(m_processes.front().pid);
    if (activity.busy && activity.what != "shutdown")
        return "\"" + activity.what + "\"";
    return "something unknown";
}
