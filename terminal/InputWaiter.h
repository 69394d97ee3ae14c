#pragma once

#include <atomic>
#include <chrono>

#include "UniqueFd.h"
#include "Wakeup.h"

/// Waits for input on a descriptor until it is told to stop. Owned by the console; wait() on the console's
/// thread, the others on any.
class InputWaiter {
public:
    explicit InputWaiter(int fd);

    enum class EResult { Input, Nudged, Resized, Idle, Stopped };

    /// From now on wait() tells of a terminal that has another size. The signal for it is blocked in the
    /// calling thread and in those that it starts; the program has it blocked in all others.
    void watchSize();

    /// Input: a read will not block, for there is input, its end or an error. Idle: nothing has come for that
    /// long; a negative time waits without an end.
    EResult wait(std::chrono::milliseconds patience = std::chrono::milliseconds(-1));
    void stop();
    /// Lets one wait() return, now or next time.
    void nudge();
    bool isStopped() const { return m_stopped; }

private:
    bool takeResize() const;

    const int m_fd;
    const base::Wakeup m_wakeup;
    base::UniqueFd m_size;
    std::atomic<bool> m_stopped = false;
};
