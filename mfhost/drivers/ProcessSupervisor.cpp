#include "ProcessSupervisor.h"

#include <poll.h>
#include <signal.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cmath>
#include <cstring>
#include <ctime>
#include <sstream>
#include <utility>

#include "HostLog.h"
#include "Needed.h"
#include "Printable.h"
#include "ProcessReading.h"
#include "QueueNames.h"
#include "ThreadName.h"

namespace {

/// What mfddllwrap ends with when there is no queue for it.
constexpr int s_noQueueCode = 1;
/// A process that is started again has come up in that time, or it is looked for less often.
constexpr std::chrono::seconds s_startTime{10};
/// Of the stack of a process that dies, in the log and in what its driver says last.
constexpr std::size_t s_crashLines = 32;
/// How long a process that has let go of its queues may take to end by itself.
constexpr std::chrono::milliseconds s_lossPatience{2000};
/// Refusals of a queue's name over this time are a wait for it and not a single try.
constexpr unsigned int s_queueWaitMs = 200;
/// How long a process waits for a debugger at the most.
constexpr std::chrono::seconds s_debuggerPatience{30};
/// The command thread's first task, which takes as long as the drivers need.
constexpr const char* s_startUp = "start-up";

std::string seconds(std::chrono::milliseconds duration) {
    std::string text = std::to_string(duration.count() / 1000);
    if (const auto rest = duration.count() % 1000)
        text += "." + std::to_string(rest / 100);
    return text + " s";
}

/// The driver ID follows the module's path.
std::optional<std::string> driverOf(const std::vector<std::string>& arguments) {
    return arguments.size() > 1 ? std::optional(arguments[1]) : std::nullopt;
}

/// Of what eu-stack says without a frame, the line that tells why: its first complaint.
std::string whyUnread(const std::vector<std::string>& lines) {
    const auto complaint = std::find_if(
        lines.begin(), lines.end(), [](const std::string& line) { return line.starts_with("eu-stack: "); });
    return complaint == lines.end() ? lines.back() : *complaint;
}

/// Whole seconds, but for a short time.
std::string roundSeconds(std::chrono::milliseconds duration) {
    const auto tenths = std::llround(static_cast<double>(duration.count()) / 100);
    return tenths < 20 ? seconds(std::chrono::milliseconds(tenths * 100))
                       : std::to_string((tenths + 5) / 10) + " s";
}

/// What comes next, for the end of a line; empty where nothing is ever started again.
std::string planText(const DriverTable::Next& next) {
    if (next.delay == RestartPlan::Duration::zero())
        return "; it is started again at once";
    if (next.delay)
        return "; it is started again in " + roundSeconds(*next.delay);
    if (!next.limit)
        return {};
    return "; it is not started again: " + std::to_string(*next.limit) +
           (*next.limit == 1 ? " restart" : " restarts") + " in a row are the limit";
}

/// Time that goes on while the machine sleeps.
std::chrono::nanoseconds bootTime() {
    timespec now{};
    ::clock_gettime(CLOCK_BOOTTIME, &now);
    return std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec);
}

/// "A: deinitialize()", "A: sendFID(MOVE)".
std::string callText(const DriverTable::Call& call) {
    return call.driverID + ": " + call.operation + (call.operation.ends_with(')') ? "" : "()");
}

/// Often enough to see a hang in time, and each second for the traffic.
std::chrono::milliseconds sampleInterval(std::chrono::milliseconds hangTimeout) {
    if (hangTimeout.count() <= 0)
        return std::chrono::seconds(1);
    return std::clamp<std::chrono::milliseconds>(hangTimeout / 8, std::chrono::milliseconds(20),
                                                 std::chrono::seconds(1));
}

}  // namespace

