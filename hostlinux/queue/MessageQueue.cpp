#include "sal/MessageQueue.h"

#include <atomic>
#include <mutex>
#include <utility>

#include "AttachedQueue.h"
#include "LogLine.h"
#include "QueueRegistry.h"
#include "sal/LogOutput.h"

namespace sal {

struct MessageQueue::Impl {
    /// Null while not attached. Published whole: others may already send while one thread attaches.
    std::atomic<AttachedQueue*> pQueue{nullptr};
    std::unique_ptr<AttachedQueue> pOwned;

    std::mutex watchMutex;
    /// Set by open(). A wait for the creator's end has its share and nothing else of the queue.
    std::shared_ptr<const base::UniqueFd> pCreatorWatch;

    bool attach(std::unique_ptr<AttachedQueue> pAttached) {
        pOwned = std::move(pAttached);
        pQueue.store(pOwned.get(), std::memory_order_release);
        return pOwned != nullptr;
    }

    AttachedQueue* attached() const { return pQueue.load(std::memory_order_acquire); }

    void close() {
        {
            const std::lock_guard lock(watchMutex);
            pCreatorWatch.reset();
        }
        pQueue.store(nullptr, std::memory_order_relaxed);
        pOwned.reset();
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
    if (const AttachedQueue* pAttached = m_pImpl->attached())
        return refuseTwice(name, *pAttached);
    if (mode != 0) {
        logLine("QUEUE", LogOutput::eError,
                "queue " + name + ": not created: mode " + std::to_string(mode) +
                    " is unknown, 0 is the only one");
        return false;
    }
    // Without a queue of its own the object answers as one that was never made.
    return m_pImpl->attach(AttachedQueue::create(name, capacity, messageSize)) ||
           QueueRegistry::instance().takePass(name);
}

bool MessageQueue::open(const std::string& name) {
    if (const AttachedQueue* pAttached = m_pImpl->attached())
        return refuseTwice(name, *pAttached);
    std::shared_ptr<const base::UniqueFd> pCreatorWatch;
    auto pAttached = AttachedQueue::open(name, pCreatorWatch);
    {
        const std::lock_guard lock(m_pImpl->watchMutex);
        m_pImpl->pCreatorWatch = std::move(pCreatorWatch);
    }
    return m_pImpl->attach(std::move(pAttached));
}

bool MessageQueue::send(const unsigned char* data, int length, int timeout) {
    AttachedQueue* pAttached = m_pImpl->attached();
    return pAttached && pAttached->send(data, length, timeout);
}

int MessageQueue::receive(unsigned char* buffer, int size, int timeout) {
    AttachedQueue* pAttached = m_pImpl->attached();
    return pAttached ? pAttached->receive(buffer, size, timeout) : -1;
}

bool MessageQueue::isBroken() const {
    AttachedQueue* pAttached = m_pImpl->attached();
    return pAttached && pAttached->isBroken();
}

void MessageQueue::close() {
    m_pImpl->close();
}

bool MessageQueue::waitForCreatorEnd() const {
    std::shared_ptr<const base::UniqueFd> pCreatorWatch;
    {
        const std::lock_guard lock(m_pImpl->watchMutex);
        pCreatorWatch = m_pImpl->pCreatorWatch;
    }
    return pCreatorWatch && QueueFile::waitForCreatorEnd(pCreatorWatch->get());
}

void MessageQueue::receiverGone(const std::string& name, std::chrono::steady_clock::time_point started) {
    QueueRegistry::instance().receiverGone(name, started);
}

bool MessageQueue::hasReader(const std::string& name) {
    return QueueRegistry::instance().hasReader(name);
}

bool MessageQueue::waitForReaders(const std::vector<std::string>& names, std::size_t most, int timeout) {
    return QueueRegistry::instance().waitForReaders(names, most, timeout);
}

std::vector<MessageQueue::Status> MessageQueue::statuses() {
    return QueueRegistry::instance().statuses();
}

std::optional<MessageQueue::Level> MessageQueue::level(const std::string& name) {
    return QueueRegistry::instance().level(name);
}

void MessageQueue::setObserver(Observer* pObserver, EObserved what) {
    AttachedQueue::setObservers(what != EObserved::Received ? pObserver : nullptr,
                                what != EObserved::Sent ? pObserver : nullptr);
}

std::string MessageQueue::nameFault(const std::string& name) {
    std::string error;
    return QueueDirectory::fileName(name, error) ? std::string() : error;
}

std::string MessageQueue::createFault(const std::string& name) {
    return AttachedQueue::createFault(name);
}

bool MessageQueue::areFree(const std::vector<std::string>& names) {
    return QueueFile::areFree(names) && (names.empty() || createFault(names.front()).empty());
}

std::vector<MessageQueue::Refusal> MessageQueue::refusals() {
    return QueueRegistry::instance().refusals();
}

bool MessageQueue::retire(const std::string& name) {
    std::string error;
    return QueueFile::retire(name, error) == QueueFile::EResult::Done;
}

void MessageQueue::passNextCreate(const Refusal& refusal) {
    QueueRegistry::instance().passNextCreate(refusal);
}

bool MessageQueue::removeNames() {
    return QueueRegistry::instance().removeNames();
}

}  // namespace sal
