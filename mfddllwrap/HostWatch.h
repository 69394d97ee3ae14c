#pragma once

#include <chrono>
#include <functional>
#include <memory>

/// Sees to it that a driver process does not outlive its host. A thread waits until the host lets go of the
/// queues, says so, and ends the process when its driver does not come back in time.
///
/// A known host that has died has let go, even where a child of it still holds the queues' locks. The host
/// lets go in two cases. In an orderly unload it lives on, and a driver that takes its time to stop is the
/// host's to judge: nothing is cut off here. When the host has died, the driver has the grace period. The
/// parent process tells the two apart; where the parent is not the host (the process was started by hand),
/// time alone does. Made and used by the main thread.
class HostWatch {
public:
    struct Settings {
        int hostFd = -1;                        ///< pidfd of the host, not owned; -1 when it is not known
        std::chrono::milliseconds grace{1800};  ///< from the host's end on
        std::chrono::milliseconds stopTimeout{
            3000};                             ///< added when the host is not known and asked for the end
        std::function<void()> waitForHostEnd;  ///< blocks until the host has let go of the queues
        std::function<void()> onHostEnd;       ///< then called once; must not block
        std::function<void()> onOverdue;       ///< ends the process
    };

    explicit HostWatch(Settings settings);
    ~HostWatch();
    HostWatch(const HostWatch&) = delete;
    HostWatch& operator=(const HostWatch&) = delete;

    /// The host has asked the driver to stop.
    void stopRequested();

    /// The driver is gone; nothing is called any more when this returns. A wait for a host that holds the
    /// queues cannot be broken off, so its thread goes on without this object, with what waitForHostEnd
    /// holds.
    void finish();

private:
    struct State;
    std::shared_ptr<State> m_pState;
};
