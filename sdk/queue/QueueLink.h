#pragma once

#include <atomic>
#include <cstddef>
#include <memory>
#include <mutex>
#include <string>

#include "sal/MessageQueue.h"

/// Both queues of a driver process that another language serves. Owned by who called mfdqueue_open(); a
/// thread of its own waits for the host's end and wakes the one that receives. send() on any thread,
/// receive() on one at a time, made and destroyed by the main thread.
class QueueLink {
public:
    enum class EReceived { Message, Nothing, Ended, Broken };

    /// Null, and why in the log, when a queue does not open.
    static std::unique_ptr<QueueLink> open(const std::string& driverID);
    ~QueueLink();
    QueueLink(const QueueLink&) = delete;
    QueueLink& operator=(const QueueLink&) = delete;

    /// Waits at most so many milliseconds, -1 as long as the host holds the queues. length comes back with a
    /// message.
    EReceived receive(unsigned char* buffer, int size, int timeout, int& length);
    /// False when there is no room within the time, or no host any more.
    bool send(const unsigned char* data, int length, int timeout);

    const std::string& driverID() const { return m_driverID; }

private:
    /// What the waiting thread has a share of: its wait cannot be broken off, so it may outlive the object.
    struct Input {
        sal::MessageQueue queue;
        std::atomic<bool> hasHostLetGo = false;
        std::mutex mutex;
        bool isClosed = false;  ///< the waiting thread leaves the queue alone
    };

    explicit QueueLink(std::string driverID);
    static void watch(const std::shared_ptr<Input>& pInput);

    const std::string m_driverID;
    const std::shared_ptr<Input> m_pInput = std::make_shared<Input>();
    sal::MessageQueue m_output;
};
