#include "ProcessSupervisor.h"

#include <poll.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>
#include <ctime>
#include <sstream>
#include <utility>

#include "HostLog.h"
#include "Needed.h"
#include "ProcessReading.h"
#include "QueueNames.h"
#include "ThreadName.h"

namespace {

/// What mfddllwrap ends with when there is no queue for it.
constexpr int s_noQueueCode = 1;
constexpr std::chrono::milliseconds s_checkInterval{50};
/// A process that is started again has come up in that time, or it is looked for less often.
constexpr std::chrono::seconds s_startTime{10};
constexpr std::chrono::milliseconds s_trafficInterval{900};
/// How long a process that has let go of its queues may take to end by itself.
constexpr std::chrono::milliseconds s_lossPatience{2000};
/// Refusals of a queue's name over this time are a wait for it and not a single try.
constexpr unsigned int s_queueWaitMs = 200;
/// What the last log lines may take at an end that is enforced.
constexpr std::chrono::milliseconds s_lastWords{350};

void sendSignal(int pidFd, int signal) {
    // The process may be gone already; then there is nothing to end.
    static_cast<void>(::syscall(SYS_pidfd_send_signal, pidFd, signal, nullptr, 0u));
}

std::string seconds(std::chrono::milliseconds duration) {
    std::string text = std::to_string(duration.count() / 1000);
    if (const auto rest = duration.count() % 1000)
        text += "." + std::to_string(rest / 100);
    return text + " s";
}

/// Whole seconds, but for a short time.
std::string roundSeconds(std::chrono::milliseconds duration) {
    const auto tenths = std::llround(static_cast<double>(duration.count()) / 100);
    return tenths < 20 ? seconds(std::chrono::milliseconds(tenths * 100))
                       : std::to_string((tenths + 5) / 10) + " s";
}

/// Time that goes on while the machine sleeps.
std::chrono::nanoseconds bootTime() {
    timespec now{};
    ::clock_gettime(CLOCK_BOOTTIME, &now);
    return std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec);
}

/// Often enough to see a hang in time, and each second for the traffic.
std::chrono::milliseconds sampleInterval(std::chrono::milliseconds hangTimeout) {
    if (hangTimeout.count() <= 0)
        return std::chrono::seconds(1);
    return std::clamp<std::chrono::milliseconds>(hangTimeout / 8, std::chrono::milliseconds(20),
                                                 std::chrono::seconds(1));
}

}  // namespace

ProcessSupervisor::ProcessSupervisor(DriverRoster& roster, Settings settings, Environment environment)
    : m_roster(roster),
      m_settings(std::move(settings)),
      m_environment(std::move(environment)),
      m_wakeup("the supervision"),
      m_sampleInterval(sampleInterval(m_settings.hangTimeout)),
      m_restarts(m_settings.restart),
      m_hangs(m_settings.hangTimeout),
      m_losses(s_lossPatience) {}

ProcessSupervisor::~ProcessSupervisor() {
    {
        const std::lock_guard lock(m_mutex);
        m_stopping = true;
    }
    wake();
    if (m_thread.joinable())
        m_thread.join();
    for (Watched& process : m_processes)
        m_endedFds.push_back(process.pidFd);
    // A dump wakes this object when it is done.
    m_processes.clear();
    m_lateDumps.clear();
    for (const int fd : m_endedFds)
        ::close(fd);
}

void ProcessSupervisor::start() {
    m_thread = base::neededThread("the supervision", [this] { run(); });
}

void ProcessSupervisor::wake() {
    m_wakeup.wake();
}

