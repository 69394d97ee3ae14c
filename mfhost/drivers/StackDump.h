#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <string>
#include <thread>

/// The stacks of a process's threads, or of one thread, which may be this process's own; as eu-stack tells
/// them where it is installed. Read on a thread of its own, since that takes a while. Owned by
/// ProcessSupervisor.
class StackDump {
public:
    enum class EThreads { All, One };

    /// Of the process of that number, or of the thread alone that has it. onDone is called on the dump's
    /// thread, at the latest when limit is over.
    StackDump(int number, std::chrono::milliseconds limit, std::function<void()> onDone,
              EThreads threads = EThreads::All);
    ~StackDump();  ///< waits for the end, at most as long as the limit
    StackDump(const StackDump&) = delete;
    StackDump& operator=(const StackDump&) = delete;

    bool isDone() const { return m_isDone; }
    /// As eu-stack wrote it, without the last line's end; empty when there is no eu-stack. Once it is done.
    const std::string& text() const { return m_text; }

private:
    void run(int number, std::chrono::milliseconds limit, EThreads threads);

    static constexpr std::size_t s_maxBytes = 32768;

    const std::function<void()> m_onDone;
    std::string m_text;
    std::atomic<bool> m_isDone = false;
    std::thread m_thread;
};
