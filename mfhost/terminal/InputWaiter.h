#pragma once

#include <atomic>

#include "Wakeup.h"

/// Waits for input on a descriptor until it is told to stop. Owned by the console; wait() on the console's
/// thread, the others on any.
class InputWaiter {
public:
    explicit InputWaiter(int fd);

    enum class EResult { Input, Nudged, Stopped };

    /// Input: a read will not block, for there is input, its end or an error.
    EResult wait();
    void stop();
    /// Lets one wait() return, now or next time.
    void nudge();
    bool isStopped() const { return m_stopped; }

private:
    const int m_fd;
    const base::Wakeup m_wakeup;
    std::atomic<bool> m_stopped = false;
};
