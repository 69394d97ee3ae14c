#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

/// Runs what takes too long for the API's thread, and needs no other: readings of what was recorded, one
/// after another, at a lower priority than the rest of the host. Owned by HostApi. Any thread.
class ReadingThread {
public:
    /// That wait for their turn.
    static constexpr std::size_t s_mostWaiting = 8;

    ReadingThread() = default;
    ~ReadingThread();  ///< as stop()
    ReadingThread(const ReadingThread&) = delete;
    ReadingThread& operator=(const ReadingThread&) = delete;

    /// Starts the thread. An exception says that none can be had.
    void start();
    /// What has not begun by now is dropped, and isStopping says so to the one that has. When it returns
    /// nothing runs any more. Not from within a task.
    void stop();

    /// Returns at once; false where too many wait, or after stop(). The task throws nothing.
    bool post(std::function<void()> task);
    bool isStopping() const { return m_isStopping; }

private:
    void run();

    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<std::function<void()>> m_tasks;
    std::atomic<bool> m_isStopping = false;
    std::thread m_thread;
};
