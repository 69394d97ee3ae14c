#include "HostWatch.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <mutex>
#include <thread>
#include <utility>

#include "ThreadName.h"
#include "Wakeup.h"

namespace {

using Clock = std::chrono::steady_clock;

}  // namespace

struct HostWatch::State {
    explicit State(Settings given) : settings(std::move(given)) {}

    /// On the first thread: waits for the host to let go of the queues.
    void watchQueues();
    /// On the second, where the host is known: waits for its process to end.
    void watchProcess();
    /// Says it once, whichever of the two comes first. False when the driver is gone. Under the mutex.
    bool sayHostHasLetGo();
    void endWhenOverdue(Clock::time_point when);
    /// False when the driver was gone before fd became readable (fd -1: before the time was over).
    bool waitFor(int fd, Clock::time_point until);

    const Settings settings;
    const base::Wakeup finish{"the watch over the host"};  ///< woken when the driver is gone
    std::atomic<bool> stopRequested = false;

    std::mutex mutex;
    bool finished = false;         ///< nothing may be called any more
    bool isHostGone = false;       ///< it has been said
    bool haveQueuesEnded = false;  ///< the first thread comes to its end by itself

    std::thread queuesThread;
    std::thread processThread;
};

void HostWatch::State::watchQueues() {
    base::nameThread("host queues");
    settings.waitForHostEnd();
    {
        std::unique_lock lock(mutex);
        if (!sayHostHasLetGo()) {
            // The process is on its way out and what this thread would release may be gone already.
            lock.unlock();
            for (;;)
                pause();
        }
        haveQueuesEnded = true;
    }
    if (settings.hostFd >= 0)
        return;
    const Clock::time_point queuesClosed = Clock::now();
    if (!waitFor(-1, queuesClosed + settings.grace))
        return;
    if (stopRequested)
        endWhenOverdue(queuesClosed + settings.grace + settings.stopTimeout);
    else
        endWhenOverdue(queuesClosed);
}

void HostWatch::State::watchProcess() {
    base::nameThread("host process");
    if (!waitFor(settings.hostFd, Clock::time_point::max()))
        return;
    {
        const std::lock_guard lock(mutex);
        if (!sayHostHasLetGo())
            return;
    }
    endWhenOverdue(Clock::now() + settings.grace);
}

bool HostWatch::State::sayHostHasLetGo() {
    if (!finished && !std::exchange(isHostGone, true))
        settings.onHostEnd();
    return !finished;
}

void HostWatch::State::endWhenOverdue(Clock::time_point when) {
    if (!waitFor(-1, when))
        return;
    const std::lock_guard lock(mutex);
    if (!finished)
        settings.onOverdue();
}

bool HostWatch::State::waitFor(int fd, Clock::time_point until) {
    for (;;) {
        int timeout = -1;
        if (until != Clock::time_point::max()) {
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - Clock::now()).count();
            if (left <= 0)
                return true;
            timeout = static_cast<int>(std::min<std::int64_t>(left, INT_MAX));
        }
        pollfd fds[] = {{finish.fd(), POLLIN, 0}, {fd, POLLIN, 0}};
        const int ready = poll(fds, 2, timeout);
        if (ready < 0 && errno != EINTR)
            return true;
        if (ready > 0 && fds[0].revents)
            return false;
        if (ready > 0 && fds[1].revents)
            return true;
    }
}

HostWatch::HostWatch(Settings settings) : m_pState(std::make_shared<State>(std::move(settings))) {
    if (m_pState->settings.hostFd >= 0)
        m_pState->processThread = std::thread([pState = m_pState] { pState->watchProcess(); });
    try {
        m_pState->queuesThread = std::thread([pState = m_pState] { pState->watchQueues(); });
    } catch (...) {
        finish();
        throw;
    }
}

HostWatch::~HostWatch() {
    finish();
}

void HostWatch::stopRequested() {
    m_pState->stopRequested = true;
}

void HostWatch::finish() {
    State& state = *m_pState;
    bool haveQueuesEnded = false;
    {
        const std::lock_guard lock(state.mutex);
        state.finished = true;
        haveQueuesEnded = state.haveQueuesEnded;
    }
    state.finish.wake();
    if (state.processThread.joinable())
        state.processThread.join();
    if (!state.queuesThread.joinable())
        return;
    if (haveQueuesEnded)
        state.queuesThread.join();
    else
        state.queuesThread.detach();
}
