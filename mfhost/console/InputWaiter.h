#pragma once

#include <atomic>

/// Waits for input on a descriptor until it is told to stop. Owned by the console; wait() on the console's
/// thread, stop() on any.
class InputWaiter {
public:
    explicit InputWaiter(int fd);
    ~InputWaiter();
    InputWaiter(const InputWaiter&) = delete;
    InputWaiter& operator=(const InputWaiter&) = delete;

    /// True when a read will not block: input, its end or an error. False when stopped.
    bool wait();
    void stop();
    bool isStopped() const { return m_stopped; }

private:
    const int m_fd;
    const int m_stopFd;
    std::atomic<bool> m_stopped = false;
};
