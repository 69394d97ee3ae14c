#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

#include "CommandActivity.h"

/// The one thread on which everything runs that changes the workplace: start-up, commands, shutdown. So
/// loading, reloading and teardown never overlap. Everybody else only posts. A task that throws is broken off
/// with a log line, and the thread goes on.
class CommandThread {
public:
    using Clock = std::chrono::steady_clock;
    using Task = std::function<void()>;

    /// Tasks that wait beyond this number are refused.
    static constexpr std::size_t s_capacity = 1000;

    CommandThread() = default;
    ~CommandThread();  ///< as stopAfterCurrent(), then waits
    CommandThread(const CommandThread&) = delete;
    CommandThread& operator=(const CommandThread&) = delete;

    /// onActivity is called whenever a task begins or ends; last is the thread's last task, however it is
    /// stopped; onEnd is called after it. An exception says that no thread can be had.
    void start(Task onActivity, Task last, Task onEnd);

    /// Any thread; returns at once. False when the thread is stopping or has too much to do already.
    bool post(const std::string& what, Task task);
    /// The same for a reader of many lines: waits for room. False when the thread is stopping.
    bool postWaiting(const std::string& what, Task task);

    /// For what the host does by itself: runs when nothing else waits, and is dropped when the thread stops.
    /// Any thread; returns at once. False when the thread is stopping.
    bool postBehind(const std::string& what, Task task);

    /// Goes to the last task after the current one; what waits is dropped. Any thread.
    void stopAfterCurrent();
    /// Goes to the last task when everything posted so far has run. Any thread.
    void stopWhenDone();

    /// Waits until the thread has ended. On the thread that started it.
    void join();

    /// Names the driver that the current task concerns. On the command thread.
    void setDriver(const std::string& driverID);

    CommandActivity activity() const;

private:
    struct Item {
        std::string what;
        Task task;
    };

    void run();
    void perform(const Item& item);

    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<Item> m_items;
    std::deque<Item> m_behind;
    CommandActivity m_activity;
    bool m_stopping = false;
    Task m_onActivity;
    Task m_last;
    Task m_onEnd;
    std::thread m_thread;
};
