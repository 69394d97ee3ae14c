#include "QueueRegistry.h"

#include <pthread.h>

#include <algorithm>

#include "QueueMaker.h"

namespace sal {

QueueRegistry& QueueRegistry::instance() {
    // Never destroyed: queues in static objects may go later than anything here.
    static QueueRegistry* const s_pInstance = new QueueRegistry;
    return *s_pInstance;
}

QueueRegistry::QueueRegistry() {
    // A forked child that kept the files open would keep the names in use after its parent's death.
    ::pthread_atfork([] { instance().m_mutex.lock(); }, [] { instance().m_mutex.unlock(); },
                     [] {
                         for (AttachedQueue* pQueue : instance().m_queues) {
                             pQueue->abandon();
                         }
                         instance().m_queues.clear();
                         QueueMaker::forget();
                         instance().m_mutex.unlock();
                     });
}

void QueueRegistry::add(AttachedQueue& queue) {
    const std::lock_guard lock(m_mutex);
    m_queues.push_back(&queue);
}

void QueueRegistry::remove(AttachedQueue& queue) {
    const std::lock_guard lock(m_mutex);
    std::erase(m_queues, &queue);
}

void QueueRegistry::receiverGone(const std::string& name) {
    const std::lock_guard lock(m_mutex);
    for (AttachedQueue* pQueue : m_queues) {
        if (pQueue->name() == name) {
            pQueue->receiverGone();
        }
    }
}

bool QueueRegistry::reportsBusy(const std::string& name) {
    const std::lock_guard lock(m_mutex);
    return m_busyNames[name].passes();
}

std::vector<MessageQueue::Status> QueueRegistry::statuses() {
    std::vector<MessageQueue::Status> statuses;
    {
        const std::lock_guard lock(m_mutex);
        for (const AttachedQueue* pQueue : m_queues) {
            if (pQueue->isCreator()) {
                statuses.push_back(pQueue->status());
            }
        }
    }
    std::sort(statuses.begin(), statuses.end(), [](const auto& a, const auto& b) { return a.name < b.name; });
    return statuses;
}

}  // namespace sal
