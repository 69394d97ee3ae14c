#include "AttachedQueue.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>
#include <thread>
#include <utility>

#include "LogLine.h"
#include "QueueRegistry.h"
#include "ThreadName.h"
#include "sal/LogOutput.h"

namespace sal {

namespace {

// Bounds how long a wake-up that was lost with its sender, or the death of a peer, goes unnoticed.
constexpr std::chrono::milliseconds s_slice{100};
constexpr std::chrono::milliseconds s_refusal{1000};
// So many messages without a wait make it worth while to spare the senders their fence.
constexpr unsigned int s_stream = 64;

std::atomic<MessageQueue::Observer*> s_pObserverOfSent{nullptr};
std::atomic<MessageQueue::Observer*> s_pObserverOfReceived{nullptr};

std::string described(const std::string& name) {
    return "queue " + name + ": ";
}

}  // namespace

/// What one send() waits for: first for the senders' lock, then for room, and so on. A wait is entered where
/// status() looks. A send that need not wait pays nothing for it.
class AttachedQueue::WaitNote final : public Deadline::Waiter {
public:
    explicit WaitNote(AttachedQueue& queue) : m_queue(queue) {}
    ~WaitNote() {
        if (m_entry) {
            const std::lock_guard lock(m_queue.m_waitsMutex);
            std::erase(m_queue.m_waits, &*m_entry);
        }
    }
    WaitNote(const WaitNote&) = delete;
    WaitNote& operator=(const WaitNote&) = delete;

    /// There was no room. True the first time.
    bool waitsForRoom() {
        m_waitsForLock = false;
        enter({m_entry ? m_entry->since : Clock::now(), std::nullopt});
        return !std::exchange(m_foundFull, true);
    }
    void waitsForLock() {
        m_waitsForLock = true;
        m_lockSince.reset();
    }

private:
    using Clock = Deadline::Clock;

    /// Most waits for the lock are over in moments: such a one costs a look at the clock.
    bool goesOn() override {
        if (!m_waitsForLock || m_isPointless)
            return !m_isPointless;
        const auto now = Clock::now();
        if (!m_lockSince) {
            m_lockSince = now;
            m_looked = now;
        }
        if (now - m_looked < s_slice)
            return true;
        m_looked = now;
        enter({m_entry ? m_entry->since : *m_lockSince, m_lockSince});
        m_isPointless = !m_queue.isWorthALock();
        return !m_isPointless;
    }

    void enter(const WaitEntry& entry) {
        const std::lock_guard lock(m_queue.m_waitsMutex);
        if (!m_entry)
            m_queue.m_waits.push_back(&m_entry.emplace(entry));
        *m_entry = entry;
    }

