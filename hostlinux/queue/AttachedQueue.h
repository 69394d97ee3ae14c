#pragma once

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "QueueFile.h"
#include "QueueMapping.h"
#include "QueueRing.h"
#include "SenderLock.h"
#include "ThreadState.h"
#include "Throttle.h"
#include "sal/MessageQueue.h"

namespace sal {

/// A queue that this process is attached to: waiting, time-outs and wake-ups round the ring of messages, and
/// the reports of what goes wrong. Owned by MessageQueue and known to QueueRegistry. send() on any thread,
/// receive() on one at a time, the rest as it says.
class AttachedQueue final : private ThreadState::Listener {
public:
    /// Null when it cannot be had; the reason is in the log.
    static std::unique_ptr<AttachedQueue> create(const std::string& name, unsigned short capacity,
                                                 int messageSize);
    /// Empty, or why create() of that name would not succeed; not logged.
    static std::string createFault(const std::string& name);
    /// The second result is for QueueFile::waitForCreatorEnd().
    static std::unique_ptr<AttachedQueue> open(const std::string& name,
                                               std::shared_ptr<const base::UniqueFd>& pCreatorWatch);
    ~AttachedQueue();
    AttachedQueue(const AttachedQueue&) = delete;
    AttachedQueue& operator=(const AttachedQueue&) = delete;

    bool send(const unsigned char* data, int length, int timeout);
    int receive(unsigned char* buffer, int size, int timeout);
    /// Any thread.
    bool isBroken();

    const std::string& name() const { return m_name; }
    bool isCreator() const { return m_isCreator; }

    /// Any thread, under the registry's lock.
    MessageQueue::Status status() const;
    MessageQueue::Level level() const;
    void receiverGone();
    /// When this object was.
    std::chrono::steady_clock::time_point made() const { return m_made; }
    bool removeName();

    /// Whether a receiver has ever claimed the queue. Any thread, under the registry's lock.
    bool hasReader() const;
    /// The word that changes when a first receiver claims the queue, in memory that stays mapped as long as
    /// the result is kept. Null when that is not waited for: one has, or receiverGone() was said. Any thread,
    /// under the registry's lock.
    std::shared_ptr<FutexWord> awaitedReader() const;

    /// In a forked child, whose only thread this is: lets go of what belongs to the parent.
    void abandon();

    /// Who learns of the messages of all queues; null for nobody. See MessageQueue::setObserver().
    static void setObservers(MessageQueue::Observer* pOfSent, MessageQueue::Observer* pOfReceived);

private:
    class WaitNote;
    /// Since when a sender waits, and for the senders' lock.
    struct WaitEntry {
        Deadline::Clock::time_point since;
        std::optional<Deadline::Clock::time_point> lockSince;
    };

    AttachedQueue(std::string name, bool isCreator, std::unique_ptr<QueueFile> pFile,
                  std::unique_ptr<QueueMapping> pMapping, const QueueGeometry& geometry, std::uint32_t ticket,
                  bool hasFences);
    static std::unique_ptr<AttachedQueue> make(const std::string& name, bool isCreator,
                                               std::unique_ptr<QueueFile> pFile,
                                               const QueueGeometry& geometry, std::string& error);

    static std::unique_ptr<AttachedQueue> tryCreate(const std::string& name, const QueueGeometry& geometry,
                                                    QueueFile::EResult& result, std::string& error);

    /// number comes back as the message's; unchanged when it is not sent.
    bool push(const unsigned char* data, int length, int timeout, std::uint32_t& number);
    void report(base::Throttle& throttle, int level, const std::string& text) const;
    void setBroken(const std::string& how);

    bool waitForSpace(Deadline& deadline);
    /// Whether a sender that waits for another one's lock may still hope that its message is taken.
    bool isWorthALock();
    /// Why no process takes messages out any more; empty while one does or may yet come.
    std::string whyNoReceiver() const;

    void threadStops() override;
    void follow(const std::shared_ptr<ThreadState>* pThread);
    bool isDrained() const;
    bool claimReceiver();
    void waitForData(Deadline& deadline);
    void wakeSenders();
    void trimWhenLow();
    /// The answer of a receive that cannot succeed: slow, so that a loop round it does not burn a processor.
    int refuse(int timeout) const;

    QueueHeader& header() const { return m_ring.header(); }

    // The file goes last: its name is removed when everything else has let go.
    const std::string m_name;
    const std::chrono::steady_clock::time_point m_made = std::chrono::steady_clock::now();
    const bool m_isCreator;
    const std::unique_ptr<QueueFile> m_pFile;
    std::weak_ptr<base::UniqueFd> m_pCreatorWatch;  ///< what open() has handed out
    const std::shared_ptr<QueueMapping> m_pMapping;
    QueueRing m_ring;
    const bool m_hasFences;            ///< this process has joined the process fences
    const std::uint32_t m_nextTicket;  ///< the first that another handle could have taken
    SenderLock m_senderLock;
    std::atomic<bool> m_isBroken{false};
    std::atomic<bool> m_isReceiverGone{false};  ///< its process has ended before it attached

    mutable std::mutex m_waitsMutex;
    std::vector<const WaitEntry*> m_waits;  ///< of each sender that waits

    // Written by the receiving thread, but for the two that threadStops() sets.
    std::atomic<bool> m_isReceiver{false};
    bool m_hasSaidBroken = false;
    unsigned int m_receivedInARow = 0;          ///< since the last wait
    std::shared_ptr<ThreadState> m_pThread;     ///< the sal::Thread that received last
    std::atomic<std::uint32_t> m_stopCount{0};  ///< the place up to which a stopped thread still receives
    std::atomic<bool> m_isStopping{false};

    mutable base::Throttle m_tooLong;
    mutable base::Throttle m_noMemory;
    mutable base::Throttle m_noReceiver;
    mutable base::Throttle m_secondReceiver;
};

}  // namespace sal
