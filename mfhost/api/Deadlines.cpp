#include "Deadlines.h"

#include <utility>

#include "Needed.h"
#include "ThreadName.h"

Deadlines::~Deadlines() {
    stop();
}

void Deadlines::start() {
    m_thread = base::neededThread("the time limits of requests", [this] { run(); });
}

void Deadlines::stop() {
    {
        const std::lock_guard lock(m_mutex);
        m_stopping = true;
    }
    m_changed.notify_all();
    if (m_thread.joinable())
        m_thread.join();
    // Their ends may be answers, which are nobody's business under the lock.
    std::multimap<Clock::time_point, std::function<void()>> dropped;
    const std::lock_guard lock(m_mutex);
    dropped.swap(m_calls);
}

void Deadlines::after(std::chrono::milliseconds time, std::function<void()> call) {
    {
        const std::lock_guard lock(m_mutex);
        if (m_stopping)
            return;
        m_calls.emplace(Clock::now() + time, std::move(call));
    }
    m_changed.notify_all();
}

void Deadlines::run() {
    base::nameThread("API limits");
    std::unique_lock lock(m_mutex);
    while (!m_stopping) {
        if (m_calls.empty()) {
            m_changed.wait(lock);
            continue;
        }
        const auto first = m_calls.begin();
        if (first->first > Clock::now()) {
            // A copy: another one may be put before it meanwhile, and this one be gone.
            const Clock::time_point time = first->first;
            m_changed.wait_until(lock, time);
            continue;
        }
        const auto call = m_calls.extract(first);
        lock.unlock();
        call.mapped()();
        lock.lock();
    }
}
