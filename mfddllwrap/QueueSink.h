#pragma once

#include "IMessageSink.h"
#include "sal/MessageQueue.h"

/// The driver's output queue as a sink. The queue is borrowed. Any thread.
class QueueSink : public IMessageSink {
public:
    explicit QueueSink(sal::MessageQueue& queue) : m_queue(queue) {}

    bool send(const unsigned char* data, std::size_t length) override {
        return m_queue.send(data, static_cast<int>(length), -1);
    }

private:
    sal::MessageQueue& m_queue;
};