ProcessSupervisor::ProcessSupervisor(DriverTable& drivers, Settings settings, Environment environment)
    : m_drivers(drivers),
      m_settings(settings),
      m_environment(std::move(environment)),
      m_wakeup("the supervision"),
      m_sampleInterval(sampleInterval(m_settings.hangTimeout)),
      m_limits({.stopTimeout = m_settings.stopTimeout,
                .shutdownLimit = m_settings.shutdownLimit,
                .killDelay = m_settings.killDelay,
                .replacedLimit = m_settings.replacedLimit}),
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
    // A dump wakes this object when it is done.
    for (Process& process : m_processes.lock())
        process.pStacks.reset();
    m_lateDumps.clear();
    m_pCommandStack.reset();
}

void ProcessSupervisor::start() {
    m_thread = base::neededThread("the supervision", [this] { run(); });
}

void ProcessSupervisor::wake() {
    m_wakeup.wake();
}

void ProcessSupervisor::processStarted(const sal::Process::Started& process) {
    const std::string driverID = driverOf(process.arguments).value_or(process.title);
    if (process.errorFd >= 0)
        m_environment.takeErrors(driverID, process.pid, process.errorFd);
    m_processes.add(driverID, process, m_drivers.processStarted(driverID, process.pid));
    wake();
}

void ProcessSupervisor::startFailed(const std::vector<std::string>& arguments, const std::string& reason) {
    const std::lock_guard lock(m_mutex);
    if (const auto driverID = driverOf(arguments))
        m_startFaults[*driverID] = "cannot be started: " + reason;
}

std::vector<std::string> ProcessSupervisor::variables(const std::vector<std::string>& arguments) {
    const std::lock_guard lock(m_mutex);
    const auto driverID = driverOf(arguments);
    if (!driverID || m_toBeDebugged.erase(*driverID) == 0)
        return {};
    const auto half = std::chrono::duration_cast<std::chrono::seconds>(m_settings.hangTimeout / 2);
    const auto patience = m_settings.hangTimeout.count() == 0
                              ? s_debuggerPatience
                              : std::clamp(half, std::chrono::seconds(1), s_debuggerPatience);
    return {"MFD_WAIT_FOR_DEBUGGER=" + std::to_string(patience.count())};
}

void ProcessSupervisor::letWaitForDebugger(const std::string& driverID, bool waits) {
    const std::lock_guard lock(m_mutex);
    if (waits)
        m_toBeDebugged.insert(driverID);
    else
        m_toBeDebugged.erase(driverID);
}

