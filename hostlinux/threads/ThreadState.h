#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <vector>

#include "Deadline.h"

namespace sal {

/// What a sal::Thread and the queues that it receives from know of each other. Shared by both; made anew at
/// each start. Any thread.
class ThreadState {
public:
    /// Is told, under the state's lock and at most once, that its thread has been asked to stop.
    class Listener {
    public:
        virtual void threadStops() = 0;

    protected:
        ~Listener() = default;
    };

    /// The state of the calling sal::Thread; null on any other thread.
    static const std::shared_ptr<ThreadState>* current();

    /// Makes the state known to the calling thread, for its lifetime.
    static void setCurrent(const std::shared_ptr<ThreadState>* pState);

    void requestStop();
    /// A listener that comes after the request is told at once.
    void add(Listener& listener);
    void remove(Listener& listener);

    /// Sleeps for the time, or until the stop is requested.
    void pause(std::chrono::milliseconds time);

    void setEnded();
    bool ended() const;
    /// False when the deadline has passed before.
    bool waitForEnd(int timeout);

private:
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<Listener*> m_listeners;
    bool m_stopRequested = false;
    bool m_ended = false;
};

}  // namespace sal
