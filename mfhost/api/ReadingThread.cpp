#include "ReadingThread.h"

#include <sys/resource.h>

#include <utility>

#include "Needed.h"
#include "ThreadName.h"

namespace {

/// Of nice(2), for the thread alone.
constexpr int s_patience = 10;

}  // namespace

ReadingThread::~ReadingThread() {
    stop();
}

void ReadingThread::start() {
    m_thread = base::neededThread("what reads the recording", [this] { run(); });
}

void ReadingThread::stop() {
    std::deque<std::function<void()>> dropped;
    {
        const std::lock_guard lock(m_mutex);
        m_isStopping = true;
        dropped.swap(m_tasks);
    }
    m_changed.notify_all();
    if (m_thread.joinable())
        m_thread.join();
}

bool ReadingThread::post(std::function<void()> task) {
    {
        const std::lock_guard lock(m_mutex);
        if (m_isStopping || m_tasks.size() >= s_mostWaiting)
            return false;
        m_tasks.push_back(std::move(task));
    }
    m_changed.notify_all();
    return true;
}

void ReadingThread::run() {
    base::nameThread("API recording");
    // On Linux it is the calling thread's own. Where it is refused the thread is as eager as the others.
    ::setpriority(PRIO_PROCESS, 0, s_patience);
    std::unique_lock lock(m_mutex);
    for (;;) {
        m_changed.wait(lock, [this] { return m_isStopping || !m_tasks.empty(); });
        if (m_isStopping)
            return;
        const auto task = std::move(m_tasks.front());
        m_tasks.pop_front();
        lock.unlock();
        task();
        lock.lock();
    }
}
