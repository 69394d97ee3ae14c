#pragma once

#include <string>

#include "UniqueFd.h"

namespace base {

/// Wakes a thread that waits in poll(). A wake-up is kept until it is taken: it does not matter which comes
/// first, and several before one take() count as one. Owned by the waiting side.
class Wakeup {
public:
    /// A std::system_error says what for the system gives no descriptor.
    explicit Wakeup(const std::string& purpose);

    /// Any thread, and handlers of signals too: does not wait and keeps errno.
    void wake() const { wake(fd()); }
    /// For a handler that may come after the object's end: the descriptor, or -1.
    static void wake(int fd);

    /// Whether there was a wake-up, which is used up then. Does not wait.
    bool take() const;
    /// Waits for a wake-up and uses it up.
    void wait() const;
    /// For poll(): readable from a wake-up until it is taken. Not to be read or closed.
    int fd() const { return m_fd.get(); }

private:
    UniqueFd m_fd;
};

}  // namespace base