    AttachedQueue& m_queue;
    bool m_waitsForLock = true;
    bool m_foundFull = false;
    bool m_isPointless = false;
    std::optional<Clock::time_point> m_lockSince;
    Clock::time_point m_looked;
    std::optional<WaitEntry> m_entry;  ///< changes under the lock of the waits
};

AttachedQueue::AttachedQueue(std::string name, bool isCreator, std::unique_ptr<QueueFile> pFile,
                             std::unique_ptr<QueueMapping> pMapping, const QueueGeometry& geometry,
                             std::uint32_t ticket, bool hasFences)
    : m_name(std::move(name)),
      m_isCreator(isCreator),
      m_pFile(std::move(pFile)),
      m_pMapping(std::move(pMapping)),
      m_ring(m_pMapping->base(), geometry, *m_pFile),
      m_hasFences(hasFences),
      m_nextTicket(header().nextTicket.load(std::memory_order_relaxed)),
      m_senderLock(header().senderLock, *m_pFile, ticket, hasFences) {}

AttachedQueue::~AttachedQueue() {
    QueueRegistry::instance().remove(*this);
    follow(nullptr);
}

std::unique_ptr<AttachedQueue> AttachedQueue::make(const std::string& name, bool isCreator,
                                                   std::unique_ptr<QueueFile> pFile,
                                                   const QueueGeometry& geometry, std::string& error) {
    auto pMapping = QueueMapping::map(pFile->descriptor(), geometry.fileSize);
    if (!pMapping) {
        error = std::string("it cannot be mapped: ") + std::strerror(errno);
        return nullptr;
    }
    const bool hasFences = joinProcessFences();
    // Another process may have written nonsense to the counter, so a ticket counts only with its lock.
    auto& next = reinterpret_cast<QueueHeader*>(pMapping->base())->nextTicket;
    for (int attempt = 0; attempt < 1000; ++attempt) {
        const std::uint32_t ticket = next.fetch_add(1, std::memory_order_relaxed) & SenderLock::s_maxTicket;
        if (ticket != 0 && pFile->takeTicket(ticket))
            return std::unique_ptr<AttachedQueue>(new AttachedQueue(
                name, isCreator, std::move(pFile), std::move(pMapping), geometry, ticket, hasFences));
    }
    error = "it is damaged: no ticket is free";
    return nullptr;
}

std::unique_ptr<AttachedQueue> AttachedQueue::create(const std::string& name, unsigned short capacity,
                                                     int messageSize) {
    const auto geometry =
        QueueGeometry::make(capacity, messageSize < 0 ? 0 : static_cast<unsigned>(messageSize));
    if (!geometry) {
        logLine("QUEUE", LogOutput::eError,
                described(name) + "not created: " + std::to_string(capacity) + " messages of " +
                    std::to_string(messageSize) + " bytes; 1 to " +
                    std::to_string(QueueGeometry::s_maxCapacity) + " messages of 1 to " +
                    std::to_string(QueueGeometry::s_maxMessageSize) + " bytes are possible");
        return nullptr;
    }
    std::string error;
    QueueFile::EResult result{};
    auto pQueue = tryCreate(name, *geometry, result, error);
    if (pQueue) {
        QueueRegistry::instance().add(*pQueue);
    } else if (QueueRegistry::instance().refused(name, error)) {
        // A reload tries again and again until the old driver process has gone.
        logLine("QUEUE", result == QueueFile::EResult::Busy ? LogOutput::eWarning : LogOutput::eError,
                described(name) + "not created: " + error);
    }
    return pQueue;
}

std::unique_ptr<AttachedQueue> AttachedQueue::tryCreate(const std::string& name,
                                                        const QueueGeometry& geometry,
                                                        QueueFile::EResult& result, std::string& error) {
    result = QueueFile::EResult::Busy;
    // Another process may make the same name at the same time; then it is in use the second time.
    for (int attempt = 0; attempt < 3 && result == QueueFile::EResult::Busy; ++attempt) {
        result = QueueFile::removeStale(name, error);
        if (result != QueueFile::EResult::Done)
            break;
        result = QueueFile::EResult::Failed;
        auto pFile = QueueFile::make(name, geometry, error);
        if (!pFile)
            break;
        QueueFile& file = *pFile;
        auto pQueue = make(name, true, std::move(pFile), geometry, error);
        if (!pQueue)
            break;
        result = file.publish(error);
        if (result == QueueFile::EResult::Done) {
            QueueRegistry::instance().admitted(name);
            return pQueue;
        }
    }
    return nullptr;
}

std::string AttachedQueue::createFault(const std::string& name) {
    std::string error;
    if (QueueRegistry::instance().hasCreated(name)) {
        // It takes a free name to try; making the queue anew needs no memory but what the old one gives back.
        if (QueueFile::tryDirectory(error))
            return {};
    } else {
        QueueFile::EResult result{};
        if (tryCreate(name, *QueueGeometry::make(1, 1), result, error))
            return {};
    }
    static_cast<void>(QueueRegistry::instance().refused(name, error));
    return error;
}

std::unique_ptr<AttachedQueue> AttachedQueue::open(const std::string& name,
                                                   std::shared_ptr<const base::UniqueFd>& pCreatorWatch) {
    std::string error;
    QueueGeometry geometry;
    bool isLate = false;
    auto pFile = QueueFile::attach(name, geometry, error, isLate);
    auto pQueue = pFile ? make(name, false, std::move(pFile), geometry, error) : nullptr;
    if (pQueue) {
        const auto pWatch = std::make_shared<base::UniqueFd>(pQueue->m_pFile->reopen());
        if (*pWatch) {
            pQueue->m_pCreatorWatch = pWatch;
            pCreatorWatch = pWatch;
        } else {
            error = std::string("its creator cannot be watched: ") + std::strerror(errno);
            pQueue.reset();
        }
    }
    if (!pQueue) {
        logLine("QUEUE", isLate ? LogOutput::eWarning : LogOutput::eError,
                described(name) + "not opened: " + error);
        return nullptr;
    }
    QueueRegistry::instance().add(*pQueue);
    return pQueue;
}

void AttachedQueue::report(base::Throttle& throttle, int level, const std::string& text) const {
    if (throttle.passes())
        logLine("QUEUE", level, described(m_name) + text);
}

bool AttachedQueue::isBroken() {
    if (m_isBroken.load(std::memory_order_relaxed))
        return true;
    if (m_pMapping->faulted())
        setBroken("its file has been cut short");
    else if (header().broken.load(std::memory_order_relaxed) != 0)
        setBroken("another process has found it damaged");
    return m_isBroken.load(std::memory_order_relaxed);
}

void AttachedQueue::setBroken(const std::string& how) {
    if (m_isBroken.exchange(true))
        return;
    logLine("QUEUE", LogOutput::eError,
            described(m_name) + how + "; its messages are lost, it must be made anew");
    header().broken.store(1, std::memory_order_relaxed);
    header().dataEvent.wakeAll();
    header().spaceEvent.wakeAll();
}

void AttachedQueue::setObservers(MessageQueue::Observer* pOfSent, MessageQueue::Observer* pOfReceived) {
    s_pObserverOfSent.store(pOfSent, std::memory_order_release);
    s_pObserverOfReceived.store(pOfReceived, std::memory_order_release);
}

bool AttachedQueue::send(const unsigned char* data, int length, int timeout) {
    std::uint32_t number = 0;
    const bool isSent = push(data, length, timeout, number);
    if (auto* const pObserver = s_pObserverOfSent.load(std::memory_order_acquire))
        pObserver->sent(m_name, number, data, length, isSent);
    return isSent;
}

bool AttachedQueue::push(const unsigned char* data, int length, int timeout, std::uint32_t& number) {
    if (length < 0 || static_cast<std::uint32_t>(length) > m_ring.geometry().messageSize) {
        report(m_tooLong, LogOutput::eError,
               "a message of " + std::to_string(length) + " bytes was not sent, at most " +
                   std::to_string(m_ring.geometry().messageSize) + " are possible");
        return false;
    }
    WaitNote note(*this);
    Deadline deadline(timeout, &note);
    while (!isBroken()) {
        // A wait for the lock is a short one unless its holder has been stopped.
        const auto locked = m_senderLock.lock(deadline);
        if (locked == SenderLock::EResult::TimedOut)
            return false;
        if (locked != SenderLock::EResult::Locked) {
            setBroken(locked == SenderLock::EResult::Unmapped ? "its file has been cut short"
                                                              : "its lock has been overwritten");
            return false;
        }
        const auto result = m_ring.push(data, static_cast<std::uint32_t>(length));
        const int error = errno;
        if (result == QueueRing::EResult::Done)
            number = m_ring.sent();
        if (result == QueueRing::EResult::Full && note.waitsForRoom()) {
            auto& waits = header().waits;
            waits.store(waits.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
        }
        if (!m_senderLock.unlock()) {
            setBroken("its lock has been overwritten");
            return false;
        }
        switch (result) {
            case QueueRing::EResult::Done:
                if (m_hasFences)
                    header().dataEvent.signalFenced();
                else
                    header().dataEvent.signal();
                return !isBroken();
            case QueueRing::EResult::Full:
                if (!waitForSpace(deadline))
                    return false;
                note.waitsForLock();
                break;
            case QueueRing::EResult::NoMemory:
                report(m_noMemory, LogOutput::eError,
                       std::string("no memory for a message: ") + std::strerror(error));
                return false;
            default:
                setBroken("its indices make no sense");
                return false;
        }
    }
    return false;
}

bool AttachedQueue::waitForSpace(Deadline& deadline) {
    QueueEvent& event = header().spaceEvent;
    for (;;) {
        const auto isOver = [this] { return isBroken() || m_ring.depth() < m_ring.geometry().capacity; };
        const QueueEvent::Prepared prepared = event.prepareFenced();
        if (isOver())
            return true;
        const std::string why = whyNoReceiver();
        // It may have made room last thing before it died.
        if (!why.empty() && m_ring.depth() >= m_ring.geometry().capacity) {
            report(m_noReceiver, LogOutput::eError, "full, and " + why);
            return false;
        }
        const auto time = deadline.left(s_slice);
        if (time == Deadline::Clock::duration::zero())
            return false;
        if (event.wait(prepared, time, isOver) == EFutexWake::Unmapped)
            setBroken("its file has been cut short");
    }
}

bool AttachedQueue::isWorthALock() {
    if (isBroken())
        return false;
    const std::string why = whyNoReceiver();
    if (!why.empty())
        report(m_noReceiver, LogOutput::eError, "locked by another sender, and " + why);
    return why.empty();
}

std::string AttachedQueue::whyNoReceiver() const {
    if (m_isReceiver || m_pFile->receiverLives())
        return {};
    const std::uint32_t generation = header().receiverGeneration.load(std::memory_order_acquire);
    if (generation != 0)
        return "its reader (process " + std::to_string(header().receiverPid.load(std::memory_order_relaxed)) +
               ") has ended";
    if (m_isReceiverGone.load(std::memory_order_relaxed))
        return "the process that was to read it has ended";
    if (!m_isCreator && !m_pFile->creatorLives())
        return "the process that made it has ended";
    return {};
}

void AttachedQueue::receiverGone() {
    // Counts only until a first one attaches; from then on the lock tells.
    m_isReceiverGone.store(true, std::memory_order_relaxed);
    header().spaceEvent.wakeAll();
}

bool AttachedQueue::hasReader() const {
    return header().receiverGeneration.load(std::memory_order_acquire) != 0;
}

std::shared_ptr<FutexWord> AttachedQueue::awaitedReader() const {
    if (hasReader() || m_isReceiverGone.load(std::memory_order_relaxed))
        return nullptr;
    return {m_pMapping, &header().receiverGeneration};
}

void AttachedQueue::threadStops() {
    m_stopCount.store(QueueCursor::unpack(header().tail.load(std::memory_order_acquire)).count,
                      std::memory_order_relaxed);
    m_isStopping.store(true, std::memory_order_release);
    header().dataEvent.wakeAll();
}

void AttachedQueue::follow(const std::shared_ptr<ThreadState>* pThread) {
    if (pThread ? m_pThread == *pThread : !m_pThread)
        return;
    if (m_pThread)
        m_pThread->remove(*this);
    m_pThread = pThread ? *pThread : nullptr;
    m_isStopping.store(false, std::memory_order_relaxed);
    if (m_pThread) {
        m_pThread->add(*this);
        // "SYS receive" from the queue "SYS_OUTQ".
        const std::string_view name = m_name;
        base::nameThread(name.substr(0, name.rfind('_')), "receive");
    }
}

bool AttachedQueue::isDrained() const {
    const std::uint32_t standing =
        (m_stopCount.load(std::memory_order_relaxed) - m_ring.received()) & QueueCursor::s_countMask;
    return standing == 0 || standing > m_ring.geometry().capacity;
}

bool AttachedQueue::claimReceiver() {
    if (m_isReceiver)
        return true;
    if (!m_pFile->takeReceiver()) {
        report(m_secondReceiver, LogOutput::eError,
               "another reader (process " +
                   std::to_string(header().receiverPid.load(std::memory_order_relaxed)) + ") has it");
        return false;
    }
    m_isReceiver = true;
    header().receiverPid.store(static_cast<std::uint32_t>(::getpid()), std::memory_order_relaxed);
    header().receiverGeneration.fetch_add(1, std::memory_order_acq_rel);
    futexWake(header().receiverGeneration, INT_MAX, EFutexScope::Shared);
    if (!m_ring.beginReceiving())
        setBroken("its indices make no sense");
    return true;
}

int AttachedQueue::receive(unsigned char* buffer, int size, int timeout) {
    follow(ThreadState::current());
    if (!isBroken() && !claimReceiver())
        return refuse(timeout);
    Deadline deadline(timeout);
    while (!isBroken()) {
        const bool isStopping = m_isStopping.load(std::memory_order_acquire);
        if (isStopping && isDrained())
            return -1;
        std::uint32_t length = 0;
        switch (m_ring.pop(buffer, static_cast<std::uint32_t>(std::max(size, 0)), length)) {
            case QueueRing::EResult::Done:
                if (m_pMapping->faulted())
                    break;
                wakeSenders();
                if (++m_receivedInARow == s_stream && m_hasFences)
                    header().dataEvent.promiseFence();
                if (m_ring.hasEnteredChunk())
                    trimWhenLow();
                length = std::min(length, static_cast<std::uint32_t>(std::max(size, 0)));
                if (auto* const pObserver = s_pObserverOfReceived.load(std::memory_order_acquire))
                    pObserver->received(m_name, m_ring.received(), buffer, static_cast<int>(length));
                return static_cast<int>(length);
            case QueueRing::EResult::Empty:
                if (isStopping || deadline.left(s_slice) == Deadline::Clock::duration::zero())
                    return -1;
                waitForData(deadline);
                break;
            default:
                setBroken(m_pMapping->faulted() ? "its file has been cut short"
                                                : "its indices make no sense");
                break;
        }
    }
    if (!m_hasSaidBroken) {
        m_hasSaidBroken = true;
        return -1;
    }
    return refuse(timeout);
}

void AttachedQueue::waitForData(Deadline& deadline) {
    QueueEvent& event = header().dataEvent;
    m_receivedInARow = 0;
    const auto isOver = [this] {
        return m_ring.depth() > 0 || m_isStopping.load(std::memory_order_acquire) || isBroken();
    };
    const QueueEvent::Prepared prepared = event.prepare();
    if (isOver())
        return;
    trimWhenLow();
    if (auto* const pObserver = s_pObserverOfReceived.load(std::memory_order_acquire))
        pObserver->waits(m_name);
    if (event.wait(prepared, deadline.left(s_slice), isOver) == EFutexWake::Unmapped)
        setBroken("its file has been cut short");
}

void AttachedQueue::wakeSenders() {
    const std::uint32_t capacity = m_ring.geometry().capacity;
    const std::uint32_t few = capacity - std::max(capacity / 4, 1U);
    if (m_ring.left() > few)
        return;
    QueueEvent& event = header().spaceEvent;
    if (m_hasFences) {
        lightFence();
        if (event.seemsAwaited() && m_ring.countLeft() <= few)
            event.wakeAll();
        return;
    }
    // A sender that is only just beginning to wait can be missed by the cheap look; the next message finds
    // it, and after the last one the sure way is taken.
    const bool seemsLast = m_ring.left() == 0;
    if ((!seemsLast && !event.seemsAwaited()) || m_ring.countLeft() > few)
        return;
    if (m_ring.left() == 0 || event.seemsAwaited())
        event.signal();
}

void AttachedQueue::trimWhenLow() {
    if (m_ring.wantsTrim(std::chrono::steady_clock::now()) && m_senderLock.tryLock()) {
        m_ring.trim();
        if (!m_senderLock.unlock())
            setBroken("its lock has been overwritten");
    }
}

int AttachedQueue::refuse(int timeout) const {
    auto time = s_refusal;
    if (timeout >= 0)
        time = std::min(time, std::chrono::milliseconds(timeout));
    if (m_pThread)
        m_pThread->pause(time);
    else
        std::this_thread::sleep_for(time);
    return -1;
}

MessageQueue::Status AttachedQueue::status() const {
    const QueueHeader& shared = header();
    MessageQueue::Status status;
    status.name = m_name;
    status.capacity = m_ring.geometry().capacity;
    status.depth = m_ring.depth();
    status.highWater = shared.highWater.load(std::memory_order_relaxed);
    status.messages = shared.messages.load(std::memory_order_relaxed);
    status.bytes = shared.bytes.load(std::memory_order_relaxed);
    status.waits = shared.waits.load(std::memory_order_relaxed);
    status.holders = m_pFile->holders();
    status.receiverAttached = m_isReceiver || m_pFile->receiverLives();
    status.receiverPid = shared.receiverPid.load(std::memory_order_relaxed);
    status.received = QueueCursor::unpack(shared.head.load(std::memory_order_acquire)).count;
    status.isAttached = status.holders > 1;
    status.wasAttached = shared.nextTicket.load(std::memory_order_relaxed) != m_nextTicket;
    // Last, since the looks before may have found a part of the file missing.
    status.isBroken = m_isBroken.load(std::memory_order_relaxed) || m_pMapping->faulted() ||
                      shared.broken.load(std::memory_order_relaxed) != 0 ||
                      !m_pFile->hasSize(m_ring.geometry().fileSize);
    const std::lock_guard lock(m_waitsMutex);
    const auto now = Deadline::Clock::now();
    const auto longer = [now](unsigned int other, Deadline::Clock::time_point since) {
        const auto waited = std::chrono::duration_cast<std::chrono::milliseconds>(now - since).count();
        return std::max(other, static_cast<unsigned int>(std::max<std::int64_t>(waited, 1)));
    };
    for (const WaitEntry* pEntry : m_waits) {
        status.waitingForMs = longer(status.waitingForMs, pEntry->since);
        if (pEntry->lockSince)
            status.lockedForMs = longer(status.lockedForMs, *pEntry->lockSince);
    }
    return status;
}

MessageQueue::Level AttachedQueue::level() const {
    return {.capacity = m_ring.geometry().capacity,
            .depth = m_ring.depth(),
            .received = QueueCursor::unpack(header().head.load(std::memory_order_acquire)).count,
            .made = m_made};
}

bool AttachedQueue::removeName() {
    return m_pFile->removeName();
}

void AttachedQueue::abandon() {
    m_isBroken.store(true);
    m_pFile->abandon();
    if (const auto pWatch = m_pCreatorWatch.lock())
        pWatch->reset();
}

}  // namespace sal
