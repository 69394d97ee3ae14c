#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "sal/Export.h"

namespace sal {

/// A named queue of whole messages between processes of one user: any number of senders (processes and
/// threads), one receiver. Messages of one sender keep their order. Either end may die at any instant without
/// harm to the other.
///
/// create() and open() are called by one thread; send() by any thread, and it fails until then; receive() by
/// one thread at a time. Time-outs are milliseconds, -1 for ever, 0 never waits.
class SAL_API MessageQueue {
public:
    MessageQueue();
    ~MessageQueue();  ///< closes
    MessageQueue(const MessageQueue&) = delete;
    MessageQueue& operator=(const MessageQueue&) = delete;

    /// Makes the queue and becomes its creator. Takes over a name that a dead process left; false while a
    /// live process still holds it (after waiting up to 50 ms for it to go), when the directory is not ours
    /// alone, or when memory is short. Logged, but of several refusals of a name in a row only where the
    /// reason changes. mode 0 is the only one.
    bool create(const std::string& name, unsigned short capacity, int messageSize, int mode);

    /// Attaches to a queue whose creator lives. False, logged, when there is none, when it is malformed, or
    /// when it was made in another PID namespace. In a process that sal::Process::createProcess has started
    /// also when another process than its starter made the queue, or made it after the start.
    bool open(const std::string& name);

    /// Waits while the queue is full, or another sender stays in it. False at the end of the time-out, when
    /// the receiver has died, when the message is longer than the queue takes, when memory is short, when the
    /// queue is broken or was never made. Before a first receiver has attached it waits, unless
    /// receiverGone() was said of it.
    bool send(const unsigned char* data, int length, int timeout);

    /// The next message's length, or -1: nothing came in time, the calling sal::Thread is being shut down and
    /// what stood in the queue at that moment has been delivered, or the queue is broken or was never made.
    /// A message longer than size is cut.
    int receive(unsigned char* buffer, int size, int timeout);

    /// Whether no message passes the queue any more, since it was found damaged. False of one that was never
    /// made. Any thread.
    bool isBroken() const;

    /// Detaches; the last object to close removes the name. No thread may be inside send() or receive().
    void close();

    /// Blocks until the queue's creator has closed it or died, however it went; at once when that has
    /// happened. For a driver process, on a thread of its own. False when this object is not attached by
    /// open().
    bool waitForCreatorEnd() const;

    /// The process that was to receive from the queue of that name has ended: senders of this process that
    /// wait on it are released, until another receiver attaches. A queue that was made after the process was
    /// started is not the one that it was to receive from. Any thread.
    static void receiverGone(const std::string& name, std::chrono::steady_clock::time_point started =
                                                          std::chrono::steady_clock::time_point::max());

    /// Whether a receiver has ever claimed the queue of that name, which this process has made; false when it
    /// has made none. One look at the queue. Any thread.
    static bool hasReader(const std::string& name);

    /// Waits until at most that many of these queues still wait for their first receiver. A queue that this
    /// process has not made or has closed does not count, nor does one of which receiverGone() was said.
    /// False at the end of the time-out. Any thread.
    static bool waitForReaders(const std::vector<std::string>& names, std::size_t most, int timeout);

    struct Status {
        std::string name;
        unsigned int capacity = 0;
        unsigned int depth = 0;      ///< messages in it now
        unsigned int highWater = 0;  ///< most messages that were ever in it
        std::uint64_t messages = 0;  ///< sent since creation
        std::uint64_t bytes = 0;
        std::uint64_t waits = 0;        ///< how often a sender found it full
        unsigned int holders = 0;       ///< attached objects, all processes
        unsigned int waitingForMs = 0;  ///< how long a sender of this process has been waiting; 0 for none
        unsigned int lockedForMs = 0;   ///< the same of one that waits for another sender to leave the queue
        bool receiverAttached = false;
        unsigned int receiverPid =
            0;  ///< of the process that receives or received last, as it says; 0 for none
        std::uint32_t received = 0;  ///< messages taken out; begins again at 2^24
        bool isBroken = false;       ///< found damaged: no message passes it any more
        bool isAttached = false;     ///< an object beside this one is attached, in any process
        bool wasAttached = false;    ///< is or was so
    };
    /// The queues that this process has created, by name. Any thread; never blocks on a peer.
    static std::vector<Status> statuses();

    struct Level {
        unsigned int capacity = 0;
        unsigned int depth = 0;                        ///< messages in it now
        std::uint32_t received = 0;                    ///< messages taken out; begins again at 2^24
        std::chrono::steady_clock::time_point made{};  ///< differs for each queue that has that name in turn
    };
    /// How full the queue of that name is, which this process has made; nothing when it has made none. One
    /// look at the queue, without a system call. Any thread.
    static std::optional<Level> level(const std::string& name);

    /// Learns of the messages that this process sends and takes out, whichever queues they are in; on the
    /// thread that does it, which waits for it.
    class Observer {
    public:
        virtual ~Observer() = default;
        /// At the end of send(), with what it returns. number counts the messages sent to that queue, this
        /// one included, and begins again at 2^24: the message is taken when Level::received has come to it.
        /// 0 of a message that was not sent.
        virtual void sent(const std::string& queue, std::uint32_t number, const unsigned char* data,
                          int length, bool ok) = 0;
        /// At the end of receive(), with what it returns. number counts the messages taken out, in the same
        /// way.
        virtual void received(const std::string& queue, std::uint32_t number, const unsigned char* data,
                              int length) = 0;
        /// The receiving thread finds nothing more and begins to wait.
        virtual void waits(const std::string& /*queue*/) {}
    };
    enum class EObserved { Sent, Received, Both };
    /// Null takes the observer out. What is not observed costs one look at a pointer. Set at start, taken out
    /// when no other thread sends or receives any more.
    static void setObserver(Observer* pObserver, EObserved what = EObserved::Both);

    /// Empty, or why no queue can ever have that name. Any thread.
    static std::string nameFault(const std::string& name);

    /// Tries out whether create() of that name would succeed after what this process holds of it has been
    /// closed. Empty, or why not: that is the caller's to say, create() does not log the same again. Any
    /// thread.
    static std::string createFault(const std::string& name);

    /// Whether no process has any of these names and the first one can be made: then createFault() would find
    /// no fault with any of them. Much faster than asking for each. False also when it cannot be told. Any
    /// thread.
    static bool areFree(const std::vector<std::string>& names);

    /// A name that create() has refused several times within the last moments.
    struct Refusal {
        std::string name;
        std::string why;
        unsigned int forMs = 0;  ///< from the first to the last of them
    };
    /// Any thread; never blocks on a peer.
    static std::vector<Refusal> refusals();

    /// Takes the name of a queue from processes that do not let go of it, unless the host that made it lives,
    /// and marks the queue as broken for them. True when the name is free now. Any thread.
    static bool retire(const std::string& name);

    /// Ends a caller's loop that repeats create() until it succeeds: as long as the name goes on being
    /// refused as refusals() told, its next create() returns true even where it makes no queue; open() of
    /// that name, send() and receive() then fail. With that the loop is over: what is refused later is
    /// another refusal. Any thread.
    static void passNextCreate(const Refusal& refusal);

    /// Before an _exit() that destroys nothing: removes the names of those queues of this process to which
    /// nobody else is attached. True when no name is left. No queue is good for anything else from then on.
    /// Any thread, whatever the others are doing.
    static bool removeNames();

private:
    struct Impl;
    std::unique_ptr<Impl> m_pImpl;
};

}  // namespace sal
