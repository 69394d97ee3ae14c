#pragma once

#include "UniqueFd.h"
#include "Wakeup.h"

/// The signals that end the host or tell it to look at its files, taken as messages. Made in main before any
/// thread, since each thread inherits its mask. SIGINT, SIGTERM and SIGHUP (unless the program was started
/// with it ignored) are waited for; SIGWINCH is blocked for the thread that waits for it; SIGPIPE and SIGXFSZ
/// are ignored.
class StopSignals {
public:
    /// An exception says what the system refuses.
    StopSignals();

    /// The next signal's number; 0 when interrupt() was called. One thread.
    int wait();
    /// Whether the last one is a SIGHUP of the kernel, which says that the terminal is gone, and none that a
    /// process has sent. The same thread.
    bool isTerminalGone() const { return m_isTerminalGone; }
    /// Lets wait() return. Any thread.
    void interrupt();

private:
    base::UniqueFd m_signals;
    base::Wakeup m_interrupt;
    bool m_isTerminalGone = false;
};