void ProcessSupervisor::processStarted(const sal::Process::Started& process) {
    // The driver ID follows the module's path.
    const std::string driverID = process.arguments.size() > 1 ? process.arguments[1] : process.title;
    m_roster.processStarted(driverID, process.pid);
    m_families.add(driverID, process);
    {
        const std::lock_guard lock(m_mutex);
        m_saidCauses.erase(driverID);
        for (Watched& former : m_processes) {
            if (former.driverID == driverID && !former.replaced)
                former.replaced = Clock::now();
        }
        m_processes.push_back(
            {driverID, process.pid, process.pidFd, Clock::now(), std::nullopt, false, false, {}, nullptr});
        m_processes.back().isRestart = m_restarting.erase(driverID) > 0;
    }
    wake();
}

void ProcessSupervisor::awaitStart(int pid, unsigned int seconds) {
    if (!m_settings.waitsUntilAttached) {
        Observer::awaitStart(pid, seconds);
        return;
    }
    std::vector<std::string> queues;
    {
        const std::lock_guard lock(m_mutex);
        for (const Watched& process : m_processes) {
            if (!process.replaced)
                queues.push_back(protocol::inputQueue(process.driverID));
            if (process.pid == pid)
                m_awaited = process.driverID;
        }
    }
    const std::size_t most = 2 * std::max(std::thread::hardware_concurrency(), 1U) - 1;
    const bool isDone = m_environment.waitForReaders(
        queues, most, static_cast<int>(std::chrono::milliseconds(std::chrono::seconds(seconds)).count()));
    noteAttached();
    const std::lock_guard lock(m_mutex);
    m_awaited.clear();
    if (isDone)
        return;
    for (Watched& process : m_processes) {
        if (process.hasAttached || process.replaced || process.isSaidLate)
            continue;
        process.isSaidLate = true;
        hostLog(sal::LogOutput::eWarning)
            << process.driverID << ": process " << process.pid << " has not come up within " << seconds
            << " s; the start goes on without it" << std::endl;
    }
}

