#include "sal/Thread.h"

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>
#include <thread>

#include "Journal.h"
#include "QueueBoard.h"

namespace sal {

struct Thread::Impl {
    std::thread thread;
    fakehost::QueueBoard::Stop stop;
    std::mutex mutex;
    std::condition_variable changed;
    bool running = false;
};

Thread::Thread() : m_pImpl(std::make_unique<Impl>()) {}

Thread::~Thread() {
    if (m_pImpl->thread.joinable()) {
        std::fputs("a sal::Thread is destroyed while it runs\n", stderr);
        std::abort();
    }
}

bool Thread::start(EPriority priority) {
    if (!fakehost::Journal::instance().perform("thread start " + std::to_string(priority)))
        return false;
    if (m_pImpl->thread.joinable())
        return false;
    m_pImpl->stop = {};
    m_pImpl->running = true;
    m_pImpl->thread = std::thread([this] {
        fakehost::QueueBoard::obey(&m_pImpl->stop);
        run();
        fakehost::QueueBoard::obey(nullptr);
        std::lock_guard lock(m_pImpl->mutex);
        m_pImpl->running = false;
        m_pImpl->changed.notify_all();
    });
    return true;
}

bool Thread::shutdown(int timeout) {
    if (!m_pImpl->thread.joinable())
        return true;
    fakehost::Journal::instance().note("thread shutdown " + std::to_string(timeout));
    fakehost::QueueBoard::instance().requestStop(m_pImpl->stop);
    {
        std::unique_lock lock(m_pImpl->mutex);
        const auto ended = [this] { return !m_pImpl->running; };
        if (timeout < 0)
            m_pImpl->changed.wait(lock, ended);
        else if (!m_pImpl->changed.wait_for(lock, std::chrono::milliseconds(timeout), ended))
            return false;
    }
    m_pImpl->thread.join();
    fakehost::Journal::instance().note("thread ended");
    return true;
}

// A test has no second to spare: both note the wait and cut it short.
void Thread::sleep(unsigned int seconds) {
    fakehost::Journal::instance().note("thread sleep " + std::to_string(seconds));
}

void Thread::mssleep(unsigned int milliseconds) {
    fakehost::Journal::instance().note("thread mssleep " + std::to_string(milliseconds));
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

}  // namespace sal
