#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <thread>

/// Calls back when a time has come, on a thread of its own. Owned by Host, which stops it before those go
/// that ask. Any thread.
class Deadlines {
public:
    using Clock = std::chrono::steady_clock;

    Deadlines() = default;
    ~Deadlines();  ///< as stop()
    Deadlines(const Deadlines&) = delete;
    Deadlines& operator=(const Deadlines&) = delete;

    /// Starts the thread. An exception says that none can be had.
    void start();
    /// What has not come by now is dropped. When it returns nothing is called any more. Not from within a
    /// call.
    void stop();

    /// Returns at once. What is called returns at once, too, and throws nothing. Dropped after stop().
    void after(std::chrono::milliseconds time, std::function<void()> call);

private:
    void run();

    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::multimap<Clock::time_point, std::function<void()>> m_calls;
    bool m_stopping = false;
    std::thread m_thread;
};
