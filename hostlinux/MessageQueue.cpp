#include "sal/MessageQueue.h"

#include <mutex>

#include "AttachedQueue.h"
#include "LogLine.h"
#include "QueueRegistry.h"
#include "sal/LogOutput.h"

namespace sal {

struct MessageQueue::Impl {
    std::unique_ptr<AttachedQueue> pQueue;  ///< null while not attached

    std::mutex watchMutex;
    /// Set by open(). A wait for the creator's end has its share and nothing else of the queue.
    std::shared_ptr<const FileHandle> pCreatorWatch;

    void close() {
        {
            const std::lock_guard lock(watchMutex);
            pCreatorWatch.reset();
        }
        pQueue.reset();
    }
};

namespace {

bool refuseTwice(const std::string& name, const AttachedQueue& attached) {
    logLine("QUEUE", LogOutput::eError,
            "queue " + name + ": not attached: the object still holds queue " + attached.name());
    return false;
}

}  // namespace

MessageQueue::MessageQueue() : m_pImpl(std::make_unique<Impl>()) {}

MessageQueue::~MessageQueue() {
    m_pImpl->close();
}

bool MessageQueue::create(const std::string& name, unsigned short capacity, int messageSize, int mode) {
    if (m_pImpl->pQueue != nullptr) {
        return refuseTwice(name, *m_pImpl->pQueue);
    }
    if (mode != 0) {
        logLine("QUEUE", LogOutput::eError,
                "queue " + name + ": not created: mode " + std::to_string(mode) +
                    " is unknown, 0 is the only one");
        return false;
    }
    m_pImpl->pQueue = AttachedQueue::create(name, capacity, messageSize);
    return m_pImpl->pQueue != nullptr;
}

bool MessageQueue::open(const std::string& name) {
    if (m_pImpl->pQueue != nullptr) {
        return refuseTwice(name, *m_pImpl->pQueue);
    }
    std::shared_ptr<const FileHandle> pCreatorWatch;
    m_pImpl->pQueue = AttachedQueue::open(name, pCreatorWatch);
    const std::lock_guard lock(m_pImpl->watchMutex);
    m_pImpl->pCreatorWatch = std::move(pCreatorWatch);
    return m_pImpl->pQueue != nullptr;
}

bool MessageQueue::send(const unsigned char* data, int length, int timeout) {
    return m_pImpl->pQueue != nullptr && m_pImpl->pQueue->send(data, length, timeout);
}

int MessageQueue::receive(unsigned char* buffer, int size, int timeout) {
    return m_pImpl->pQueue != nullptr ? m_pImpl->pQueue->receive(buffer, size, timeout) : -1;
}

void MessageQueue::close() {
    m_pImpl->close();
}

bool MessageQueue::waitForCreatorEnd() const {
    std::shared_ptr<const FileHandle> pCreatorWatch;
    {
        const std::lock_guard lock(m_pImpl->watchMutex);
        pCreatorWatch = m_pImpl->pCreatorWatch;
    }
    return pCreatorWatch != nullptr && QueueFile::waitForCreatorEnd(pCreatorWatch->get());
}

void MessageQueue::receiverGone(const std::string& name) {
    QueueRegistry::instance().receiverGone(name);
}

std::vector<MessageQueue::Status> MessageQueue::statuses() {
    return QueueRegistry::instance().statuses();
}

}  // namespace sal
