#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

/// Ends this program, and whatever bears its mark, when it has not ended by itself in time. Made by main
/// first of all, with a thread of its own.
class Watchdog {
public:
    /// Exit code of a program that it had to end.
    static constexpr int s_exitCode = 3;

    Watchdog(std::chrono::seconds limit, std::string mark);
    ~Watchdog();
    Watchdog(const Watchdog&) = delete;
    Watchdog& operator=(const Watchdog&) = delete;

private:
    void run(std::chrono::seconds limit);

    const std::string m_mark;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_isDone = false;
    std::thread m_thread;
};
