#include "HostWatch.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

namespace {

using Clock = std::chrono::steady_clock;

}  // namespace

struct HostWatch::State {
    explicit State(Settings given) : settings(std::move(given)), finishFd(eventfd(0, EFD_CLOEXEC)) {
        if (finishFd < 0)
            throw std::system_error(errno, std::generic_category(),
                                    "no descriptor can be had to watch the host");
    }
    ~State() { close(finishFd); }

    void watch();
    /// False when the driver was gone before fd became readable (fd -1: before the time was over).
    bool waitFor(int fd, Clock::time_point until);

    const Settings settings;
    const int finishFd;  ///< readable when the driver is gone
    std::atomic<bool> stopRequested = false;

    std::mutex mutex;
    bool finished = false;  ///< nothing may be called any more
    bool hostEnded = false;

    std::thread thread;
};

void HostWatch::State::watch() {
    settings.waitForHostEnd();
    {
        std::unique_lock lock(mutex);
        if (finished) {
            // The process is on its way out and what this thread would release may be gone already.
            lock.unlock();
            for (;;)
                pause();
        }
        hostEnded = true;
        settings.onHostEnd();
    }

    const Clock::time_point queuesClosed = Clock::now();
    if (settings.hostFd >= 0) {
        if (!waitFor(settings.hostFd, Clock::time_point::max()) ||
            !waitFor(-1, Clock::now() + settings.grace))
            return;
    } else {
        if (!waitFor(-1, queuesClosed + settings.grace))
            return;
        if (stopRequested && !waitFor(-1, queuesClosed + settings.grace + settings.stopTimeout))
            return;
    }

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
        pollfd fds[] = {{finishFd, POLLIN, 0}, {fd, POLLIN, 0}};
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
    m_pState->thread = std::thread([pState = m_pState] { pState->watch(); });
}

HostWatch::~HostWatch() {
    finish();
}

void HostWatch::stopRequested() {
    m_pState->stopRequested = true;
}

void HostWatch::finish() {
    if (!m_pState->thread.joinable())
        return;
    bool hostEnded = false;
    {
        const std::lock_guard lock(m_pState->mutex);
        m_pState->finished = true;
        hostEnded = m_pState->hostEnded;
    }
    eventfd_write(m_pState->finishFd, 1);
    if (hostEnded)
        m_pState->thread.join();
    else
        m_pState->thread.detach();
}