void ProcessSupervisor::awaitStart(int pid, unsigned int seconds) {
    if (!m_settings.waitsUntilAttached) {
        Observer::awaitStart(pid, seconds);
        return;
    }
    std::vector<std::string> queues;
    std::string awaited;
    for (const Process& process : m_processes.lock()) {
        if (!process.replaced)
            queues.push_back(protocol::inputQueue(process.driverID));
        if (process.pid == pid)
            awaited = process.driverID;
    }
    {
        const std::lock_guard lock(m_mutex);
        m_awaited = awaited;
    }
    const std::size_t most = 2 * std::max(std::thread::hardware_concurrency(), 1U) - 1;
    const bool isDone = m_environment.waitForReaders(
        queues, most, static_cast<int>(std::chrono::milliseconds(std::chrono::seconds(seconds)).count()));
    noteAttached();
    {
        const std::lock_guard lock(m_mutex);
        m_awaited.clear();
    }
    if (isDone)
        return;
    for (Process& process : m_processes.lock()) {
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
    if (m_limits.beginShutdown(exitCode, Clock::now()))
        wake();
}

void ProcessSupervisor::endProcesses() {
    m_limits.beginProcessEnd(Clock::now());
    wake();
    m_processes.waitUntilEmpty();
    // The thread that took out the last one may still be telling of it.
    const std::lock_guard tellLock(m_tellMutex);
}

void ProcessSupervisor::lookForEnds() {
    {
        const std::lock_guard tellLock(m_tellMutex);
        tellEnds();
    }
    if (m_environment.lookAtOthers)
        m_environment.lookAtOthers();
}

void ProcessSupervisor::driverUnloaded(const std::string& driverID) {
    for (Process& process : m_processes.lock()) {
        if (process.driverID == driverID && !process.replaced)
            process.replaced = Clock::now();
    }
}

void ProcessSupervisor::endStart(const std::string& driverID, const std::string& reason,
                                 const std::string& seen) {
    // A process whose end another thread is just telling of is still among the living in the table of
    // drivers.
    const std::lock_guard tellLock(m_tellMutex);
    tellEnds();
    if (isShuttingDown()) {
        m_drivers.endStart(driverID);
        return;
    }
    std::string cause = reason;
    if (cause.empty()) {
        const std::lock_guard lock(m_mutex);
        const auto fault = m_startFaults.extract(driverID);
        cause = fault ? fault.mapped() : seen.empty() ? "never started" : seen;
    }
    const auto missing = m_drivers.endProcessStart(driverID, cause, reason.empty());
    wake();
    // One line tells it for all tries that fail alike.
    if (missing && missing->isNews)
        hostLog(sal::LogOutput::eError)
            << driverID << ": no process runs: " << cause << planText(missing->next) << std::endl;
}

bool ProcessSupervisor::isBusy() {
    if (isShuttingDown() || m_environment.activity().busy || !waits().empty())
        return true;
    const auto processes = m_processes.lock();
    return std::any_of(processes.begin(), processes.end(),
                       [](const Process& process) { return process.terminated && !process.isKilled; });
}

void ProcessSupervisor::run() {
    base::nameThread("supervisor");
    for (;;) {
        {
            const std::lock_guard lock(m_mutex);
            if (m_stopping)
                return;
        }
        // One that cannot be collected yet would keep the thread from waiting at all.
        const bool isOneHeld = m_processes.isOneHeld();
        std::array<pollfd, 2> watched{{{m_wakeup.fd(), POLLIN, 0}, {m_processes.fd(), POLLIN, 0}}};
        const int timeout = isOneHeld ? static_cast<int>(StopLimits::s_interval.count()) : pollTimeout();
        if (::poll(watched.data(), isOneHeld ? 1 : 2, timeout) > 0 && watched.front().revents)
            m_wakeup.take();
        try {
            lookForEnds();
            check();
        } catch (const std::exception& error) {
            // Memory, that is: the next round may have it again.
            hostLog(sal::LogOutput::eCritical) << "supervision is held up: " << error.what() << std::endl;
            std::this_thread::sleep_for(StopLimits::s_interval);
        }
    }
}

/// Until something is to be looked at that nothing wakes the thread for.
int ProcessSupervisor::pollTimeout() {
    if (isBusy())
        return static_cast<int>(StopLimits::s_interval.count());
    std::optional<Clock::time_point> next = m_drivers.nextDue();
    const auto atLatest = [&next](Clock::time_point time) { next = next ? std::min(*next, time) : time; };
    if (m_environment.goesRound)
        atLatest(m_nextRound);
    {
        const auto processes = m_processes.lock();
        if (!processes.empty() || m_environment.lookAtOthers)
            atLatest(m_nextSample);
        const auto now = Clock::now();
        const bool isAwaited = std::any_of(processes.begin(), processes.end(), [&](const Process& process) {
            return process.isRestart && !process.hasAttached && !process.replaced &&
                   now - process.started < s_startTime;
        });
        if (isAwaited)
            atLatest(now + StopLimits::s_interval);
    }
    if (!next)
        return -1;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(*next - Clock::now()).count();
    return static_cast<int>(std::clamp<long long>(left, 0, INT_MAX));
}

/// Under the lock of those that tell.
void ProcessSupervisor::tellEnds() {
    auto endedNow = m_processes.takeEnded();
    for (auto& [process, end] : endedNow)
        ended(process, end);
    if (!endedNow.empty())
        wake();
}

/// Which processes have come up by now. Before the host lets go of a queue this is the last look at it.
void ProcessSupervisor::noteAttached() {
    for (Process& process : m_processes.lock()) {
        if (process.hasAttached || process.replaced ||
            !m_environment.hasReader(protocol::inputQueue(process.driverID)))
            continue;
        process.hasAttached = true;
        if (process.isRestart)
            hostLog(sal::LogOutput::eInfo) << process.driverID << ": is started again" << std::endl;
    }
}

void ProcessSupervisor::ended(Process& process, const ProcessEnd& end) {
    const bool isShutdown = isShuttingDown();
    // Not waited for here, where any thread may be.
    if (process.pStacks) {
        const std::lock_guard lock(m_mutex);
        m_lateDumps.push_back(std::move(process.pStacks));
    }
    const std::string loadFault =
        m_environment.endErrors ? m_environment.endErrors(process.driverID, process.pid) : std::string();
    std::string cause = process.hang.empty() ? end.cause() : process.hang + ", " + end.cause();
    if (!loadFault.empty())
        cause += ", cannot be loaded: " + loadFault;
    const auto ran = std::chrono::duration_cast<RestartPlan::Duration>(Clock::now() - process.started);
    const auto kind = !end.isKnown() ? DriverTable::EEnd::Unknown
                      : end.isExit() ? DriverTable::EEnd::Exit
                                     : DriverTable::EEnd::Signal;
    const auto told =
        m_drivers.processEnded(process.driverID, process.pid, cause, ran, !isShutdown, kind, end.status());
    // One that a newer process has replaced was asked to end, even if it comes to its end after the reload.
    const bool isReplaced = !told;
    if (told)
        m_environment.receiverGone(protocol::inputQueue(process.driverID), process.started);

    // One that comes up only when its end was asked for finds no queue of its own any more.
    const bool isOrderly =
        end.isOrderly() || ((isReplaced || !process.hasAttached) && end.hasExitCode(s_noQueueCode));
    const bool isExpected = process.terminated || ((isShutdown || isReplaced || told->wasAsked) && isOrderly);
    auto& line = hostLog(isExpected ? sal::LogOutput::eInfo : sal::LogOutput::eError);
    line << process.driverID << ": process " << process.pid << " ended" << (isExpected ? "" : " unexpectedly")
         << ": " << cause;
    if (isReplaced)
        line << "; a newer process had replaced it";
    if (!end.isKnown())
        line
            << " (something in the host's process ignores SIGCHLD or collects children that are not its own)";
    if (!isShutdown && told && told->staleValues > 0)
        line << "; " << told->staleValues << (told->staleValues == 1 ? " value is" : " values are")
             << " stale";
    if (told && !told->wasAsked && !isShutdown)
        line << planText(told->next);
    line << std::endl;
}

void ProcessSupervisor::check() {
    const auto now = Clock::now();
    const CommandActivity activity = m_environment.activity();
    if (m_environment.goesRound)
        m_nextRound = m_environment.goesRound(activity, now);
    if (activity.busy) {
        checkCommand(activity, now);
        checkQueueWait(activity, now);
        checkCall(activity, now);
    } else {
        m_retiredQueues.clear();
    }
    checkWaits(now);
    checkShutdown(activity, now);
    noteAttached();
    checkStacks();
    checkRestarts(now);
    if (now >= m_nextSample) {
        sample(now);
        m_nextSample = now + m_sampleInterval;
    }

    for (Process& process : m_processes.lock()) {
        // It has no queue any more, and no command waits for it.
        if (process.replaced && m_limits.isReplacedOver(*process.replaced, now))
            terminate(process,
                      "still runs " + seconds(m_settings.replacedLimit) + " after it was " +
                          (m_drivers.isLast(process.driverID, process.pid) ? "unloaded" : "replaced"));
        if (!process.terminated || process.isKilled || !m_limits.isKillDue(*process.terminated, now))
            continue;
        process.isKilled = true;
        hostLog(sal::LogOutput::eWarning) << process.driverID << ": process " << process.pid
                                          << " did not heed SIGTERM and is killed" << std::endl;
        process.signal(SIGKILL);
    }
}

void ProcessSupervisor::checkCommand(const CommandActivity& activity, Clock::time_point now) {
    if (!m_limits.isStopOver(activity.since, now))
        return;
    const auto stuck = m_limits.stuck(m_environment.queues());
    // A process that the command itself has started is not the one that it waits for.
    for (Process& process : m_processes.lock()) {
        if (!activity.driverID.empty() && process.driverID == activity.driverID &&
            process.started < activity.since)
            terminate(process, "has not ended " + seconds(m_settings.stopTimeout) + " after it was to stop");
    }
    if (stuck && !endStuck(*stuck, activity.what) && m_reportedQueue != stuck->driverID) {
        hostLog(sal::LogOutput::eWarning)
            << stuck->driverID << ": its queue is " << (stuck->isLocked ? "locked by a sender" : "full")
            << " and holds up \"" << activity.what << "\"; the host did not start its process" << std::endl;
        m_reportedQueue = stuck->driverID;
    }
}

/// Commands that wait for room in a driver's input queue, which the command thread does not wait with. It may
/// be busy, and not have seen yet that there was room meanwhile.
void ProcessSupervisor::checkWaits(Clock::time_point now) {
    const auto waits = this->waits();
    std::erase_if(m_waitsSeen, [&](const auto& seen) {
        return std::none_of(waits.begin(), waits.end(), [&](const CommandWait& wait) {
            return wait.driverID == seen.first.first && wait.since == seen.first.second;
        });
    });
    if (waits.empty())
        return;
    const auto queues = m_environment.queues();
    for (const CommandWait& wait : waits) {
        const auto queue = std::find_if(queues.begin(), queues.end(), [&](const auto& candidate) {
            return candidate.name == protocol::inputQueue(wait.driverID);
        });
        SeenTime& seen =
            m_waitsSeen.try_emplace({wait.driverID, wait.since}, 4 * StopLimits::s_interval).first->second;
        if (seen.look(wait.since, now) >= m_settings.stopTimeout && queue != queues.end() &&
            queue->depth >= queue->capacity && queue->received == wait.received)
            endStuck({.driverID = wait.driverID}, wait.what);
    }
}

std::vector<CommandWait> ProcessSupervisor::waits() const {
    return m_environment.waits ? m_environment.waits() : std::vector<CommandWait>();
}

/// False when the driver has no process of the host's.
bool ProcessSupervisor::endStuck(const StopLimits::Stuck& stuck, const std::string& heldUp) {
    for (Process& process : m_processes.lock()) {
        if (process.driverID != stuck.driverID || process.replaced)
            continue;
        terminate(process,
                  (stuck.isLocked ? "cannot be sent to, since a sender has not left its input queue for "
                                  : "has not taken a message for ") +
                      seconds(m_settings.stopTimeout) + " and holds up \"" + heldUp + "\"");
        return true;
    }
    return m_drivers.hasProcess(stuck.driverID);
}

/// A driver that is loaded again waits for its former queues to go, however long that takes. Once its process
/// is gone the wait has no end of its own: another process has the locks, or no queue can be made there.
void ProcessSupervisor::checkQueueWait(const CommandActivity& activity, Clock::time_point now) {
    if (!m_environment.refusedQueues || activity.driverID.empty())
        return;
    {
        const auto processes = m_processes.lock();
        const bool isLive = std::any_of(processes.begin(), processes.end(), [&](const Process& process) {
            return process.driverID == activity.driverID && process.started < activity.since;
        });
        // In a shutdown the driver is not started again.
        if (isLive || (!m_limits.isStopOver(activity.since, now) && !isShuttingDown()))
            return;
    }
    for (const auto& refusal : m_environment.refusedQueues()) {
        if (refusal.forMs < s_queueWaitMs || protocol::ownerOf(refusal.name) != activity.driverID)
            continue;
        const bool isFree = m_environment.retireQueue(refusal.name);
        m_environment.passQueue(refusal);
        // Where it is not free, the start fails and says why.
        if (isFree && m_retiredQueues.insert(refusal.name).second)
            hostLog(sal::LogOutput::eWarning)
                << activity.driverID << ": queue " << refusal.name << " does not become free: " << refusal.why
                << "; its name is taken away" << std::endl;
    }
}

/// A command that does not come back: which driver's call it is in, and where its thread is. A shutdown has
/// less time.
void ProcessSupervisor::checkCall(const CommandActivity& activity, Clock::time_point now) {
    const bool isShutdown = isShuttingDown();
    const auto patience = isShutdown ? std::min(m_settings.stopTimeout, m_settings.commandPatience)
                                     : m_settings.commandPatience;
    const auto calls = m_drivers.innermostCalls();
    const auto call = std::find_if(calls.begin(), calls.end(), [&](const DriverTable::Call& candidate) {
        return candidate.thread == activity.thread;
    });
    const auto since = call != calls.end() ? call->since : activity.since;
    if (now - since < patience || m_reportedCall == since)
        return;
    if (call != calls.end()) {
        hostLog(sal::LogOutput::eWarning)
            << callText(*call) << " has not come back for " << seconds(patience) << " and holds up \""
            << activity.what << "\"; the driver runs in the host's process and cannot be ended alone"
            << std::endl;
    } else {
        const auto queues = m_environment.queues();
        const bool isQueueFull = std::any_of(queues.begin(), queues.end(),
                                             [](const auto& queue) { return queue.waitingForMs > 0; });
        // A start takes its time. What waits for a driver process is told where that is ended.
        if (isShutdown || isQueueFull || !activity.driverID.empty() || activity.what == s_startUp)
            return;
        hostLog(sal::LogOutput::eWarning)
            << "\"" << activity.what << "\" has not come back for " << seconds(patience) << std::endl;
    }
    m_reportedCall = since;
    showStack(activity.thread);
}

void ProcessSupervisor::showStack(int thread) {
    if (m_pCommandStack)
        return;
    try {
        m_pCommandStack = std::make_unique<StackDump>(
            thread, m_settings.stacksLimit, [this] { wake(); }, StackDump::EThreads::One);
    } catch (const std::exception& error) {
        hostLog(sal::LogOutput::eWarning)
            << "the stack of the command thread cannot be read: " << error.what() << std::endl;
    }
}

void ProcessSupervisor::checkShutdown(const CommandActivity& activity, Clock::time_point now) {
    const StopLimits::Due due = m_limits.due(now);
    if (due.processes) {
        for (Process& process : m_processes.lock())
            terminate(process, "still runs and holds up the shutdown");
    }
    if (due.fullQueues)
        endFullQueues();
    if (!due.host)
        return;
    std::vector<int> killed;
    for (const Process& process : m_processes.lock()) {
        if (!process.terminated)
            continue;
        process.signal(SIGKILL);
        killed.push_back(process.pid);
    }
    for (const int pid : killed)
        m_processes.endFamily(pid);
    hostLog(sal::LogOutput::eError) << whoHoldsUp(activity) << " holds up the shutdown for "
                                    << seconds(m_settings.shutdownLimit) << "; the host ends without it"
                                    << std::endl;
    m_environment.exitNow(due.exitCode);
}

void ProcessSupervisor::checkRestarts(Clock::time_point now) {
    if (isShuttingDown())
        return;
    for (const std::string& driverID : m_drivers.takeDue(now))
        m_environment.restart(driverID);
}

void ProcessSupervisor::sample(Clock::time_point now) {
    m_processes.lookAtFamilies();
    Queues queues;
    for (auto& queue : m_environment.queues()) {
        std::string name = queue.name;
        queues.emplace(std::move(name), std::move(queue));
    }
    if (m_traffic.isDue(now))
        measureTraffic(queues, now);
    checkQueueLoss(queues, now);
    for (const HangDetector::Verdict& verdict : m_hangs.judge(samples(queues), bootTime()))
        hangs(verdict);
}

void ProcessSupervisor::measureTraffic(const Queues& queues, Clock::time_point now) {
    std::vector<std::string> driverIDs;
    for (const Process& process : m_processes.lock())
        driverIDs.push_back(process.driverID);
    for (const TrafficMeter::Rate& rate : m_traffic.measure(driverIDs, queues, now))
        m_drivers.setTraffic(rate.driverID, rate.receivedPerSecond, rate.sentPerSecond);
}

std::vector<HangDetector::Sample> ProcessSupervisor::samples(const Queues& queues) {
    std::vector<HangDetector::Sample> samples;
    if (m_settings.hangTimeout.count() <= 0 || isShuttingDown())
        return samples;
    const auto processes = m_processes.lock();
    const bool isOneEnding = std::any_of(processes.begin(), processes.end(), [](const Process& process) {
        return process.terminated || !process.hang.empty();
    });
    for (const Process& process : processes) {
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
    if (!m_drivers.processHung(verdict.driverID, verdict.pid, cause))
        return;
    for (Process& process : m_processes.lock()) {
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
            process.signal(SIGTERM);
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
    if (isShuttingDown())
        return;
    for (const Process& process : m_processes.lock()) {
        // The queues of a driver that is being reloaded come and go, and may have been others.
        const bool isReloaded =
            (activity.busy && activity.driverID == process.driverID) || process.started >= looked;
        if (!process.terminated && process.hang.empty() && !isReloaded)
            samples.push_back({process.driverID, process.pid, find(protocol::inputQueue(process.driverID)),
                               find(protocol::outputQueue(process.driverID))});
    }
    for (const QueueLossDetector::Verdict& verdict : m_losses.judge(samples, bootTime()))
        lost(verdict);
}

void ProcessSupervisor::lost(const QueueLossDetector::Verdict& verdict) {
    const auto staleValues = m_drivers.processHung(verdict.driverID, verdict.pid, verdict.what);
    if (!staleValues)
        return;
    for (Process& process : m_processes.lock()) {
        if (process.pid != verdict.pid)
            continue;
        process.hang = verdict.what;
        terminate(process, "cannot be reached any more: " + verdict.what);
    }
}

/// A process that hangs is ended when it is known where it hangs.
void ProcessSupervisor::checkStacks() {
    {
        const std::lock_guard lock(m_mutex);
        std::erase_if(m_lateDumps, [](const auto& pDump) { return pDump->isDone(); });
    }
    if (m_pCommandStack && m_pCommandStack->isDone()) {
        logStacks(*m_pCommandStack);
        m_pCommandStack.reset();
    }
    for (Process& process : m_processes.lock()) {
        if (!process.pStacks || !process.pStacks->isDone())
            continue;
        if (process.crashSignal != 0) {
            tellCrash(process);
            process.pStacks.reset();
            process.signal(process.crashSignal);
            continue;
        }
        logStacks(*process.pStacks);
        process.pStacks.reset();
        if (process.terminated)
            continue;
        process.terminated = Clock::now();
        process.signal(SIGTERM);
    }
}

void ProcessSupervisor::processCrashes(int pid, const sal::CrashNote::Crash& crash) {
    for (Process& process : m_processes.lock()) {
        // Of one that hangs the stacks are being read already; another process's thread is none of its own.
        if (process.pid != pid || process.crashSignal != 0 || process.pStacks ||
            !ProcessReading::hasThread(pid, crash.thread))
            continue;
        process.crashSignal = crash.signal;
        try {
            process.pStacks = std::make_unique<StackDump>(
                crash.thread, m_settings.stacksLimit, [this] { wake(); }, StackDump::EThreads::One);
        } catch (const std::exception& error) {
            hostLog(sal::LogOutput::eWarning)
                << process.driverID << ": its stack cannot be read: " << error.what() << std::endl;
            process.signal(crash.signal);
        }
    }
}

/// In one block, and with what its driver says last.
void ProcessSupervisor::tellCrash(const Process& process) const {
    std::vector<std::string> lines;
    std::istringstream text(process.pStacks->text());
    std::size_t left = 0;
    for (std::string line; std::getline(text, line);) {
        if (lines.size() < s_crashLines)
            lines.push_back(base::printable(line));
        else
            ++left;
    }
    if (left > 0)
        lines.push_back("... and " + std::to_string(left) + " lines more");
    const bool isRead = std::any_of(lines.begin(), lines.end(),
                                    [](const std::string& line) { return line.starts_with('#'); });
    auto& line = hostLog(sal::LogOutput::eError);
    line << process.driverID << ": process " << process.pid;
    if (isRead)
        line << " dies here:";
    else if (lines.empty())
        line << " dies; there is no stack of it: eu-stack (package elfutils) is missing or too slow";
    else
        line << " dies; its stack cannot be read: " << whyUnread(lines);
    line << std::endl;
    if (!isRead)
        return;
    for (const std::string& each : lines)
        hostLog(sal::LogOutput::eError) << "    " << each << std::endl;
    if (m_environment.noteStack)
        m_environment.noteStack(process.pid, lines);
}

void ProcessSupervisor::logStacks(const StackDump& stacks) {
    std::istringstream lines(stacks.text());
    for (std::string line; std::getline(lines, line);)
        hostLog(sal::LogOutput::eError) << "    " << line << std::endl;
}

/// All at once: the teardown comes to one after the other, and there is no time to wait for each.
void ProcessSupervisor::endFullQueues() {
    for (const auto& queue : m_environment.queues()) {
        const bool isLocked = queue.lockedForMs > 0;
        if (queue.depth < queue.capacity && !isLocked)
            continue;
        const std::string driverID = protocol::receiverOf(queue.name);
        for (Process& process : m_processes.lock()) {
            if (process.driverID == driverID)
                terminate(process, isLocked
                                       ? "cannot be told to stop, since a sender does not leave its input "
                                         "queue, and holds up the shutdown"
                                       : "leaves its queue full and holds up the shutdown");
        }
    }
}

void ProcessSupervisor::terminate(Process& process, const std::string& reason) {
    if (process.terminated)
        return;
    process.terminated = Clock::now();
    hostLog(sal::LogOutput::eWarning)
        << process.driverID << ": process " << process.pid << " " << reason << "; it is ended" << std::endl;
    process.signal(SIGTERM);
}

std::string ProcessSupervisor::whoHoldsUp(const CommandActivity& activity) {
    if (const auto calls = m_drivers.innermostCalls(); !calls.empty())
        return callText(calls.front());
    for (const auto& queue : m_environment.queues()) {
        const std::string driverID = protocol::receiverOf(queue.name);
        if (queue.waitingForMs > 0 && !driverID.empty())
            return driverID + (queue.lockedForMs > 0 ? ": its locked queue" : ": its full queue");
    }
    {
        const std::lock_guard lock(m_mutex);
        if (!m_awaited.empty())
            return m_awaited + ": the start of its process";
    }
    if (const auto processes = m_processes.lock(); m_limits.isEndingProcesses() && !processes.empty())
        return processes.begin()->driverID + ": process " + std::to_string(processes.begin()->pid);
    if (activity.busy && activity.what != "shutdown")
        return "\"" + activity.what + "\"";
    return "something unknown";
}