void ProcessSupervisor::beginShutdown(int exitCode) {
    noteAttached();
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

void ProcessSupervisor::refresh(const std::string& driverID) {
    reap(driverID);
    if (m_environment.refreshOthers)
        m_environment.refreshOthers(driverID);
}

void ProcessSupervisor::beginReload(const std::string& driverID) {
    noteAttached();
    {
        const std::lock_guard lock(m_mutex);
        m_restarting.erase(driverID);
        m_restarts.reset(driverID);
        m_endedSince.erase(driverID);
        m_saidCauses.erase(driverID);
    }
    m_roster.setNextTry(driverID, std::nullopt);
}

bool ProcessSupervisor::beginRestart(const std::string& driverID) {
    {
        const std::lock_guard lock(m_mutex);
        if (m_shutdownBegan || !m_restarts.begin(driverID))
            return false;
        m_endedSince.erase(driverID);
        m_restarting.insert(driverID);
    }
    m_roster.setNextTry(driverID, std::nullopt);
    return true;
}

void ProcessSupervisor::endStart(const std::string& driverID, const std::string& reason) {
    // A process whose end another thread is just telling of is neither among the living nor among the ended.
    const std::lock_guard reapLock(m_reapMutex);
    reapLocked(driverID);
    {
        const std::lock_guard lock(m_mutex);
        m_restarting.erase(driverID);
        const bool isAlive = std::any_of(m_processes.begin(), m_processes.end(), [&](const Watched& process) {
            return process.driverID == driverID && !process.terminated;
        });
        // For one that came up and has ended since, all is said.
        if (isAlive || m_shutdownBegan || m_endedSince.contains(driverID))
            return;
    }
    const std::string cause = reason.empty() ? "never started" : reason;
    m_roster.notStarted(driverID, cause);
    const std::string plan = planRestart(driverID, {}, reason.empty());
    {
        // One line tells it for all tries that fail alike.
        const std::lock_guard lock(m_mutex);
        std::string& said = m_saidCauses[driverID];
        if (said == cause && m_restarts.isWaiting(driverID))
            return;
        said = cause;
    }
    hostLog(sal::LogOutput::eError) << driverID << ": no process runs: " << cause << plan << std::endl;
}

void ProcessSupervisor::giveUp(const std::string& driverID, const std::string& reason) {
    {
        const std::lock_guard lock(m_mutex);
        m_restarts.giveUp(driverID);
        m_restarting.erase(driverID);
    }
    m_roster.setNextTry(driverID, std::nullopt);
    hostLog(sal::LogOutput::eError) << driverID << ": is not started again: " << reason << std::endl;
}

bool ProcessSupervisor::isBusy() {
    {
        const std::lock_guard lock(m_mutex);
        const bool isEnding = std::any_of(m_processes.begin(), m_processes.end(), [](const Watched& process) {
            return process.terminated && !process.isKilled;
        });
        if (m_shutdownBegan || isEnding)
            return true;
    }
    return m_environment.activity().busy;
}

void ProcessSupervisor::run() {
    base::nameThread("supervisor");
    for (;;) {
        std::vector<pollfd> watched{{m_wakeup.fd(), POLLIN, 0}};
        {
            const std::lock_guard lock(m_mutex);
            if (m_stopping)
                return;
            for (const int fd : m_endedFds)
                ::close(fd);
            m_endedFds.clear();
            for (const Watched& process : m_processes)
                watched.push_back({process.pidFd, POLLIN, 0});
        }
        if (::poll(watched.data(), watched.size(), pollTimeout()) > 0 && watched.front().revents)
            m_wakeup.take();
        try {
            reap({});
            check();
        } catch (const std::exception& error) {
            // Memory, that is: the next round may have it again.
            hostLog(sal::LogOutput::eCritical) << "supervision is held up: " << error.what() << std::endl;
            std::this_thread::sleep_for(s_checkInterval);
        }
    }
}

/// Until something is to be looked at that nothing wakes the thread for.
int ProcessSupervisor::pollTimeout() {
    if (isBusy())
        return static_cast<int>(s_checkInterval.count());
    std::optional<Clock::time_point> next;
    {
        const std::lock_guard lock(m_mutex);
        next = m_restarts.nextDue();
        if (!m_processes.empty() || m_environment.refreshOthers)
            next = next ? std::min(*next, m_nextSample) : m_nextSample;
        const auto now = Clock::now();
        const bool isAwaited =
            std::any_of(m_processes.begin(), m_processes.end(), [&](const Watched& process) {
                return process.isRestart && !process.hasAttached && !process.replaced &&
                       now - process.started < s_startTime;
            });
        if (isAwaited)
            next = std::min(*next, now + s_checkInterval);
    }
    if (!next)
        return -1;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(*next - Clock::now()).count();
    return static_cast<int>(std::clamp<long long>(left, 0, INT_MAX));
}

/// Until a process is collected its number is its own, and with it the session that it has left behind.
void ProcessSupervisor::endLeftBehind(const std::string& driverID) {
    std::vector<int> ended;
    {
        const std::lock_guard lock(m_mutex);
        for (Watched& process : m_processes) {
            pollfd end{process.pidFd, POLLIN, 0};
            if (process.isAlone || (!driverID.empty() && process.driverID != driverID) ||
                ::poll(&end, 1, 0) <= 0)
                continue;
            process.isAlone = true;
            ended.push_back(process.pid);
        }
    }
    for (const int pid : ended)
        m_families.end(pid);
}

void ProcessSupervisor::reap(const std::string& driverID) {
    const std::lock_guard reapLock(m_reapMutex);
    reapLocked(driverID);
}

void ProcessSupervisor::reapLocked(const std::string& driverID) {
    endLeftBehind(driverID);
    std::list<Watched> endedNow;
    std::list<ProcessEnd> ends;
    {
        const std::lock_guard lock(m_mutex);
        for (auto process = m_processes.begin(); process != m_processes.end();) {
            const auto current = process++;
            if (!current->isAlone || (!driverID.empty() && current->driverID != driverID))
                continue;
            const auto end = ProcessEnd::collect(current->pidFd);
            if (!end)
                continue;
            m_endedFds.push_back(current->pidFd);
            // Not waited for here, where any thread may be.
            if (current->pStacks)
                m_lateDumps.push_back(std::move(current->pStacks));
            ends.push_back(*end);
            endedNow.splice(endedNow.end(), m_processes, current);
        }
    }
    if (endedNow.empty())
        return;
    auto end = ends.begin();
    for (const Watched& process : endedNow)
        ended(process, *end++);
    const std::lock_guard lock(m_mutex);
    if (m_processes.empty())
        m_allEnded.notify_all();
    wake();
}

/// Which processes have come up by now. Before the host lets go of a queue this is the last look at it.
void ProcessSupervisor::noteAttached() {
    const std::lock_guard lock(m_mutex);
    for (Watched& process : m_processes) {
        if (process.hasAttached || process.replaced ||
            !m_environment.hasReader(protocol::inputQueue(process.driverID)))
            continue;
        process.hasAttached = true;
        if (process.isRestart)
            hostLog(sal::LogOutput::eInfo) << process.driverID << ": is started again" << std::endl;
    }
}

void ProcessSupervisor::ended(const Watched& process, const ProcessEnd& end) {
    const std::string cause = process.hang.empty() ? end.cause() : process.hang + ", " + end.cause();
    const auto staleValues = m_roster.processEnded(process.driverID, process.pid, cause);
    if (staleValues)
        m_environment.receiverGone(protocol::inputQueue(process.driverID));

    const CommandActivity activity = m_environment.activity();
    bool isShutdown = false;
    {
        const std::lock_guard lock(m_mutex);
        isShutdown = m_shutdownBegan.has_value();
    }
    // The process that a reload itself has started was not asked to end.
    const bool isReloaded =
        activity.busy && activity.driverID == process.driverID && process.started < activity.since;
    // So was one that a newer process has replaced, even if it comes to its end after the reload.
    const bool isReplaced = !staleValues;
    // One that comes up only when its end was asked for finds no queue of its own any more.
    const bool isOrderly =
        end.isOrderly() || ((isReplaced || !process.hasAttached) && end.hasExitCode(s_noQueueCode));
    const bool isExpected = process.terminated || ((isReloaded || isShutdown || isReplaced) && isOrderly);
    std::string plan;
    if (staleValues && !isShutdown && !isReloaded) {
        {
            const std::lock_guard lock(m_mutex);
            m_endedSince.insert(process.driverID);
        }
        plan = planRestart(process.driverID, Clock::now() - process.started);
    }
    auto& line = hostLog(isExpected ? sal::LogOutput::eInfo : sal::LogOutput::eError);
    line << process.driverID << ": process " << process.pid << " ended" << (isExpected ? "" : " unexpectedly")
         << ": " << cause;
    if (isReplaced)
        line << "; a newer process had replaced it";
    if (!end.isKnown())
        line
            << " (something in the host's process ignores SIGCHLD or collects children that are not its own)";
    if (!isShutdown && staleValues && *staleValues > 0)
        line << "; " << *staleValues << (*staleValues == 1 ? " value is" : " values are") << " stale";
    line << plan << std::endl;
}

/// What comes next, for the end of a line; empty where nothing is ever started again.
std::string ProcessSupervisor::planRestart(const std::string& driverID, Clock::duration ran, bool isTried) {
    if (!m_environment.restart)
        return {};
    const auto now = Clock::now();
    std::optional<RestartPlan::Duration> delay;
    {
        const std::lock_guard lock(m_mutex);
        delay = isTried ? m_restarts.ended(driverID,
                                           std::chrono::duration_cast<std::chrono::milliseconds>(ran), now)
                        : m_restarts.putOff(driverID, now);
    }
    m_roster.setNextTry(driverID, delay ? std::optional(now + *delay) : std::nullopt);
    wake();
    if (delay == RestartPlan::Duration::zero())
        return "; it is started again at once";
    if (delay)
        return "; it is started again in " + roundSeconds(*delay);
    return "; it is not started again: " + std::to_string(*m_settings.restart.limit) +
           (*m_settings.restart.limit == 1 ? " restart" : " restarts") + " in a row are the limit";
}

void ProcessSupervisor::check() {
    const auto now = Clock::now();
    const CommandActivity activity = m_environment.activity();
    if (activity.busy) {
        checkCommand(activity, now);
        checkQueueWait(activity, now);
        checkCall(now);
    } else {
        m_retiredQueues.clear();
    }
    checkShutdown(activity, now);
    noteAttached();
    checkStacks();
    checkRestarts(now);
    if (now >= m_nextSample) {
        sample(now);
        m_nextSample = now + m_sampleInterval;
    }

    const std::lock_guard lock(m_mutex);
    for (Watched& process : m_processes) {
        // It has no queue any more, and no command waits for it.
        if (process.replaced && now - *process.replaced >= m_settings.replacedLimit)
            terminate(process, "still runs " + seconds(m_settings.replacedLimit) + " after it was replaced");
        if (!process.terminated || process.isKilled || now - *process.terminated < m_settings.killDelay)
            continue;
        process.isKilled = true;
        hostLog(sal::LogOutput::eWarning) << process.driverID << ": process " << process.pid
                                          << " did not heed SIGTERM and is killed" << std::endl;
        sendSignal(process.pidFd, SIGKILL);
    }
}

void ProcessSupervisor::checkCommand(const CommandActivity& activity, Clock::time_point now) {
    if (now - activity.since < m_settings.stopTimeout)
        return;
    const auto limit = static_cast<unsigned int>(m_settings.stopTimeout.count());
    std::string stuckDriver;
    bool isLocked = false;
    for (const auto& queue : m_environment.queues()) {
        if (queue.waitingForMs < limit)
            continue;
        stuckDriver = protocol::receiverOf(queue.name);
        isLocked = queue.lockedForMs >= limit;
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
        if (!stuckDriver.empty() && process.driverID == stuckDriver && !process.replaced) {
            isFound = true;
            terminate(process,
                      (isLocked ? "cannot be sent to, since a sender has not left its input queue for "
                                : "has not taken a message for ") +
                          seconds(m_settings.stopTimeout) + " and holds up \"" + activity.what + "\"");
        }
    }
    if (!stuckDriver.empty() && !isFound && !m_roster.hasProcess(stuckDriver) &&
        m_reportedQueue != stuckDriver) {
        hostLog(sal::LogOutput::eWarning)
            << stuckDriver << ": its queue is " << (isLocked ? "locked by a sender" : "full")
            << " and holds up \"" << activity.what << "\"; the host did not start its process" << std::endl;
        m_reportedQueue = stuckDriver;
    }
}

/// A driver that is loaded again waits for its former queues to go, however long that takes. Once its process
/// is gone the wait has no end of its own: another process has the locks, or no queue can be made there.
void ProcessSupervisor::checkQueueWait(const CommandActivity& activity, Clock::time_point now) {
    if (!m_environment.refusedQueues || activity.driverID.empty())
        return;
    {
        const std::lock_guard lock(m_mutex);
        const bool isLive = std::any_of(m_processes.begin(), m_processes.end(), [&](const Watched& process) {
            return process.driverID == activity.driverID && process.started < activity.since;
        });
        // In a shutdown the driver is not started again.
        if (isLive || (now - activity.since < m_settings.stopTimeout && !m_shutdownBegan))
            return;
    }
    for (const auto& refusal : m_environment.refusedQueues()) {
        if (refusal.forMs < s_queueWaitMs || protocol::ownerOf(refusal.name) != activity.driverID)
            continue;
        const bool isFree = m_environment.retireQueue(refusal.name);
        m_environment.passQueue(refusal.name);
        // Where it is not free, the start fails and says why.
        if (isFree && m_retiredQueues.insert(refusal.name).second)
            hostLog(sal::LogOutput::eWarning)
                << activity.driverID << ": queue " << refusal.name << " does not become free: " << refusal.why
                << "; its name is taken away" << std::endl;
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

void ProcessSupervisor::checkShutdown(const CommandActivity& activity, Clock::time_point now) {
    int exitCode = 0;
    std::vector<int> killed;
    {
        const std::lock_guard lock(m_mutex);
        if (!m_shutdownBegan)
            return;
        const auto limit = *m_shutdownBegan + m_settings.shutdownLimit - s_lastWords;
        // Early enough that those that do not heed SIGTERM are killed within the limit.
        const auto lastMoment = limit - m_settings.killDelay - 2 * s_checkInterval;
        if (m_endProcessesBegan) {
            const auto deadline = std::min(*m_endProcessesBegan + m_settings.stopTimeout, lastMoment);
            if (now >= deadline) {
                for (Watched& process : m_processes)
                    terminate(process, "still runs and holds up the shutdown");
            }
        } else if (now >= std::min(*m_shutdownBegan + m_settings.stopTimeout,
                                   lastMoment - m_settings.killDelay - 2 * s_checkInterval)) {
            endFullQueues();
        }
        if (now < limit)
            return;
        for (const Watched& process : m_processes) {
            if (!process.terminated)
                continue;
            sendSignal(process.pidFd, SIGKILL);
            killed.push_back(process.pid);
        }
        exitCode = m_exitCode;
    }
    for (const int pid : killed)
        m_families.end(pid);
    hostLog(sal::LogOutput::eError) << whoHoldsUp(activity) << " holds up the shutdown for "
                                    << seconds(m_settings.shutdownLimit) << "; the host ends without it"
                                    << std::endl;
    m_environment.exitNow(exitCode);
}

void ProcessSupervisor::checkRestarts(Clock::time_point now) {
    std::vector<std::string> due;
    {
        const std::lock_guard lock(m_mutex);
        if (!m_shutdownBegan)
            due = m_restarts.takeDue(now);
    }
    for (const std::string& driverID : due)
        m_environment.restart(driverID);
}

void ProcessSupervisor::sample(Clock::time_point now) {
    if (m_environment.refreshOthers)
        m_environment.refreshOthers({});
    m_families.look();
    Queues queues;
    for (auto& queue : m_environment.queues()) {
        std::string name = queue.name;
        queues.emplace(std::move(name), std::move(queue));
    }
    if (now - m_trafficMeasured >= s_trafficInterval)
        measureTraffic(queues, now);
    checkQueueLoss(queues, now);
    for (const HangDetector::Verdict& verdict : m_hangs.judge(samples(queues), bootTime()))
        hangs(verdict);
}

void ProcessSupervisor::measureTraffic(const Queues& queues, Clock::time_point now) {
    const double time = std::chrono::duration<double>(now - m_trafficMeasured).count();
    m_trafficMeasured = now;
    std::vector<std::string> driverIDs;
    {
        const std::lock_guard lock(m_mutex);
        for (const Watched& process : m_processes)
            driverIDs.push_back(process.driverID);
    }
    const auto messages = [&](const std::string& name) {
        const auto queue = queues.find(name);
        return queue == queues.end() ? 0 : queue->second.messages;
    };
    std::map<std::string, Traffic> traffic;
    for (const std::string& driverID : driverIDs) {
        const Traffic current{messages(protocol::inputQueue(driverID)),
                              messages(protocol::outputQueue(driverID))};
        traffic[driverID] = current;
        const auto before = m_traffic.find(driverID);
        // Counters that went back belong to new queues.
        if (before == m_traffic.end() || current.received < before->second.received ||
            current.sent < before->second.sent)
            continue;
        m_roster.setTraffic(driverID, static_cast<double>(current.received - before->second.received) / time,
                            static_cast<double>(current.sent - before->second.sent) / time);
    }
    m_traffic = std::move(traffic);
}

std::vector<HangDetector::Sample> ProcessSupervisor::samples(const Queues& queues) {
    std::vector<HangDetector::Sample> samples;
    const std::lock_guard lock(m_mutex);
    if (m_settings.hangTimeout.count() <= 0 || m_shutdownBegan)
        return samples;
    const bool isOneEnding = std::any_of(m_processes.begin(), m_processes.end(), [](const Watched& process) {
        return process.terminated || !process.hang.empty();
    });
    for (const Watched& process : m_processes) {
        const auto input = queues.find(protocol::inputQueue(process.driverID));
        // Of one that has let go of its queues that is told, and not that it takes no messages.
        if (process.terminated || !process.hang.empty() || m_losses.isLettingGo(process.pid) ||
            input == queues.end() || (input->second.depth == 0 && input->second.lockedForMs == 0))
            continue;
        const auto reading = ProcessReading::read(process.pid);
        if (!reading)
            continue;
        const auto output = queues.find(protocol::outputQueue(process.driverID));
        const bool waitsForHost = output != queues.end() && output->second.depth >= output->second.capacity;
        // What holds the host up may be the one that is being ended; its time begins when that is gone.
        if (waitsForHost && isOneEnding)
            continue;
        samples.push_back({.driverID = process.driverID,
                           .pid = process.pid,
                           .standing = input->second.depth,
                           .received = input->second.received,
                           .cpuTicks = reading->cpuTicks,
                           .isRunnable = reading->isRunnable,
                           .isTraced = reading->isTraced,
                           .waitsForHost = waitsForHost,
                           .holdsUpSender = input->second.waitingForMs >=
                                            static_cast<unsigned int>(m_settings.hangTimeout.count()),
                           .lockedFor = std::chrono::milliseconds(input->second.lockedForMs)});
    }
    return samples;
}

void ProcessSupervisor::hangs(const HangDetector::Verdict& verdict) {
    const auto stillFor = std::chrono::duration_cast<std::chrono::milliseconds>(verdict.stillFor);
    const std::string cause =
        (verdict.isLocked ? "input queue locked for " : "hung for ") + roundSeconds(stillFor);
    // A newer process of the driver may run by now.
    if (!m_roster.processHung(verdict.driverID, verdict.pid, cause))
        return;
    const std::lock_guard lock(m_mutex);
    for (Watched& process : m_processes) {
        if (process.pid != verdict.pid || !process.hang.empty())
            continue;
        process.hang = cause;
        auto& line = hostLog(sal::LogOutput::eError);
        line << process.driverID << ": process " << process.pid << " hangs: ";
        if (verdict.isLocked)
            line << "a sender has not left its input queue for " << roundSeconds(stillFor);
        else
            line << "it has taken none of " << verdict.standing
                 << (verdict.standing == 1 ? " message" : " messages") << " for " << roundSeconds(stillFor)
                 << (verdict.usedCpu ? ", though it computes" : " and does not compute");
        line << "; it is ended" << std::endl;
        try {
            process.pStacks =
                std::make_unique<StackDump>(process.pid, m_settings.stacksLimit, [this] { wake(); });
        } catch (const std::exception& error) {
            hostLog(sal::LogOutput::eWarning)
                << process.driverID << ": its stacks cannot be read: " << error.what() << std::endl;
            process.terminated = Clock::now();
            sendSignal(process.pidFd, SIGTERM);
        }
    }
}

/// The queues were looked at after that moment.
void ProcessSupervisor::checkQueueLoss(const Queues& queues, Clock::time_point looked) {
    const auto find = [&](const std::string& name) {
        const auto queue = queues.find(name);
        return queue == queues.end() ? nullptr : &queue->second;
    };
    const CommandActivity activity = m_environment.activity();
    std::vector<QueueLossDetector::Sample> samples;
    {
        const std::lock_guard lock(m_mutex);
        if (m_shutdownBegan)
            return;
        for (const Watched& process : m_processes) {
            // The queues of a driver that is being reloaded come and go, and may have been others.
            const bool isReloaded =
                (activity.busy && activity.driverID == process.driverID) || process.started >= looked;
            if (!process.terminated && process.hang.empty() && !isReloaded)
                samples.push_back({process.driverID, process.pid,
                                   find(protocol::inputQueue(process.driverID)),
                                   find(protocol::outputQueue(process.driverID))});
        }
    }
    for (const QueueLossDetector::Verdict& verdict : m_losses.judge(samples, bootTime()))
        lost(verdict);
}

void ProcessSupervisor::lost(const QueueLossDetector::Verdict& verdict) {
    const auto staleValues = m_roster.processHung(verdict.driverID, verdict.pid, verdict.what);
    if (!staleValues)
        return;
    const std::lock_guard lock(m_mutex);
    for (Watched& process : m_processes) {
        if (process.pid != verdict.pid)
            continue;
        process.hang = verdict.what;
        terminate(process, "cannot be reached any more: " + verdict.what);
    }
}

/// A process that hangs is ended when it is known where it hangs.
void ProcessSupervisor::checkStacks() {
    const std::lock_guard lock(m_mutex);
    std::erase_if(m_lateDumps, [](const auto& pDump) { return pDump->isDone(); });
    for (Watched& process : m_processes) {
        if (!process.pStacks || !process.pStacks->isDone())
            continue;
        std::istringstream lines(process.pStacks->text());
        for (std::string line; std::getline(lines, line);)
            hostLog(sal::LogOutput::eError) << "    " << line << std::endl;
        process.pStacks.reset();
        if (process.terminated)
            continue;
        process.terminated = Clock::now();
        sendSignal(process.pidFd, SIGTERM);
    }
}

/// All at once: the teardown comes to one after the other, and there is no time to wait for each.
void ProcessSupervisor::endFullQueues() {
    for (const auto& queue : m_environment.queues()) {
        const bool isLocked = queue.lockedForMs > 0;
        if (queue.depth < queue.capacity && !isLocked)
            continue;
        const std::string driverID = protocol::receiverOf(queue.name);
        for (Watched& process : m_processes) {
            if (process.driverID == driverID)
                terminate(process, isLocked
                                       ? "cannot be told to stop, since a sender does not leave its input "
                                         "queue, and holds up the shutdown"
                                       : "leaves its queue full and holds up the shutdown");
        }
    }
}

void ProcessSupervisor::terminate(Watched& process, const std::string& reason) {
    if (process.terminated)
        return;
    process.terminated = Clock::now();
    hostLog(sal::LogOutput::eWarning)
        << process.driverID << ": process " << process.pid << " " << reason << "; it is ended" << std::endl;
    sendSignal(process.pidFd, SIGTERM);
}

std::string ProcessSupervisor::whoHoldsUp(const CommandActivity& activity) const {
    if (const auto call = m_roster.oldestCall())
        return call->driverID + ": " + call->operation + "()";
    for (const auto& queue : m_environment.queues()) {
        const std::string driverID = protocol::receiverOf(queue.name);
        if (queue.waitingForMs > 0 && !driverID.empty())
            return driverID + (queue.lockedForMs > 0 ? ": its locked queue" : ": its full queue");
    }
    const std::lock_guard lock(m_mutex);
    if (!m_awaited.empty())
        return m_awaited + ": the start of its process";
    if (m_endProcessesBegan && !m_processes.empty())
        return m_processes.front().driverID + ": process " + std::to_string(m_processes.front().pid);
    if (activity.busy && activity.what != "shutdown")
        return "\"" + activity.what + "\"";
    return "something unknown";
}
