#include "ThreadState.h"

#include <algorithm>

namespace sal {

namespace {

// A plain pointer: a thread-local with a destructor would keep this library mapped.
thread_local const std::shared_ptr<ThreadState>* t_pCurrent = nullptr;

}  // namespace

const std::shared_ptr<ThreadState>* ThreadState::current() {
    return t_pCurrent;
}

void ThreadState::setCurrent(const std::shared_ptr<ThreadState>* pState) {
    t_pCurrent = pState;
}

void ThreadState::requestStop() {
    const std::lock_guard lock(m_mutex);
    if (m_stopRequested)
        return;
    m_stopRequested = true;
    for (Listener* pListener : m_listeners)
        pListener->threadStops();
    m_changed.notify_all();
}

void ThreadState::add(Listener& listener) {
    const std::lock_guard lock(m_mutex);
    m_listeners.push_back(&listener);
    if (m_stopRequested)
        listener.threadStops();
}

void ThreadState::remove(Listener& listener) {
    const std::lock_guard lock(m_mutex);
    std::erase(m_listeners, &listener);
}

void ThreadState::pause(std::chrono::milliseconds time) {
    std::unique_lock lock(m_mutex);
    m_changed.wait_for(lock, time, [this] { return m_stopRequested; });
}

void ThreadState::setEnded() {
    const std::lock_guard lock(m_mutex);
    m_ended = true;
    m_changed.notify_all();
}

bool ThreadState::ended() const {
    const std::lock_guard lock(m_mutex);
    return m_ended;
}

bool ThreadState::waitForEnd(int timeout) {
    std::unique_lock lock(m_mutex);
    const auto hasEnded = [this] { return m_ended; };
    if (timeout < 0) {
        m_changed.wait(lock, hasEnded);
        return true;
    }
    return m_changed.wait_for(lock, std::chrono::milliseconds(timeout), hasEnded);
}

}  // namespace sal
