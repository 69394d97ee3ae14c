#pragma once

#include <chrono>
#include <cstddef>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "AttachedQueue.h"
#include "Futex.h"

namespace sal {

/// The queues that this process is attached to. A queue enters itself when it can be asked and leaves before
/// it goes; they stay while another thread walks through them. Lives as long as the process. Any thread.
class QueueRegistry {
public:
    static QueueRegistry& instance();

    void add(AttachedQueue& queue);
    /// Whether this process has made the queue of that name and holds it.
    bool hasCreated(const std::string& name);
    void remove(AttachedQueue& queue);

    void receiverGone(const std::string& name, std::chrono::steady_clock::time_point started);

    bool hasReader(const std::string& name);
    /// See MessageQueue::waitForReaders().
    bool waitForReaders(const std::vector<std::string>& names, std::size_t most, int timeout);

    std::vector<MessageQueue::Status> statuses();
    std::optional<MessageQueue::Level> level(const std::string& name);

    bool removeNames();

    /// create() refuses the name for this reason. True when that is new and to be said.
    bool refused(const std::string& name, const std::string& why);
    /// The queue of that name could be made.
    void admitted(const std::string& name);
    std::vector<MessageQueue::Refusal> refusals();
    void passNextCreate(const MessageQueue::Refusal& refusal);
    /// Whether create() is to pass though it cannot make the queue; once.
    bool takePass(const std::string& name);

private:
    using Clock = std::chrono::steady_clock;
    /// Calls of create() that failed one after the other, with short pauses.
    struct Refused {
        std::string why;
        Clock::time_point first;
        Clock::time_point last;
        bool passes = false;
        bool hasPassed = false;  ///< the next failure begins anew

        bool isGoingOn() const;
        unsigned int forMs() const;
    };

    QueueRegistry();
    /// Threads that wait for readers look again.
    void readersChange();
    /// What changes when one of the queues that still wait for their first reader gets it.
    std::vector<std::shared_ptr<FutexWord>> awaitedReaders(const std::vector<std::string>& names);

    std::mutex m_mutex;
    std::vector<AttachedQueue*> m_queues;
    std::map<std::string, Refused> m_refused;
    FutexWord m_readerChanges{0};  ///< counts all but the claims themselves
};

}  // namespace sal
