#include "QueueRegistry.h"

#include <pthread.h>

#include <algorithm>
#include <chrono>
#include <climits>
#include <utility>

#include "Deadline.h"
#include "QueueMaker.h"

namespace sal {

namespace {

/// Refusals with longer pauses between them are no wait for the name.
constexpr std::chrono::seconds s_series{1};
// Bounds how long a claim goes unnoticed whose claimer has died before it could wake anybody.
constexpr std::chrono::milliseconds s_registrySlice{100};

}  // namespace

QueueRegistry& QueueRegistry::instance() {
    // Never destroyed: queues in static objects may go later than anything here.
    static QueueRegistry* const s_pInstance = new QueueRegistry;
    return *s_pInstance;
}

QueueRegistry::QueueRegistry() {
    // A forked child that kept the files open would keep the names in use after its parent's death.
    ::pthread_atfork([] { instance().m_mutex.lock(); }, [] { instance().m_mutex.unlock(); },
                     [] {
                         for (AttachedQueue* pQueue : instance().m_queues)
                             pQueue->abandon();
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
    readersChange();
}

void QueueRegistry::receiverGone(const std::string& name, std::chrono::steady_clock::time_point started) {
    const std::lock_guard lock(m_mutex);
    for (AttachedQueue* pQueue : m_queues) {
        if (pQueue->name() == name && pQueue->made() <= started)
            pQueue->receiverGone();
    }
    readersChange();
}

void QueueRegistry::readersChange() {
    m_readerChanges.fetch_add(1, std::memory_order_acq_rel);
    futexWake(m_readerChanges, INT_MAX, EFutexScope::Process);
}

bool QueueRegistry::hasReader(const std::string& name) {
    const std::lock_guard lock(m_mutex);
    return std::any_of(m_queues.begin(), m_queues.end(), [&](const AttachedQueue* pQueue) {
        return pQueue->isCreator() && pQueue->name() == name && pQueue->hasReader();
    });
}

std::vector<std::shared_ptr<FutexWord>> QueueRegistry::awaitedReaders(const std::vector<std::string>& names) {
    std::vector<std::shared_ptr<FutexWord>> awaited;
    const std::lock_guard lock(m_mutex);
    for (const AttachedQueue* pQueue : m_queues) {
        if (!pQueue->isCreator() || std::find(names.begin(), names.end(), pQueue->name()) == names.end())
            continue;
        if (auto pWord = pQueue->awaitedReader())
            awaited.push_back(std::move(pWord));
    }
    return awaited;
}

bool QueueRegistry::waitForReaders(const std::vector<std::string>& names, std::size_t most, int timeout) {
    Deadline deadline(timeout);
    for (;;) {
        // Before the look at the queues, so that no change is missed.
        std::vector<FutexWait> waits{
            {&m_readerChanges, m_readerChanges.load(std::memory_order_acquire), EFutexScope::Process}};
        const auto awaited = awaitedReaders(names);
        if (awaited.size() <= most)
            return true;
        const auto left = deadline.left(s_registrySlice);
        if (left == Deadline::Clock::duration::zero())
            return false;
        for (const auto& pWord : awaited)
            waits.push_back({pWord.get(), 0, EFutexScope::Shared});
        futexWaitAny(waits, left);
    }
}

bool QueueRegistry::hasCreated(const std::string& name) {
    const std::lock_guard lock(m_mutex);
    return std::any_of(m_queues.begin(), m_queues.end(), [&](const AttachedQueue* pQueue) {
        return pQueue->isCreator() && pQueue->name() == name;
    });
}

bool QueueRegistry::removeNames() {
    bool areGone = true;
    const std::lock_guard lock(m_mutex);
    for (AttachedQueue* pQueue : m_queues)
        areGone = pQueue->removeName() && areGone;
    return areGone;
}

bool QueueRegistry::Refused::isGoingOn() const {
    return !hasPassed && Clock::now() - last < s_series;
}

unsigned int QueueRegistry::Refused::forMs() const {
    using std::chrono::milliseconds;
    return static_cast<unsigned int>(std::chrono::duration_cast<milliseconds>(last - first).count());
}

bool QueueRegistry::refused(const std::string& name, const std::string& why) {
    const std::lock_guard lock(m_mutex);
    const auto now = Clock::now();
    Refused& refused = m_refused.try_emplace(name, Refused{{}, now, now}).first->second;
    if (!refused.isGoingOn()) {
        refused.first = now;
        refused.passes = false;
        refused.hasPassed = false;
    }
    refused.last = now;
    const bool isNew = refused.why != why;
    refused.why = why;
    return isNew;
}

void QueueRegistry::admitted(const std::string& name) {
    const std::lock_guard lock(m_mutex);
    m_refused.erase(name);
}

std::vector<MessageQueue::Refusal> QueueRegistry::refusals() {
    std::vector<MessageQueue::Refusal> refusals;
    const std::lock_guard lock(m_mutex);
    for (const auto& [name, refused] : m_refused) {
        if (refused.isGoingOn())
            refusals.push_back({name, refused.why, refused.forMs()});
    }
    return refusals;
}

void QueueRegistry::passNextCreate(const MessageQueue::Refusal& refusal) {
    const std::lock_guard lock(m_mutex);
    const auto found = m_refused.find(refusal.name);
    if (found != m_refused.end() && found->second.isGoingOn() && found->second.forMs() >= refusal.forMs)
        found->second.passes = true;
}

bool QueueRegistry::takePass(const std::string& name) {
    const std::lock_guard lock(m_mutex);
    const auto found = m_refused.find(name);
    if (found == m_refused.end() || !found->second.passes || !found->second.isGoingOn())
        return false;
    found->second.hasPassed = true;
    return true;
}

std::optional<MessageQueue::Level> QueueRegistry::level(const std::string& name) {
    const std::lock_guard lock(m_mutex);
    const auto found = std::find_if(m_queues.begin(), m_queues.end(), [&](const AttachedQueue* pQueue) {
        return pQueue->isCreator() && pQueue->name() == name;
    });
    return found == m_queues.end() ? std::nullopt : std::optional((*found)->level());
}

std::vector<MessageQueue::Status> QueueRegistry::statuses() {
    std::vector<MessageQueue::Status> statuses;
    {
        const std::lock_guard lock(m_mutex);
        for (const AttachedQueue* pQueue : m_queues) {
            if (pQueue->isCreator())
                statuses.push_back(pQueue->status());
        }
    }
    std::sort(statuses.begin(), statuses.end(), [](const auto& a, const auto& b) { return a.name < b.name; });
    return statuses;
}

}  // namespace sal
