#pragma once

#include <memory>

#include "sal/Export.h"

namespace sal {

/// A thread whose body is run(). The derived class shuts it down before its own members go.
class SAL_API Thread {
public:
    /// The scale of the host; 259 is normal and needs no rights.
    enum EPriority { ePriorityNormal = 259 };

    Thread();
    virtual ~Thread();
    Thread(const Thread&) = delete;
    Thread& operator=(const Thread&) = delete;

    /// Runs run() on a new thread. False when it runs already or the system refuses (logged).
    bool start(EPriority priority);

    /// Asks the thread to end, wakes a MessageQueue::receive it waits in, and waits for its end: at most
    /// timeout milliseconds, -1 for ever. True when it has ended or never ran. Never called on the thread
    /// itself.
    bool shutdown(int timeout);

    /// The first sleep of a thread after it has made a process ends when the process observer says so, after
    /// these seconds at the latest (Process::Observer::awaitStart); every other lasts its seconds. Any
    /// thread.
    static void sleep(unsigned int seconds);
    /// Lasts its milliseconds. Any thread.
    static void mssleep(unsigned int milliseconds);

protected:
    virtual void run() = 0;

private:
    struct Impl;
    std::unique_ptr<Impl> m_pImpl;
};

}  // namespace sal
