#pragma once

#include <functional>
#include <thread>

#include "Wakeup.h"

/// Turns the signals that ask for the end (SIGTERM, SIGINT, SIGHUP) into one call on a thread of its own; a
/// second such signal ends the process at once. SIGPIPE is ignored, and SIGHUP stays ignored where it was.
/// One at a time, made and destroyed by the main thread. The handlers leave the driver's own system calls
/// alone and are not inherited by programs that a driver starts, as a signal mask would be.
class SignalWatch {
public:
    explicit SignalWatch(std::function<void(int signal)> onSignal);
    ~SignalWatch();
    SignalWatch(const SignalWatch&) = delete;
    SignalWatch& operator=(const SignalWatch&) = delete;

private:
    void watch();

    std::function<void(int)> m_onSignal;
    const base::Wakeup m_wakeup;
    std::thread m_thread;
};
