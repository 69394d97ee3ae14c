#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "FollowPrinter.h"
#include "StateStore.h"

/// Prints the changes of the state that match a pattern, from a command on until another one or the host's
/// end. Owned by Host; goes before the store. Any thread.
class Following {
public:
    /// lookForEnds as FollowPrinter has it.
    Following(StateStore& store, int fd, std::function<void()> lookForEnds);
    ~Following() { stop(); }
    Following(const Following&) = delete;
    Following& operator=(const Following&) = delete;

    /// In place of what was followed before; everything for an empty pattern. An exception says that no
    /// thread can be had.
    void start(const std::string& glob);
    /// Returns when nothing is printed any more, a second later at most. False when nothing was followed.
    bool stop();

private:
    bool stopLocked();

    StateStore& m_store;
    const int m_fd;
    const std::function<void()> m_lookForEnds;
    std::mutex m_mutex;
    std::unique_ptr<FollowPrinter> m_pPrinter;
};
