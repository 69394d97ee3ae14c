#pragma once

/// The signals that end the host, taken as messages. Made in main before any thread, since each thread
/// inherits its mask. SIGINT, SIGTERM and SIGHUP (unless the program was started with it ignored) are waited
/// for; SIGPIPE is ignored.
class SignalWatch {
public:
    SignalWatch();
    ~SignalWatch();
    SignalWatch(const SignalWatch&) = delete;
    SignalWatch& operator=(const SignalWatch&) = delete;

    /// The next signal's number; 0 when interrupt() was called. One thread.
    int wait();
    /// Lets wait() return. Any thread.
    void interrupt();

private:
    int m_signalFd = -1;
    int m_interruptFd = -1;
};
