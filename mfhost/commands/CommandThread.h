#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "CommandActivity.h"

/// The one thread on which everything runs that changes the workplace: start-up, commands, shutdown. So
/// loading, reloading and teardown never overlap. Everybody else only posts. A task that throws is broken off
/// with a log line, and the thread goes on.
class CommandThread {
public:
    using Clock = std::chrono::steady_clock;
    using Task = std::function<void()>;

    /// What a task has to wait for: a driver whose input queue is full.
    struct Hold {
        std::string driverID;
        Clock::time_point since;     ///< when it was seen that full
        std::uint32_t received = 0;  ///< messages that the driver had taken then
    };
    using Gate = std::function<std::optional<Hold>()>;

    /// Tasks that wait beyond this number are refused; of each lane, and of those that are in none.
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
    /// The same for commands of one who does not wait for each, which keep their order: where gate tells that
    /// the task has to wait for a driver, the others of that lane wait with it, and nobody else does. The
    /// gate is asked on the command thread, again and again, and returns at once.
    bool postInLane(const std::string& lane, const std::string& what, Task task, Gate gate);
    /// The same for a reader of many lines: waits for room in the lane. False when the thread is stopping.
    bool postInLaneWaiting(const std::string& lane, const std::string& what, Task task, Gate gate);

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
    /// The first task of each lane that has to wait.
    std::vector<CommandWait> waits() const;

private:
    struct Item {
        std::string what;
        Task task;
        std::optional<std::string> lane = {};
        Gate gate = {};
    };
    struct Lane {
        std::size_t waiting = 0;  ///< its tasks in m_items
        std::optional<CommandWait> wait;
        Clock::time_point next;  ///< its gate is asked again
    };
    using Items = std::deque<Item>;

    bool hasRoom(const std::string& lane) const;
    void addToLane(Item item);
    Items::iterator firstReady(Clock::time_point now);
    std::optional<Item> next();
    bool passesGate(const Item& item, std::unique_lock<std::mutex>& lock);
    void run();
    void perform(const Item& item);

    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    Items m_items;
    std::size_t m_inNoLane = 0;  ///< of them
    std::map<std::string, Lane> m_lanes;
    Items m_behind;
    CommandActivity m_activity;
    bool m_stopping = false;
    Task m_onActivity;
    Task m_last;
    Task m_onEnd;
    std::thread m_thread;
};
