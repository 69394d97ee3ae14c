#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace fakehost {

/// The named queues of the fake machine and the stop requests of its threads. A receive must see both, so
/// they share one lock. The tests' end of a queue is here too: push to it, read what was sent.
class QueueBoard {
public:
    /// Stop request of one sal::Thread.
    struct Stop {
        bool requested = false;
        std::map<std::string, std::uint64_t> ends;  ///< per queue: the number of messages sent until then
    };

    static QueueBoard& instance();
    void reset();

    /// False while another object holds the name.
    bool create(const std::string& name, unsigned int capacity, int messageSize);
    void release(const std::string& name);
    bool send(const std::string& name, const std::string& message, int timeout);
    int receive(const std::string& name, unsigned char* buffer, int size, int timeout);

    void requestStop(Stop& stop);
    /// The stop request that the calling thread obeys; null on a thread of nobody's.
    static void obey(const Stop* pStop);

    /// Puts a message into a queue as its other end would. What is pushed before the queue is made stands in
    /// it when it is made.
    void push(const std::string& name, const std::string& message);
    /// Takes the oldest message out; empty when there is none.
    std::string take(const std::string& name);
    /// The messages that stand in a queue, oldest first.
    std::vector<std::string> messages(const std::string& name) const;
    bool held(const std::string& name) const;
    /// From now on each receive is noted with its time-out before it waits.
    void noteReceives(bool on);

private:
    struct Queue {
        bool held = false;
        unsigned int capacity = 0;
        int messageSize = 0;
        std::uint64_t sent = 0;
        std::deque<std::string> messages;
        std::uint64_t received() const { return sent - messages.size(); }
    };

    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    std::map<std::string, Queue> m_queues;
    bool m_noteReceives = false;
};

}  // namespace fakehost
