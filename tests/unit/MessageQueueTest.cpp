#include "sal/MessageQueue.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <thread>

#include "HangGuard.h"
#include "NumberedMessage.h"
#include "QueueLayout.h"
#include "QueuePeer.h"
#include "Rounds.h"
#include "sal/Thread.h"

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

/// A receiving thread whose body is given by the test; shut down at the latest when it goes.
class Receiver : public sal::Thread {
public:
    explicit Receiver(std::function<void()> body) : m_body(std::move(body)) { start(ePriorityNormal); }
    ~Receiver() override { shutdown(-1); }

private:
    void run() override { m_body(); }

    std::function<void()> m_body;
};

/// Each test has a queue directory of its own.
class MessageQueue : public testing::Test {
protected:
    void SetUp() override {
        // The process of a death test never comes to its end, so it uses the directory of its parent.
        if (const char* pParents = std::getenv("MFD_QUEUE_TEST_DIRECTORY"); pParents != nullptr) {
            m_directory = pParents;
        } else {
            std::string path = "/dev/shm/mfd-queue-test-XXXXXX";
            ASSERT_NE(::mkdtemp(path.data()), nullptr);
            m_directory = path;
            ::setenv("MFD_QUEUE_TEST_DIRECTORY", m_directory.c_str(), 1);
        }
        ::setenv("MFD_QUEUE_DIR", m_directory.c_str(), 1);
    }

    void TearDown() override {
        ::unsetenv("MFD_QUEUE_DIR");
        ::unsetenv("MFD_QUEUE_TEST_DIRECTORY");
        std::filesystem::remove_all(m_directory);
    }

    std::string file(const std::string& name) const { return m_directory + "/" + name; }

    std::vector<std::string> files() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(m_directory)) {
            names.push_back(entry.path().filename());
        }
        return names;
    }

    std::uint64_t memoryOf(const std::string& name) const {
        struct stat info {};
        EXPECT_EQ(::stat(file(name).c_str(), &info), 0);
        return static_cast<std::uint64_t>(info.st_blocks) * 512;
    }

    /// Does to a queue's file what a peer that has gone wild might do.
    void scribble(const std::string& name, std::size_t offset, const void* pBytes, std::size_t size) const {
        const int descriptor = ::open(file(name).c_str(), O_RDWR | O_CLOEXEC);
        ASSERT_GE(descriptor, 0);
        EXPECT_EQ(::pwrite(descriptor, pBytes, size, static_cast<off_t>(offset)), static_cast<ssize_t>(size));
        ::close(descriptor);
    }

    /// Turns a cursor back by so many messages, as if as many more had passed as it takes for it to wrap.
    void turnBack(const std::string& name, std::size_t offset, std::uint32_t messages) const {
        const int descriptor = ::open(file(name).c_str(), O_RDONLY | O_CLOEXEC);
        std::uint64_t word = 0;
        ASSERT_EQ(::pread(descriptor, &word, sizeof(word), static_cast<off_t>(offset)),
                  static_cast<ssize_t>(sizeof(word)));
        ::close(descriptor);
        auto cursor = sal::QueueCursor::unpack(word);
        cursor.count -= messages;
        word = cursor.pack();
        scribble(name, offset, &word, sizeof(word));
    }

    /// How many descriptors this process has of queues and of their directory.
    int queueDescriptors() const {
        int count = 0;
        for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
            std::error_code error;
            const std::string target = std::filesystem::read_symlink(entry, error);
            count += target.starts_with(m_directory) ? 1 : 0;
        }
        return count;
    }

    /// Leaves the senders' lock as somebody would who stays inside: with the ticket of who attached last.
    void lockForTheLastWhoAttached(const std::string& name) const {
        const int descriptor = ::open(file(name).c_str(), O_RDONLY | O_CLOEXEC);
        std::uint32_t next = 0;
        ASSERT_EQ(::pread(descriptor, &next, sizeof(next), offsetof(sal::QueueHeader, nextTicket)),
                  static_cast<ssize_t>(sizeof(next)));
        ::close(descriptor);
        const std::uint32_t ticket = next - 1;
        scribble(name, offsetof(sal::QueueHeader, senderLock) + offsetof(sal::SenderLockWords, holder),
                 &ticket, sizeof(ticket));
    }

    /// Whether the process comes to that state in time: T for one that is stopped, S for one that waits.
    static bool becomes(const QueuePeer& peer, char state) {
        return waitUntil([&] {
            std::ifstream stream("/proc/" + std::to_string(peer.pid()) + "/stat");
            std::string text;
            std::getline(stream, text);
            return text.find(std::string(") ") + state) != std::string::npos;
        });
    }

    static bool sendText(sal::MessageQueue& queue, const std::string& text, int timeout = 0) {
        return queue.send(reinterpret_cast<const unsigned char*>(text.data()), static_cast<int>(text.size()),
                          timeout);
    }

    static std::string receiveText(sal::MessageQueue& queue, int timeout = 0) {
        std::array<unsigned char, 1024> buffer{};
        const int length = queue.receive(buffer.data(), static_cast<int>(buffer.size()), timeout);
        return length < 0 ? "nothing" : std::string(buffer.begin(), buffer.begin() + length);
    }

    static bool sendNumber(sal::MessageQueue& queue, std::uint32_t sender, std::uint32_t number,
                           int timeout) {
        const auto bytes = NumberedMessage{sender, number}.bytes();
        return queue.send(bytes.data(), static_cast<int>(bytes.size()), timeout);
    }

    static void fillWith(sal::MessageQueue& queue, const std::string& text) {
        while (sendText(queue, text)) {
        }
    }

    /// Runs the body and answers what it wrote to standard error, where the log goes in a program without
    /// one.
    static std::string logOf(const std::function<void()>& body) {
        testing::internal::CaptureStderr();
        body();
        return testing::internal::GetCapturedStderr();
    }

    static bool waitUntil(const std::function<bool()>& condition) { return eventually(condition, 1ms); }

    static sal::MessageQueue::Status statusOf(const std::string& name) {
        for (const auto& status : sal::MessageQueue::statuses()) {
            if (status.name == name) {
                return status;
            }
        }
        return {};
    }

    static std::size_t openDescriptors() {
        const std::filesystem::directory_iterator entries("/proc/self/fd");
        return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
    }

    std::string m_directory;
};

// Who is told of messages.

/// Writes down what it learns, one line a message.
class NotingObserver : public sal::MessageQueue::Observer {
public:
    explicit NotingObserver(sal::MessageQueue::EObserved what = sal::MessageQueue::EObserved::Both) {
        sal::MessageQueue::setObserver(this, what);
    }
    ~NotingObserver() override { sal::MessageQueue::setObserver(nullptr); }

    void sent(const std::string& queue, std::uint32_t number, const unsigned char* data, int length,
              bool ok) override {
        note("sent", queue, number, data, length, ok ? "" : " refused");
    }
    void received(const std::string& queue, std::uint32_t number, const unsigned char* data,
                  int length) override {
        note("received", queue, number, data, length, "");
    }
    void waits(const std::string& queue) override { waited.insert(queue); }

    std::set<std::string> waited;  ///< on which queues
    std::vector<std::string> lines;

private:
    void note(const std::string& what, const std::string& queue, std::uint32_t number,
              const unsigned char* data, int length, const std::string& end) {
        lines.push_back(what + " " + queue + " " + std::to_string(number) + " " +
                        std::string(data, data + length) + end);
    }
};

using Lines = std::vector<std::string>;

TEST_F(MessageQueue, ObserverLearnsOfEachMessageWithItsNumber) {
    sal::MessageQueue sut;
    sal::MessageQueue other;
    ASSERT_TRUE(sut.create("Q", 10, 100, 0));
    ASSERT_TRUE(other.create("R", 10, 100, 0));
    sendText(sut, "before");
    NotingObserver observer;
    sendText(sut, "one");
    sendText(other, "two");
    EXPECT_EQ(receiveText(sut), "before");
    EXPECT_EQ(receiveText(sut), "one");
    EXPECT_EQ(receiveText(sut), "nothing");
    EXPECT_EQ(observer.lines,
              (Lines{"sent Q 2 one", "sent R 1 two", "received Q 1 before", "received Q 2 one"}));
}

TEST_F(MessageQueue, ObserverLearnsThatAReceiverFindsNothingMore) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 4, 32, 0));
    NotingObserver observer;
    std::array<unsigned char, 32> buffer{};
    sut.send(buffer.data(), 3, 0);
    EXPECT_EQ(sut.receive(buffer.data(), 32, 0), 3);
    EXPECT_EQ(sut.receive(buffer.data(), 32, 0), -1);
    EXPECT_EQ(observer.waited, std::set<std::string>{});
    EXPECT_EQ(sut.receive(buffer.data(), 32, 1), -1);
    EXPECT_EQ(observer.waited, std::set<std::string>{"Q"});
}

TEST_F(MessageQueue, ObserverLearnsOfAMessageThatIsNotSent) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 1, 4, 0));
    sendText(sut, "one");
    NotingObserver observer;
    EXPECT_FALSE(sendText(sut, "two"));
    logOf([&] { EXPECT_FALSE(sendText(sut, "three")); });
    EXPECT_EQ(observer.lines, (Lines{"sent Q 0 two refused", "sent Q 0 three refused"}));
}

TEST_F(MessageQueue, ObserverGetsAsMuchOfAMessageAsItsReceiver) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 10, 100, 0));
    sendText(sut, "abcdef");
    NotingObserver observer;
    std::array<unsigned char, 3> buffer{};
    EXPECT_EQ(sut.receive(buffer.data(), 3, 0), 3);
    EXPECT_EQ(observer.lines, (Lines{"received Q 1 abc"}));
}

TEST_F(MessageQueue, ObserverLearnsOnlyOfWhatItObserves) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 10, 100, 0));
    {
        const NotingObserver observer(sal::MessageQueue::EObserved::Sent);
        sendText(sut, "one");
        receiveText(sut);
        EXPECT_EQ(observer.lines, (Lines{"sent Q 1 one"}));
    }
    const NotingObserver observer(sal::MessageQueue::EObserved::Received);
    sendText(sut, "two");
    receiveText(sut);
    EXPECT_EQ(observer.lines, (Lines{"received Q 2 two"}));
}

TEST_F(MessageQueue, NumbersOfMessagesBeginAgainAfterTheyHaveWrapped) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 10, 100, 0));
    const std::uint64_t place = sal::QueueCursor{sal::QueueCursor::s_countMask - 1, 0, 0}.pack();
    scribble("Q", offsetof(sal::QueueHeader, tail), &place, 8);
    scribble("Q", offsetof(sal::QueueHeader, head), &place, 8);
    NotingObserver observer;
    for (const char* text : {"a", "b", "c"})
        sendText(sut, text);
    EXPECT_EQ(observer.lines, (Lines{"sent Q 16777215 a", "sent Q 0 b", "sent Q 1 c"}));
    receiveText(sut);
    receiveText(sut);
    EXPECT_EQ(sal::MessageQueue::level("Q")->received, 0u);
}

// Messages.

TEST_F(MessageQueue, StatusCountsWhatWasTakenOut) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 10, 100, 0));
    for (int i = 0; i < 3; ++i)
        sendText(sut, "text");
    EXPECT_EQ(0u, statusOf("Q").received);
    receiveText(sut);
    receiveText(sut);
    EXPECT_EQ(2u, statusOf("Q").received);
}

TEST_F(MessageQueue, LevelSaysHowFullAQueueOfThisProcessIs) {
    EXPECT_FALSE(sal::MessageQueue::level("Q"));
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 10, 100, 0));
    for (int i = 0; i < 3; ++i)
        sendText(sut, "text");
    receiveText(sut);
    const auto level = sal::MessageQueue::level("Q");
    ASSERT_TRUE(level);
    EXPECT_EQ(level->capacity, 10u);
    EXPECT_EQ(level->depth, 2u);
    EXPECT_EQ(level->received, 1u);
    sut.close();
    EXPECT_FALSE(sal::MessageQueue::level("Q"));
    ASSERT_TRUE(sut.create("Q", 10, 100, 0));
    EXPECT_GT(sal::MessageQueue::level("Q")->made, level->made);
}

TEST_F(MessageQueue, DeliversWhatWasSent) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("AXIS1_INQ", 4, 1024, 0));
    ASSERT_TRUE(sendText(sut, "CRTFID"));
    EXPECT_EQ(receiveText(sut), "CRTFID");
}

TEST_F(MessageQueue, DeliversToAnotherObjectOfTheSameName) {
    sal::MessageQueue sut;
    sal::MessageQueue other;
    ASSERT_TRUE(sut.create("AXIS1_INQ", 4, 1024, 0));
    ASSERT_TRUE(other.open("AXIS1_INQ"));
    ASSERT_TRUE(sendText(sut, "DEINIT"));
    EXPECT_EQ(receiveText(other), "DEINIT");
}

TEST_F(MessageQueue, DeliversAnEmptyMessage) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 4, 1024, 0));
    ASSERT_TRUE(sut.send(nullptr, 0, 0));
    unsigned char byte = 0;
    EXPECT_EQ(sut.receive(&byte, 1, 0), 0);
}

TEST_F(MessageQueue, TakesAMessageOfTheFullSize) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 4, 1000, 0));
    ASSERT_TRUE(sendText(sut, std::string(1000, 'x')));
    EXPECT_EQ(receiveText(sut), std::string(1000, 'x'));
}

TEST_F(MessageQueue, RefusesAMessageLongerThanItTakes) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 4, 1000, 0));
    EXPECT_EQ(logOf([&] { EXPECT_FALSE(sendText(sut, std::string(1001, 'x'), -1)); }),
              "QUEUE: queue Q: a message of 1001 bytes was not sent, at most 1000 are possible\n");
    EXPECT_EQ(receiveText(sut), "nothing");
}

TEST_F(MessageQueue, RefusesANegativeLength) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 4, 1000, 0));
    const unsigned char byte = 0;
    EXPECT_FALSE(sut.send(&byte, -1, 0));
}

TEST_F(MessageQueue, CutsAMessageLongerThanTheBuffer) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 4, 1024, 0));
    ASSERT_TRUE(sendText(sut, "abcdef"));
    std::array<unsigned char, 4> buffer{'-', '-', '-', '-'};
    EXPECT_EQ(sut.receive(buffer.data(), 3, 0), 3);
    EXPECT_EQ(std::string(buffer.begin(), buffer.end()), "abc-");
}

TEST_F(MessageQueue, DeliversTheNextMessageWholeAfterACutOne) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 4, 1024, 0));
    ASSERT_TRUE(sendText(sut, "abcdef"));
    ASSERT_TRUE(sendText(sut, "ghi"));
    unsigned char byte = 0;
    ASSERT_EQ(sut.receive(&byte, 1, 0), 1);
    EXPECT_EQ(receiveText(sut), "ghi");
}

TEST_F(MessageQueue, HoldsAsManyMessagesAsItsCapacity) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 3, 1024, 0));
    EXPECT_TRUE(sendText(sut, "1"));
    EXPECT_TRUE(sendText(sut, "2"));
    EXPECT_TRUE(sendText(sut, "3"));
    EXPECT_FALSE(sendText(sut, "4"));
}

TEST_F(MessageQueue, HoldsItsCapacityOfTheLargestMessages) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 16384, 1024, 0));
    for (int i = 0; i < 16384; ++i) {
        ASSERT_TRUE(sendText(sut, std::string(1024, 'x')));
    }
    EXPECT_FALSE(sendText(sut, ""));
}

TEST_F(MessageQueue, KeepsTheOrderOfMessagesOfAllSizes) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 300, 1024, 0));
    std::uint32_t sent = 0;
    std::uint32_t received = 0;
    std::array<unsigned char, 1024> buffer{};
    for (int lap = 0; lap < 50; ++lap) {
        while (sendNumber(sut, 1, sent, 0)) {
            ++sent;
        }
        for (int i = 0; i < 200 + lap % 100; ++i, ++received) {
            const auto message = NumberedMessage::read(buffer.data(), sut.receive(buffer.data(), 1024, 0));
            ASSERT_TRUE(message);
            ASSERT_EQ(message->number, received);
        }
    }
}

TEST_F(MessageQueue, TakesMessagesOf64KiB) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 20, 65536, 0));
    std::vector<unsigned char> message(65536, 'm');
    std::vector<unsigned char> buffer(65536);
    for (int lap = 0; lap < 10; ++lap) {
        for (int i = 0; i < 20; ++i) {
            ASSERT_TRUE(sut.send(message.data(), 65536, 0));
        }
        for (int i = 0; i < 20; ++i) {
            ASSERT_EQ(sut.receive(buffer.data(), 65536, 0), 65536);
            ASSERT_EQ(buffer, message);
        }
    }
}

TEST_F(MessageQueue, CountsOnAfterItsCountersHaveWrapped) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 300, 1024, 0));
    const std::uint64_t place =
        sal::QueueCursor{sal::QueueCursor::s_countMask - 1000, sal::QueueCursor::s_sequenceMask - 10, 0}
            .pack();
    scribble("Q", offsetof(sal::QueueHeader, tail), &place, 8);
    scribble("Q", offsetof(sal::QueueHeader, head), &place, 8);
    std::array<unsigned char, 1024> buffer{};
    for (std::uint32_t number = 0; number < 5000; ++number) {
        ASSERT_TRUE(sendNumber(sut, 1, number, 0));
        if (number >= 200) {
            const auto message = NumberedMessage::read(buffer.data(), sut.receive(buffer.data(), 1024, 0));
            ASSERT_TRUE(message);
            ASSERT_EQ(message->number, number - 200);
        }
    }
    for (int i = 0; i < 200; ++i) {
        ASSERT_NE(receiveText(sut), "nothing");
    }
    EXPECT_EQ(logOf([&] { EXPECT_EQ(receiveText(sut), "nothing"); }), "");
}

TEST_F(MessageQueue, KeepsTheOrderOfEachSendingThread) {
    sal::MessageQueue sut;
    sal::MessageQueue other;
    ASSERT_TRUE(sut.create("Q", 50, 1024, 0));
    ASSERT_TRUE(other.open("Q"));
    constexpr std::uint32_t each = 2000;
    std::vector<std::thread> senders;
    for (std::uint32_t sender = 0; sender < 4; ++sender) {
        senders.emplace_back([&, sender] {
            for (std::uint32_t number = 0; number < each; ++number) {
                EXPECT_TRUE(sendNumber(sender < 2 ? sut : other, sender, number, -1));
            }
        });
    }
    std::map<std::uint32_t, std::uint32_t> next;
    std::array<unsigned char, 1024> buffer{};
    for (std::uint32_t i = 0; i < 4 * each; ++i) {
        const auto message =
            NumberedMessage::read(buffer.data(), sut.receive(buffer.data(), 1024, c_hangGuardMs));
        EXPECT_TRUE(message);
        if (message) {
            EXPECT_EQ(message->number, next[message->sender]++);
        }
    }
    for (std::thread& sender : senders) {
        sender.join();
    }
}

TEST_F(MessageQueue, KeepsTheOrderOfEachSendingProcess) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 50, 1024, 0));
    QueuePeer first({"send", "Q", "1", "5000"});
    QueuePeer second({"send", "Q", "2", "5000"});
    QueuePeer third({"send", "Q", "3", "5000"});
    std::map<std::uint32_t, std::uint32_t> next;
    std::array<unsigned char, 1024> buffer{};
    for (int i = 0; i < 15000; ++i) {
        const auto message =
            NumberedMessage::read(buffer.data(), sut.receive(buffer.data(), 1024, c_hangGuardMs));
        ASSERT_TRUE(message);
        ASSERT_EQ(message->number, next[message->sender]++);
    }
    EXPECT_EQ(receiveText(sut), "nothing");
}

// Time-outs.

TEST_F(MessageQueue, SendFailsAtOnceOnAQueueNeverMade) {
    sal::MessageQueue sut;
    EXPECT_FALSE(sendText(sut, "x", -1));
}

TEST_F(MessageQueue, ReceiveFailsAtOnceOnAQueueNeverMade) {
    sal::MessageQueue sut;
    EXPECT_EQ(receiveText(sut, -1), "nothing");
}

TEST_F(MessageQueue, ReceiveWaitsAsLongAsItsTimeOut) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 4, 1024, 0));
    const auto begin = Clock::now();
    EXPECT_EQ(receiveText(sut, 250), "nothing");
    EXPECT_GE(Clock::now() - begin, 250ms);
}

TEST_F(MessageQueue, SendWaitsAsLongAsItsTimeOut) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 1, 1024, 0));
    ASSERT_TRUE(sendText(sut, "x"));
    const auto begin = Clock::now();
    EXPECT_FALSE(sendText(sut, "y", 250));
    EXPECT_GE(Clock::now() - begin, 250ms);
}

TEST_F(MessageQueue, ReceiveWithoutTimeOutWaitsForAMessage) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 4, 1024, 0));
    std::thread sender([&] {
        std::this_thread::sleep_for(250ms);
        sendText(sut, "late");
    });
    EXPECT_EQ(receiveText(sut, -1), "late");
    sender.join();
}

TEST_F(MessageQueue, SendWithoutTimeOutWaitsForRoom) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 1, 1024, 0));
    ASSERT_TRUE(sendText(sut, "x"));
    std::thread receiver([&] {
        std::this_thread::sleep_for(250ms);
        receiveText(sut);
    });
    EXPECT_TRUE(sendText(sut, "y", -1));
    receiver.join();
}

TEST_F(MessageQueue, SignalsDoNotShortenATimeOut) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 1, 1024, 0));
    struct sigaction action {};
    action.sa_handler = [](int) {};
    struct sigaction before {};
    ASSERT_EQ(::sigaction(SIGALRM, &action, &before), 0);
    const itimerval often{{0, 2000}, {0, 2000}};
    ::setitimer(ITIMER_REAL, &often, nullptr);
    auto begin = Clock::now();
    EXPECT_EQ(receiveText(sut, 200), "nothing");
    const auto received = Clock::now() - begin;
    fillWith(sut, "x");
    begin = Clock::now();
    EXPECT_FALSE(sendText(sut, "y", 200));
    const auto sent = Clock::now() - begin;
    const itimerval never{};
    ::setitimer(ITIMER_REAL, &never, nullptr);
    ::sigaction(SIGALRM, &before, nullptr);
    EXPECT_GE(received, 200ms);
    EXPECT_GE(sent, 200ms);
}

TEST_F(MessageQueue, AWaitingSenderIsNotWokenForEachMessage) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 400, 1024, 0));
    fillWith(sut, "x");
    std::thread sender([&] {
        for (int i = 0; i < 2000; ++i) {
            EXPECT_TRUE(sendText(sut, "y", -1));
        }
    });
    ASSERT_TRUE(waitUntil([] { return statusOf("Q").waits >= 2; }));
    const auto begin = Clock::now();
    for (int i = 0; i < 2400; ++i) {
        EXPECT_NE(receiveText(sut, c_hangGuardMs), "nothing");
        std::this_thread::sleep_for(50us);
    }
    sender.join();
    // It also looks by itself every tenth of a second; for a receiver that is held up that is often.
    const auto looks = (Clock::now() - begin) / 100ms;
    EXPECT_LT(statusOf("Q").waits, 500U + static_cast<unsigned>(looks));
}

// Names and their life.

TEST_F(MessageQueue, CreateFailsWhileALiveProcessHoldsTheName) {
    QueuePeer holder({"create", "Q"});
    ASSERT_EQ(holder.line(), "created");
    sal::MessageQueue sut;
    const std::string log = logOf([&] { EXPECT_FALSE(sut.create("Q", 4, 1024, 0)); });
    EXPECT_NE(
        log.find("QUEUE: queue Q: not created: the name is still in use by a live process (made by process "),
        std::string::npos)
        << log;
}

TEST_F(MessageQueue, CreateFailsWhileAReaderOutlivesTheCreator) {
    QueuePeer creator({"create", "Q"});
    ASSERT_EQ(creator.line(), "created");
    QueuePeer holder({"hold", "Q"});
    ASSERT_EQ(holder.line(), "opened");
    creator.kill();
    sal::MessageQueue sut;
    EXPECT_FALSE(sut.create("Q", 4, 1024, 0));
}

TEST_F(MessageQueue, CreateContinuesAStoppedReaderThatOutlivesTheCreator) {
    QueuePeer creator({"create", "STOPPED"});
    ASSERT_EQ(creator.line(), "created");
    QueuePeer reader({"attach", "STOPPED"});
    ASSERT_EQ(reader.line(), "attached");
    reader.signal(SIGSTOP);
    ASSERT_TRUE(becomes(reader, 'T'));
    creator.kill();
    sal::MessageQueue sut;
    const std::string log = logOf([&] { EXPECT_FALSE(sut.create("STOPPED", 4, 1024, 0)); });
    EXPECT_TRUE(becomes(reader, 'S'));
    EXPECT_NE(log.find("its reader was stopped and is continued"), std::string::npos) << log;
}

TEST_F(MessageQueue, CreateContinuesAStoppedReaderThatHasSeenItsCreatorsEnd) {
    QueuePeer creator({"create", "STOPPED4"});
    ASSERT_EQ(creator.line(), "created");
    QueuePeer reader({"outlive", "STOPPED4"});
    ASSERT_EQ(reader.line(), "attached");
    creator.kill();
    ASSERT_EQ(reader.line(), "ended");
    reader.signal(SIGSTOP);
    ASSERT_TRUE(becomes(reader, 'T'));
    sal::MessageQueue sut;
    const std::string log = logOf([&] { EXPECT_FALSE(sut.create("STOPPED4", 4, 1024, 0)); });
    EXPECT_TRUE(becomes(reader, 'S'));
    EXPECT_NE(log.find("its reader was stopped and is continued"), std::string::npos) << log;
}

TEST_F(MessageQueue, OpenRefusesAQueueWhoseCreatorsEndItsReaderHasSeen) {
    QueuePeer creator({"create", "SEEN"});
    ASSERT_EQ(creator.line(), "created");
    QueuePeer reader({"outlive", "SEEN"});
    ASSERT_EQ(reader.line(), "attached");
    creator.kill();
    ASSERT_EQ(reader.line(), "ended");
    EXPECT_EQ(logOf([] { EXPECT_FALSE(sal::MessageQueue().open("SEEN")); }),
              "QUEUE: queue SEEN: not opened: the process that made it has ended\n");
}

TEST_F(MessageQueue, CreateLeavesAStoppedReaderAloneWhileTheCreatorLives) {
    QueuePeer creator({"create", "STOPPED2"});
    ASSERT_EQ(creator.line(), "created");
    QueuePeer reader({"attach", "STOPPED2"});
    ASSERT_EQ(reader.line(), "attached");
    reader.signal(SIGSTOP);
    ASSERT_TRUE(becomes(reader, 'T'));
    sal::MessageQueue sut;
    const std::string log = logOf([&] { EXPECT_FALSE(sut.create("STOPPED2", 4, 1024, 0)); });
    EXPECT_TRUE(becomes(reader, 'T'));
    EXPECT_EQ(log.find("continued"), std::string::npos) << log;
}

TEST_F(MessageQueue, CreateContinuesNobodyWhoHasNotGotTheQueue) {
    QueuePeer creator({"create", "STOPPED3"});
    ASSERT_EQ(creator.line(), "created");
    QueuePeer holder({"hold", "STOPPED3"});
    ASSERT_EQ(holder.line(), "opened");
    QueuePeer other({"create", "OTHER"});
    ASSERT_EQ(other.line(), "created");
    other.signal(SIGSTOP);
    ASSERT_TRUE(becomes(other, 'T'));
    const auto wrong = static_cast<std::uint32_t>(other.pid());
    scribble("STOPPED3", offsetof(sal::QueueHeader, receiverPid), &wrong, sizeof wrong);
    creator.kill();
    sal::MessageQueue sut;
    EXPECT_FALSE(sut.create("STOPPED3", 4, 1024, 0));
    EXPECT_TRUE(becomes(other, 'T'));
}

TEST_F(MessageQueue, ANameInUseIsReportedOnceForManyAttempts) {
    sal::MessageQueue holder;
    ASSERT_TRUE(holder.create("BUSY", 4, 1024, 0));
    sal::MessageQueue sut;
    logOf([&] { sut.create("BUSY", 4, 1024, 0); });
    EXPECT_EQ(logOf([&] { EXPECT_FALSE(sut.create("BUSY", 4, 1024, 0)); }), "");
}

TEST_F(MessageQueue, CreateTakesOverWhatADeadProcessLeft) {
    QueuePeer creator({"create", "Q"});
    ASSERT_EQ(creator.line(), "created");
    creator.kill();
    ASSERT_EQ(files(), std::vector<std::string>{"Q"});
    sal::MessageQueue sut;
    EXPECT_TRUE(sut.create("Q", 4, 1024, 0));
}

TEST_F(MessageQueue, ATakenOverQueueIsEmpty) {
    QueuePeer creator({"create", "Q"});
    ASSERT_EQ(creator.line(), "created");
    QueuePeer sender({"send", "Q", "1", "10"});
    ASSERT_EQ(sender.wait(), 0);
    creator.kill();
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 4, 1024, 0));
    EXPECT_EQ(receiveText(sut), "nothing");
}

TEST_F(MessageQueue, CreateWaitsShortlyForTheHolderToGo) {
    sal::MessageQueue holder;
    ASSERT_TRUE(holder.create("Q", 4, 1024, 0));
    const auto begin = Clock::now();
    std::thread closer([&] {
        std::this_thread::sleep_until(begin + 10ms);
        holder.close();
    });
    sal::MessageQueue sut;
    bool created = false;
    // On a busy machine the holder may go late, so only the shortest time counts.
    while (!created && Clock::now() - begin < c_hangGuard) {
        created = sut.create("Q", 4, 1024, 0);
    }
    closer.join();
    EXPECT_TRUE(created);
    EXPECT_GE(Clock::now() - begin, 10ms);
}

TEST_F(MessageQueue, AFailingCreateHasWaitedFor50Ms) {
    sal::MessageQueue holder;
    ASSERT_TRUE(holder.create("Q", 4, 1024, 0));
    sal::MessageQueue sut;
    const auto begin = Clock::now();
    EXPECT_FALSE(sut.create("Q", 4, 1024, 0));
    EXPECT_GE(Clock::now() - begin, 50ms);
}

TEST_F(MessageQueue, CloseRemovesTheName) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 4, 1024, 0));
    sut.close();
    EXPECT_EQ(files(), std::vector<std::string>{});
}

TEST_F(MessageQueue, TheNameStaysUntilTheLastHasClosed) {
    sal::MessageQueue sut;
    sal::MessageQueue other;
    ASSERT_TRUE(sut.create("Q", 4, 1024, 0));
    ASSERT_TRUE(other.open("Q"));
    sut.close();
    EXPECT_EQ(files(), std::vector<std::string>{"Q"});
    other.close();
    EXPECT_EQ(files(), std::vector<std::string>{});
}

TEST_F(MessageQueue, NoNameIsLeftWhenTheLastTwoCloseTogether) {
    for (int i = 0; i < 200; ++i) {
        sal::MessageQueue sut;
        sal::MessageQueue other;
        ASSERT_TRUE(sut.create("Q", 4, 1024, 0));
        ASSERT_TRUE(other.open("Q"));
        std::thread closer([&] { other.close(); });
        sut.close();
        closer.join();
        ASSERT_EQ(files(), std::vector<std::string>{});
    }
}

TEST_F(MessageQueue, NoNameIsLeftWhenManyCloseTogether) {
    for (int i = 0; i < 300; ++i) {
        std::array<sal::MessageQueue, 4> suts;
        std::atomic<bool> go{false};
        ASSERT_TRUE(suts[0].create("Q", 4, 1024, 0));
        std::vector<std::thread> closers;
        for (sal::MessageQueue& sut : suts) {
            ASSERT_TRUE(&sut == &suts[0] || sut.open("Q"));
        }
        for (sal::MessageQueue& sut : suts) {
            closers.emplace_back([&] {
                while (!go) {
                }
                sut.close();
            });
        }
        go = true;
        for (std::thread& closer : closers) {
            closer.join();
        }
        ASSERT_EQ(files(), std::vector<std::string>{});
    }
}

TEST_F(MessageQueue, ANameNeverHasTwoLiveCreators) {
    std::atomic<int> live{0};
    std::atomic<int> most{0};
    std::atomic<int> made{0};
    std::vector<std::thread> creators;
    for (int i = 0; i < 4; ++i) {
        creators.emplace_back([&] {
            for (int lap = 0; lap < 100; ++lap) {
                sal::MessageQueue sut;
                if (sut.create("Q", 4, 1024, 0)) {
                    ++made;
                    const int now = ++live;
                    for (int seen = most; seen < now && !most.compare_exchange_weak(seen, now);) {
                    }
                    --live;
                }
            }
        });
    }
    for (std::thread& creator : creators) {
        creator.join();
    }
    EXPECT_EQ(most, 1);
    EXPECT_GT(made, 10);
}

TEST_F(MessageQueue, OneOfTwoThatCreateTogetherGetsTheName) {
    for (int i = 0; i < 20; ++i) {
        sal::MessageQueue sut;
        sal::MessageQueue other;
        bool second = false;
        std::thread creator([&] { second = other.create("Q", 4, 1024, 0); });
        const bool first = sut.create("Q", 4, 1024, 0);
        creator.join();
        ASSERT_NE(first, second);
    }
}

TEST_F(MessageQueue, CanBeMadeAgainAndAgain) {
    const std::size_t before = openDescriptors();
    for (int i = 0; i < 100; ++i) {
        sal::MessageQueue sut;
        ASSERT_TRUE(sut.create("Q", 256, 1024, 0));
        ASSERT_TRUE(sendText(sut, "x"));
        sut.close();
        ASSERT_TRUE(sut.create("Q", 256, 1024, 0));
        ASSERT_EQ(receiveText(sut), "nothing");
    }
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(MessageQueue, AFailedCreateLeavesNoDescriptorOpen) {
    sal::MessageQueue holder;
    ASSERT_TRUE(holder.create("Q", 4, 1024, 0));
    const std::size_t before = openDescriptors();
    sal::MessageQueue sut;
    EXPECT_FALSE(sut.create("Q", 4, 1024, 0));
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(MessageQueue, CreateRefusesAnObjectThatIsAttached) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("A", 4, 1024, 0));
    EXPECT_EQ(logOf([&] { EXPECT_FALSE(sut.create("B", 4, 1024, 0)); }),
              "QUEUE: queue B: not attached: the object still holds queue A\n");
}

TEST_F(MessageQueue, CreateRefusesSizesThatMakeNoQueue) {
    sal::MessageQueue sut;
    EXPECT_FALSE(sut.create("Q", 0, 1024, 0));
    EXPECT_FALSE(sut.create("Q", 4, 0, 0));
    EXPECT_FALSE(sut.create("Q", 4, -1, 0));
    EXPECT_FALSE(sut.create("Q", 4, 65537, 0));
}

TEST_F(MessageQueue, CreateRefusesAnUnknownMode) {
    sal::MessageQueue sut;
    EXPECT_FALSE(sut.create("Q", 4, 1024, 1));
}

TEST_F(MessageQueue, OpenFailsWhereThereIsNoQueue) {
    sal::MessageQueue sut;
    EXPECT_EQ(logOf([&] { EXPECT_FALSE(sut.open("Q")); }),
              "QUEUE: queue Q: not opened: " + m_directory + "/Q: No such file or directory\n");
}

TEST_F(MessageQueue, OpenFailsWhenTheCreatorIsDead) {
    QueuePeer creator({"create", "Q"});
    ASSERT_EQ(creator.line(), "created");
    creator.kill();
    sal::MessageQueue sut;
    EXPECT_EQ(logOf([&] { EXPECT_FALSE(sut.open("Q")); }),
              "QUEUE: queue Q: not opened: the process that made it has ended\n");
}

TEST_F(MessageQueue, OpenFailsWhenTheCreatorHasClosed) {
    sal::MessageQueue creator;
    sal::MessageQueue holder;
    ASSERT_TRUE(creator.create("Q", 4, 1024, 0));
    ASSERT_TRUE(holder.open("Q"));
    creator.close();
    sal::MessageQueue sut;
    EXPECT_FALSE(sut.open("Q"));
}

TEST_F(MessageQueue, OpenFailsOnAFileThatIsNoQueue) {
    sal::MessageQueue creator;
    ASSERT_TRUE(creator.create("Q", 4, 1024, 0));
    const std::uint64_t zero = 0;
    scribble("Q", 0, &zero, sizeof(zero));
    sal::MessageQueue sut;
    EXPECT_EQ(
        logOf([&] { EXPECT_FALSE(sut.open("Q")); }),
        "QUEUE: queue Q: not opened: " + m_directory + "/Q does not begin like a queue of this version\n");
}

TEST_F(MessageQueue, OpenFailsWhenTheFileDoesNotFitItsHeader) {
    sal::MessageQueue creator;
    ASSERT_TRUE(creator.create("Q", 4, 1024, 0));
    const std::uint32_t capacity = 60000;
    scribble("Q", offsetof(sal::QueueHeader, capacity), &capacity, sizeof(capacity));
    sal::MessageQueue sut;
    EXPECT_FALSE(sut.open("Q"));
}

TEST_F(MessageQueue, OpenRefusesAQueueOfAnotherPidNamespace) {
    if (std::system("unshare -Urpf true 2>/dev/null") != 0) {
        GTEST_SKIP() << "needs user and PID namespaces";
    }
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 4, 1024, 0));
    QueuePeer peer({"open", "Q"}, {"unshare", "-Urpf", "--kill-child"});
    EXPECT_EQ(peer.line(), "not opened");
}

TEST_F(MessageQueue, OpenRefusesAQueueOfAnotherMakerThanThatOfItsProcess) {
    ::setenv("MFD_QUEUE_MAKER", "00000000000000ab:1000000", 1);
    sal::MessageQueue queue;
    ASSERT_TRUE(queue.create("Q", 4, 16, 0));
    sal::MessageQueue other;
    EXPECT_EQ(logOf([&] { EXPECT_FALSE(other.open("Q")); }),
              "QUEUE: queue Q: not opened: it was made by another host than the one that started this "
              "process\n");
    ::unsetenv("MFD_QUEUE_MAKER");
    EXPECT_TRUE(other.open("Q"));
}

TEST_F(MessageQueue, OpenRefusesUnderAMalformedMaker) {
    ::setenv("MFD_QUEUE_MAKER", "me", 1);
    sal::MessageQueue queue;
    ASSERT_TRUE(queue.create("Q", 4, 16, 0));
    sal::MessageQueue other;
    EXPECT_EQ(logOf([&] { EXPECT_FALSE(other.open("Q")); }),
              "QUEUE: queue Q: not opened: MFD_QUEUE_MAKER=me is not 16 hexadecimal digits, a colon and a "
              "number; a process that is started by hand needs none\n");
    ::unsetenv("MFD_QUEUE_MAKER");
}

TEST_F(MessageQueue, ARefusedQueueStaysForWhomItIsMeant) {
    sal::MessageQueue queue;
    ASSERT_TRUE(queue.create("Q", 4, 16, 0));
    ::setenv("MFD_QUEUE_MAKER", "00000000000000ab:1", 1);
    sal::MessageQueue late;
    logOf([&] { EXPECT_FALSE(late.open("Q")); });
    ::unsetenv("MFD_QUEUE_MAKER");
    sal::MessageQueue meant;
    ASSERT_TRUE(meant.open("Q"));
    EXPECT_TRUE(sendText(queue, "for you"));
    EXPECT_EQ(receiveText(meant), "for you");
    EXPECT_EQ(files(), std::vector<std::string>{"Q"});
}

TEST_F(MessageQueue, AForkedChildMakesItsQueuesAsAnotherMaker) {
    sal::MessageQueue queue;
    ASSERT_TRUE(queue.create("Q", 4, 16, 0));
    const pid_t child = ::fork();
    if (child == 0) {
        sal::MessageQueue own;
        ::_exit(own.create("OWN", 4, 16, 0) ? ::pause() : 1);
    }
    ASSERT_TRUE(waitUntil([&] { return std::filesystem::exists(file("OWN")); }));
    const auto makerOf = [&](const std::string& name) {
        std::uint64_t maker = 0;
        std::ifstream stream(file(name), std::ios::binary);
        stream.seekg(offsetof(sal::QueueHeader, maker));
        stream.read(reinterpret_cast<char*>(&maker), sizeof maker);
        return maker;
    };
    EXPECT_NE(makerOf("Q"), 0u);
    EXPECT_NE(makerOf("Q"), makerOf("OWN"));
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
}

TEST_F(MessageQueue, FilesThatMayNotBecomeLargeEnoughAreNamedAndNothingIsLeft) {
    testing::internal::CaptureStderr();
    ::signal(SIGXFSZ, SIG_IGN);
    struct rlimit before {};
    ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &before), 0);
    const struct rlimit small { 4096, before.rlim_max };
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
    sal::MessageQueue sut;
    const bool isMade = sut.create("Q", 256, 1024, 0);
    ::setrlimit(RLIMIT_FSIZE, &before);
    ::signal(SIGXFSZ, SIG_DFL);
    EXPECT_FALSE(isMade);
    const std::string text = testing::internal::GetCapturedStderr();
    EXPECT_NE(text.find(": File too large; files of this process are limited to 4096 bytes (RLIMIT_FSIZE, "
                        "ulimit -f), and this one needs "),
              std::string::npos)
        << text;
    EXPECT_TRUE(files().empty());
    EXPECT_TRUE(sut.create("Q", 256, 1024, 0));
}

TEST_F(MessageQueue, AForkedChildDoesNotKeepTheNameInUse) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 4, 1024, 0));
    const pid_t child = ::fork();
    if (child == 0) {
        ::pause();
        ::_exit(0);
    }
    sut.close();
    EXPECT_TRUE(sut.create("Q", 4, 1024, 0));
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
}

/// A child that no handler of the C library knows of: it has all that is open here.
class BareChild {
public:
    BareChild() : m_pid(static_cast<pid_t>(::syscall(SYS_clone, SIGCHLD, 0, 0, 0, 0))) {
        if (m_pid == 0) {
            for (;;) {
                ::pause();
            }
        }
    }
    ~BareChild() {
        ::kill(m_pid, SIGKILL);
        ::waitpid(m_pid, nullptr, 0);
    }
    BareChild(const BareChild&) = delete;
    BareChild& operator=(const BareChild&) = delete;

private:
    const pid_t m_pid;
};

TEST_F(MessageQueue, ABareChildDoesNotKeepTheNameOfAQueueThatIsClosed) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 4, 16, 0));
    const BareChild child;
    sut.close();
    EXPECT_TRUE(files().empty());
    EXPECT_TRUE(sut.create("Q", 4, 16, 0));
}

TEST_F(MessageQueue, ABareChildDoesNotHideThatTheCreatorHasClosed) {
    sal::MessageQueue creator;
    ASSERT_TRUE(creator.create("Q", 4, 16, 0));
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.open("Q"));
    const BareChild child;
    creator.close();
    EXPECT_TRUE(sut.waitForCreatorEnd());
}

TEST_F(MessageQueue, AForkedChildDoesNotKeepTheMemory) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 4, 1024, 0));
    const auto isMapped = [this] {
        std::ifstream maps("/proc/self/maps");
        const std::string text((std::istreambuf_iterator<char>(maps)), std::istreambuf_iterator<char>());
        return text.find(m_directory) != std::string::npos;
    };
    ASSERT_TRUE(isMapped());
    const pid_t child = ::fork();
    if (child == 0) {
        ::_exit(isMapped() ? 1 : 0);
    }
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

TEST_F(MessageQueue, IsOfNoUseToAForkedChild) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 4, 1024, 0));
    const pid_t child = ::fork();
    if (child == 0) {
        const bool works = sendText(sut, "x") || receiveText(sut, 0) != "nothing" ||
                           !sal::MessageQueue::statuses().empty() || sut.waitForCreatorEnd();
        sut.close();
        ::_exit(works ? 1 : 0);
    }
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(sendText(sut, "x"));
}

// The directory.

TEST_F(MessageQueue, MakesAMissingDirectoryForItsOwnerAlone) {
    const std::string path = m_directory + "/inner";
    ::setenv("MFD_QUEUE_DIR", path.c_str(), 1);
    sal::MessageQueue sut;
    EXPECT_TRUE(sut.create("Q", 4, 1024, 0));
    struct stat info {};
    ASSERT_EQ(::stat(path.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0700U);
}

TEST_F(MessageQueue, ItsFileIsForItsOwnerAlone) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 4, 1024, 0));
    struct stat info {};
    ASSERT_EQ(::stat(file("Q").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0600U);
}

TEST_F(MessageQueue, RefusesADirectoryThatIsOpenToOthers) {
    ASSERT_EQ(::chmod(m_directory.c_str(), 0750), 0);
    sal::MessageQueue sut;
    EXPECT_EQ(logOf([&] { EXPECT_FALSE(sut.create("Q", 4, 1024, 0)); }),
              "QUEUE: queue Q: not created: queue directory " + m_directory +
                  " is open to other users (mode 0750); it must be 0700\n");
}

TEST_F(MessageQueue, RefusesADirectoryOfAnotherUser) {
    if (::chown(m_directory.c_str(), 1, 1) != 0) {
        GTEST_SKIP() << "needs the right to give a directory away: " << std::strerror(errno);
    }
    sal::MessageQueue sut;
    EXPECT_EQ(logOf([&] { EXPECT_FALSE(sut.create("Q", 4, 1024, 0)); }),
              "QUEUE: queue Q: not created: queue directory " + m_directory +
                  " belongs to user 1, not to user 0\n");
}

TEST_F(MessageQueue, RefusesALinkInPlaceOfTheDirectory) {
    std::filesystem::create_directory(m_directory + "/real");
    ASSERT_EQ(::chmod((m_directory + "/real").c_str(), 0700), 0);
    std::filesystem::create_symlink("real", m_directory + "/link");
    sal::MessageQueue sut;
    for (const auto& [name, path] :
         {std::pair{"A", m_directory + "/link"}, std::pair{"B", m_directory + "/link/"}}) {
        ::setenv("MFD_QUEUE_DIR", path.c_str(), 1);
        EXPECT_EQ(logOf([&] { EXPECT_FALSE(sut.create(name, 4, 1024, 0)); }),
                  std::string("QUEUE: queue ") + name + ": not created: queue directory " + m_directory +
                      "/link is a link; name the directory itself\n");
    }
}

TEST_F(MessageQueue, RefusesALinkInPlaceOfAQueue) {
    const std::string target = m_directory + "/target";
    ASSERT_TRUE(sal::MessageQueue().create("other", 4, 1024, 0));
    ::close(::open(target.c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0600));
    std::filesystem::create_symlink("target", file("Q"));
    sal::MessageQueue sut;
    EXPECT_FALSE(sut.create("Q", 4, 1024, 0));
    EXPECT_FALSE(sut.open("Q"));
    EXPECT_TRUE(std::filesystem::exists(target));
}

TEST_F(MessageQueue, RefusesADirectoryOrFifoInPlaceOfAQueue) {
    std::filesystem::create_directory(file("D"));
    ASSERT_EQ(::mkfifo(file("F").c_str(), 0600), 0);
    sal::MessageQueue sut;
    EXPECT_FALSE(sut.create("D", 4, 1024, 0));
    EXPECT_FALSE(sut.create("F", 4, 1024, 0));
    EXPECT_FALSE(sut.open("F"));
}

TEST_F(MessageQueue, NoNameLeadsOutOfTheDirectory) {
    const std::vector<std::string> names = {
        "..",   ".",      "../x",        "a/b",   "/etc/passwd",
        ".hid", "a\n\"b", "S\xc3\xa4ge", "a%2Fb", std::string("nul\0x", 5)};
    std::vector<std::unique_ptr<sal::MessageQueue>> queues;
    for (const std::string& name : names) {
        queues.push_back(std::make_unique<sal::MessageQueue>());
        EXPECT_TRUE(queues.back()->create(name, 4, 1024, 0)) << name;
    }
    auto expected = std::vector<std::string>{"%2E.",   "%2E",      "%2E.%2Fx",  "a%2Fb",   "%2Fetc%2Fpasswd",
                                             "%2Ehid", "a%0A%22b", "S%C3%A4ge", "a%252Fb", "nul%00x"};
    auto found = files();
    std::sort(expected.begin(), expected.end());
    std::sort(found.begin(), found.end());
    EXPECT_EQ(found, expected);
}

TEST_F(MessageQueue, RefusesAnEmptyName) {
    sal::MessageQueue sut;
    EXPECT_EQ(logOf([&] { EXPECT_FALSE(sut.create("", 4, 1024, 0)); }),
              "QUEUE: queue : not created: a queue needs a name\n");
}

TEST_F(MessageQueue, RefusesANameThatFitsNoFileName) {
    sal::MessageQueue sut;
    EXPECT_TRUE(sut.create(std::string(255, 'x'), 4, 1024, 0));
    sut.close();
    EXPECT_FALSE(sut.create(std::string(256, 'x'), 4, 1024, 0));
}

// The other end dies.

TEST_F(MessageQueue, AFullSenderIsReleasedWhenTheReceiverDies) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 4, 1024, 0));
    QueuePeer receiver({"attach", "Q"});
    ASSERT_EQ(receiver.line(), "attached");
    fillWith(sut, "x");
    std::thread killer([&] {
        std::this_thread::sleep_for(50ms);
        receiver.kill();
    });
    EXPECT_FALSE(sendText(sut, "y", -1));
    killer.join();
}

TEST_F(MessageQueue, AFullSenderIsReleasedWhenTheReceiverCloses) {
    sal::MessageQueue sut;
    sal::MessageQueue receiver;
    ASSERT_TRUE(sut.create("Q", 1, 1024, 0));
    ASSERT_TRUE(receiver.open("Q"));
    receiveText(receiver);
    fillWith(sut, "x");
    receiver.close();
    EXPECT_FALSE(sendText(sut, "y", -1));
}

TEST_F(MessageQueue, AFullSenderWaitsBeforeAReceiverHasAttached) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 1, 1024, 0));
    fillWith(sut, "x");
    std::atomic<bool> returned{false};
    std::thread sender([&] {
        EXPECT_TRUE(sendText(sut, "y", -1));
        returned = true;
    });
    std::this_thread::sleep_for(500ms);
    EXPECT_FALSE(returned);
    sal::MessageQueue receiver;
    ASSERT_TRUE(receiver.open("Q"));
    EXPECT_EQ(receiveText(receiver), "x");
    sender.join();
}

TEST_F(MessageQueue, ReceiverGoneReleasesASenderThatNobodyReadsFrom) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 1, 1024, 0));
    fillWith(sut, "x");
    std::thread herald([&] {
        ASSERT_TRUE(waitUntil([] { return statusOf("Q").waitingForMs > 0; }));
        sal::MessageQueue::receiverGone("Q");
    });
    EXPECT_FALSE(sendText(sut, "y", -1));
    herald.join();
}

TEST_F(MessageQueue, ReceiverGoneIsForgottenWhenAnotherReceiverAttaches) {
    sal::MessageQueue sut;
    sal::MessageQueue receiver;
    ASSERT_TRUE(sut.create("Q", 1, 1024, 0));
    sal::MessageQueue::receiverGone("Q");
    ASSERT_TRUE(receiver.open("Q"));
    receiveText(receiver);
    fillWith(sut, "x");
    std::thread reader([&] {
        std::this_thread::sleep_for(300ms);
        receiveText(receiver);
    });
    EXPECT_TRUE(sendText(sut, "y", -1));
    reader.join();
}

TEST_F(MessageQueue, ReceiverGoneIsNotBelievedOfAReceiverThatLives) {
    sal::MessageQueue sut;
    sal::MessageQueue receiver;
    ASSERT_TRUE(sut.create("Q", 1, 1024, 0));
    ASSERT_TRUE(receiver.open("Q"));
    receiveText(receiver);
    sal::MessageQueue::receiverGone("Q");
    fillWith(sut, "x");
    std::thread reader([&] {
        std::this_thread::sleep_for(300ms);
        receiveText(receiver);
    });
    EXPECT_TRUE(sendText(sut, "y", -1));
    reader.join();
}

TEST_F(MessageQueue, ReceiverGoneOfAnotherQueueReleasesNobody) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 1, 1024, 0));
    fillWith(sut, "x");
    sal::MessageQueue::receiverGone("R");
    const auto begin = Clock::now();
    EXPECT_FALSE(sendText(sut, "y", 250));
    EXPECT_GE(Clock::now() - begin, 250ms);
}

TEST_F(MessageQueue, ReceiverThatStartedBeforeTheQueueWasMadeReleasesNobody) {
    const auto before = Clock::now();
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 1, 1024, 0));
    fillWith(sut, "x");
    sal::MessageQueue::receiverGone("Q", before);
    const auto begin = Clock::now();
    EXPECT_FALSE(sendText(sut, "y", 250));
    EXPECT_GE(Clock::now() - begin, 250ms);
    // Its own receiver does, at once.
    sal::MessageQueue::receiverGone("Q", Clock::now());
    EXPECT_FALSE(sendText(sut, "y", -1));
}

// The first receiver comes.

TEST_F(MessageQueue, HasReaderOnceOneHasClaimedIt) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 1, 1024, 0));
    sal::MessageQueue other;
    ASSERT_TRUE(other.create("OTHER", 1, 1024, 0));
    EXPECT_FALSE(sal::MessageQueue::hasReader("Q"));
    {
        sal::MessageQueue reader;
        ASSERT_TRUE(reader.open("Q"));
        EXPECT_FALSE(sal::MessageQueue::hasReader("Q"));
        receiveText(reader);
        EXPECT_TRUE(sal::MessageQueue::hasReader("Q"));
        EXPECT_FALSE(sal::MessageQueue::hasReader("OTHER"));
    }
    EXPECT_TRUE(sal::MessageQueue::hasReader("Q"));
}

TEST_F(MessageQueue, HasReaderKnowsTheQueuesOfThisProcessAlone) {
    QueuePeer creator({"create", "Q"});
    ASSERT_EQ(creator.line(), "created");
    sal::MessageQueue reader;
    ASSERT_TRUE(reader.open("Q"));
    receiveText(reader);
    EXPECT_FALSE(sal::MessageQueue::hasReader("Q"));
    EXPECT_FALSE(sal::MessageQueue::hasReader("NONE"));
}

TEST_F(MessageQueue, AQueueMadeAnewHasNoReader) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 1, 1024, 0));
    {
        sal::MessageQueue reader;
        ASSERT_TRUE(reader.open("Q"));
        receiveText(reader);
    }
    sut.close();
    ASSERT_TRUE(sut.create("Q", 1, 1024, 0));
    EXPECT_FALSE(sal::MessageQueue::hasReader("Q"));
}

TEST_F(MessageQueue, WaitForReadersLastsItsTimeOut) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 1, 1024, 0));
    const auto begin = Clock::now();
    EXPECT_FALSE(sal::MessageQueue::waitForReaders({"Q"}, 0, 250));
    EXPECT_GE(Clock::now() - begin, 250ms);
    EXPECT_FALSE(sal::MessageQueue::waitForReaders({"Q"}, 0, 0));
}

TEST_F(MessageQueue, WaitForReadersEndsWhenNoMoreThanThatManyWait) {
    sal::MessageQueue a;
    sal::MessageQueue b;
    ASSERT_TRUE(a.create("A", 1, 1024, 0));
    ASSERT_TRUE(b.create("B", 1, 1024, 0));
    EXPECT_TRUE(sal::MessageQueue::waitForReaders({"A", "B"}, 2, -1));
    EXPECT_FALSE(sal::MessageQueue::waitForReaders({"A", "B"}, 1, 0));
    EXPECT_TRUE(sal::MessageQueue::waitForReaders({"B"}, 1, -1));
    QueuePeer reader({"attach", "A"});
    EXPECT_TRUE(sal::MessageQueue::waitForReaders({"A", "B"}, 1, -1));
    EXPECT_TRUE(sal::MessageQueue::hasReader("A"));
    EXPECT_FALSE(sal::MessageQueue::waitForReaders({"A", "B"}, 0, 0));
}

TEST_F(MessageQueue, WaitForReadersDoesNotWaitForQueuesThatThisProcessHasNotMade) {
    QueuePeer creator({"create", "Q"});
    ASSERT_EQ(creator.line(), "created");
    EXPECT_TRUE(sal::MessageQueue::waitForReaders({"Q", "NONE"}, 0, -1));
    EXPECT_TRUE(sal::MessageQueue::waitForReaders({}, 0, -1));
}

TEST_F(MessageQueue, WaitForReadersEndsWhenTheReceiverIsSaidToBeGone) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 1, 1024, 0));
    std::thread supervisor([] {
        std::this_thread::sleep_for(50ms);
        sal::MessageQueue::receiverGone("Q");
    });
    EXPECT_TRUE(sal::MessageQueue::waitForReaders({"Q"}, 0, -1));
    supervisor.join();
    EXPECT_FALSE(sal::MessageQueue::hasReader("Q"));
}

TEST_F(MessageQueue, WaitForReadersEndsWhenTheQueueIsClosed) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 1, 1024, 0));
    std::thread closer([&] {
        std::this_thread::sleep_for(50ms);
        sut.close();
    });
    EXPECT_TRUE(sal::MessageQueue::waitForReaders({"Q"}, 0, -1));
    closer.join();
}

TEST_F(MessageQueue, AClaimWakesThoseWhoWaitForIt) {
    auto shortest = Clock::duration::max();
    for (int round = 0; round < 20; ++round) {
        sal::MessageQueue sut;
        sal::MessageQueue reader;
        ASSERT_TRUE(sut.create("Q", 1, 1024, 0));
        ASSERT_TRUE(reader.open("Q"));
        Clock::time_point claimed;
        std::thread claimer([&] {
            std::this_thread::sleep_for(5ms);
            claimed = Clock::now();
            receiveText(reader);
        });
        EXPECT_TRUE(sal::MessageQueue::waitForReaders({"Q"}, 0, -1));
        const auto woken = Clock::now();
        claimer.join();
        shortest = std::min(shortest, woken - claimed);
    }
    // Without the wake-up each would last for the rest of a tenth of a second.
    EXPECT_LT(shortest, 50ms);
}

TEST_F(MessageQueue, WaitForReadersTakesMoreQueuesThanTheKernelWaitsForAtOnce) {
    std::vector<std::unique_ptr<sal::MessageQueue>> queues;
    std::vector<std::string> names;
    for (int i = 0; i < 200; ++i) {
        names.push_back("Q" + std::to_string(i));
        queues.push_back(std::make_unique<sal::MessageQueue>());
        ASSERT_TRUE(queues.back()->create(names.back(), 1, 16, 0));
    }
    EXPECT_FALSE(sal::MessageQueue::waitForReaders(names, 199, 20));
    QueuePeer reader({"attach", "Q199"});
    EXPECT_TRUE(sal::MessageQueue::waitForReaders(names, 199, -1));
}

TEST_F(MessageQueue, WaitForReadersGetsAlongWithoutTheKernelsHelp) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 1, 1024, 0));
    // As under a kernel that does not know the call; the rules hold for this thread alone.
    std::thread waiter([] {
        const std::array<sock_filter, 4> filter{{
            BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
            BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_futex_waitv, 0, 1),
            BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | ENOSYS),
            BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
        }};
        const sock_fprog program{filter.size(), const_cast<sock_filter*>(filter.data())};
        ASSERT_EQ(::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0), 0);
        ASSERT_EQ(::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program), 0);
        EXPECT_FALSE(sal::MessageQueue::waitForReaders({"Q"}, 0, 50));
        EXPECT_TRUE(sal::MessageQueue::waitForReaders({"Q"}, 0, -1));
    });
    std::this_thread::sleep_for(100ms);
    QueuePeer reader({"attach", "Q"});
    waiter.join();
}

TEST_F(MessageQueue, ATruncatedFileHoldsNobodyUpWhoWaitsForReaders) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 1, 1024, 0));
    ASSERT_EQ(::truncate(file("Q").c_str(), 0), 0);
    EXPECT_FALSE(sal::MessageQueue::waitForReaders({"Q"}, 0, 50));
    EXPECT_FALSE(sal::MessageQueue::hasReader("Q"));
}

TEST_F(MessageQueue, AFullSenderIsReleasedWhenTheCreatorDiesBeforeItReceived) {
    QueuePeer creator({"create", "Q"});
    ASSERT_EQ(creator.line(), "created");
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.open("Q"));
    fillWith(sut, "x");
    creator.kill();
    EXPECT_FALSE(sendText(sut, "y", -1));
}

TEST_F(MessageQueue, AReleaseIsReportedWithItsReason) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 1, 1024, 0));
    fillWith(sut, "x");
    sal::MessageQueue::receiverGone("Q");
    EXPECT_EQ(logOf([&] {
                  EXPECT_FALSE(sendText(sut, "y", -1));
                  EXPECT_FALSE(sendText(sut, "z", -1));
              }),
              "QUEUE: queue Q: full, and the process that was to read it has ended\n");
}

TEST_F(MessageQueue, ANewReceiverGoesOnWhereADeadOneStopped) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 4, 1024, 0));
    {
        sal::MessageQueue first;
        ASSERT_TRUE(first.open("Q"));
        sendText(sut, "1");
        sendText(sut, "2");
        ASSERT_EQ(receiveText(first), "1");
    }
    sal::MessageQueue second;
    ASSERT_TRUE(second.open("Q"));
    EXPECT_EQ(receiveText(second), "2");
}

TEST_F(MessageQueue, ASecondReceiverGetsNothing) {
    sal::MessageQueue sut;
    sal::MessageQueue second;
    ASSERT_TRUE(sut.create("Q", 4, 1024, 0));
    ASSERT_TRUE(second.open("Q"));
    ASSERT_EQ(receiveText(sut), "nothing");
    sendText(sut, "x");
    EXPECT_EQ(logOf([&] {
                  EXPECT_EQ(receiveText(second), "nothing");
                  EXPECT_EQ(receiveText(second), "nothing");
              }),
              "QUEUE: queue Q: another reader (process " + std::to_string(::getpid()) + ") has it\n");
    EXPECT_EQ(receiveText(sut), "x");
}

TEST_F(MessageQueue, TheLockOfADeadSenderIsTakenOver) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 4, 1024, 0));
    for (const std::uint32_t word : {0x30000000U, 0xb0000000U}) {
        scribble("Q", offsetof(sal::QueueHeader, senderLock), &word, sizeof(word));
        EXPECT_TRUE(sendText(sut, "x", c_hangGuardMs));
    }
}

TEST_F(MessageQueue, TheLockOfADeadSenderIsTakenOverByOneThatDoesNotWait) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 4, 1024, 0));
    const std::uint32_t word = 0x30000000;
    scribble("Q", offsetof(sal::QueueHeader, senderLock), &word, sizeof(word));
    EXPECT_TRUE(sendText(sut, "x", 0));
}

TEST_F(MessageQueue, TheLockOfALiveSenderIsWaitedForUntilTheTimeOut) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 4, 1024, 0));
    QueuePeer holder({"hold", "Q"});
    ASSERT_EQ(holder.line(), "opened");
    std::uint32_t next = 0;
    const int descriptor = ::open(file("Q").c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(::pread(descriptor, &next, 4, offsetof(sal::QueueHeader, nextTicket)), 4);
    ::close(descriptor);
    const std::uint32_t word = next - 1;
    scribble("Q", offsetof(sal::QueueHeader, senderLock), &word, sizeof(word));
    const auto begin = Clock::now();
    EXPECT_FALSE(sendText(sut, "x", 250));
    EXPECT_GE(Clock::now() - begin, 250ms);
    std::thread killer([&] {
        std::this_thread::sleep_for(50ms);
        holder.kill();
    });
    EXPECT_TRUE(sendText(sut, "x", -1));
    killer.join();
}

TEST_F(MessageQueue, TimeOutsHoldBesideAStoppedSender) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 16384, 1024, 0));
    std::mt19937 random(1);
    for (int i = 0; i < 20; ++i) {
        QueuePeer sender({"send", "Q", "1", "1000000"});
        ASSERT_EQ(sender.line(), "opened");
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 3000));
        sender.signal(SIGSTOP);
        // It may or may not hold the lock: what counts is that an answer comes.
        sendText(sut, "", 20);
        std::array<unsigned char, 1024> buffer{};
        for (int drained = 0; drained < 20000 && sut.receive(buffer.data(), 1024, 0) >= 0; ++drained) {
        }
    }
}

TEST_F(MessageQueue, SendersMayBeKilledAtAnyInstantEndurance) {
    std::mt19937 random(2);
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 64, 1024, 0));
    std::map<std::uint32_t, std::uint32_t> next;
    std::array<unsigned char, 1024> buffer{};
    const auto drain = [&](std::uint32_t atLeast, int timeout) {
        for (std::uint32_t received = 0;;) {
            const int length = sut.receive(buffer.data(), 1024, received < atLeast ? c_hangGuardMs : timeout);
            if (length < 0) {
                EXPECT_GE(received, atLeast);
                return;
            }
            const auto message = NumberedMessage::read(buffer.data(), length);
            ASSERT_TRUE(message);
            ASSERT_EQ(message->number, next[message->sender]++);
            if (++received >= atLeast && timeout < 0) {
                return;
            }
        }
    };
    for (int i = 0; i < rounds() && !HasFailure(); ++i) {
        const auto id = static_cast<std::uint32_t>(10 * i);
        QueuePeer victim({"send", "Q", std::to_string(id), "1000000"});
        QueuePeer survivor({"send", "Q", std::to_string(id + 1), "1000000"});
        ASSERT_EQ(victim.line(), "opened");
        ASSERT_EQ(survivor.line(), "opened");
        const auto end = Clock::now() + std::chrono::microseconds(random() % 5000);
        while (Clock::now() < end) {
            drain(1, -1);
        }
        victim.kill();
        drain(500, -1);
        survivor.kill();
        drain(0, 0);
        ASSERT_TRUE(sendNumber(sut, id + 2, 0, c_hangGuardMs));
        drain(1, 0);
    }
}

TEST_F(MessageQueue, ReceiversMayBeKilledAtAnyInstantEndurance) {
    std::mt19937 random(3);
    for (int i = 0; i < rounds() && !HasFailure(); ++i) {
        sal::MessageQueue sut;
        ASSERT_TRUE(sut.create("Q", 64, 1024, 0));
        QueuePeer victim({"receive", "Q"});
        ASSERT_EQ(victim.line(), "opened");
        std::thread killer([&, delay = std::chrono::microseconds(random() % 5000)] {
            victim.line();
            std::this_thread::sleep_for(delay);
            victim.kill();
        });
        std::uint32_t sent = 0;
        while (sendNumber(sut, 1, sent, -1)) {
            ++sent;
        }
        killer.join();
        // What is left is the end of what was sent, without a gap.
        std::array<unsigned char, 1024> buffer{};
        std::uint32_t left = 0;
        std::uint32_t expected = 0;
        for (int length = 0; (length = sut.receive(buffer.data(), 1024, 0)) >= 0; ++left, ++expected) {
            const auto message = NumberedMessage::read(buffer.data(), length);
            ASSERT_TRUE(message);
            expected = left == 0 ? message->number : expected;
            ASSERT_EQ(message->number, expected);
        }
        ASSERT_EQ(expected, sent);
        ASSERT_EQ(left, 64U);
    }
}

TEST_F(MessageQueue, CreatorsMayBeKilledAtAnyInstantEndurance) {
    std::mt19937 random(4);
    for (int i = 0; i < rounds() && !HasFailure(); ++i) {
        QueuePeer creator({"create", "Q"});
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 4000));
        creator.kill();
        sal::MessageQueue sut;
        ASSERT_TRUE(sut.create("Q", 64, 1024, 0));
        ASSERT_TRUE(sendText(sut, "x"));
        ASSERT_EQ(receiveText(sut), "x");
    }
}

TEST_F(MessageQueue, WaitForCreatorEndReturnsWhenItDies) {
    QueuePeer creator({"create", "Q"});
    ASSERT_EQ(creator.line(), "created");
    QueuePeer sut({"wait-creator-end", "Q"});
    ASSERT_EQ(sut.line(), "opened");
    std::this_thread::sleep_for(50ms);
    creator.kill();
    EXPECT_EQ(sut.line(), "ended");
}

TEST_F(MessageQueue, WaitForCreatorEndReturnsWhenItCloses) {
    sal::MessageQueue creator;
    ASSERT_TRUE(creator.create("Q", 4, 1024, 0));
    QueuePeer sut({"wait-creator-end", "Q"});
    ASSERT_EQ(sut.line(), "opened");
    creator.close();
    EXPECT_EQ(sut.line(), "ended");
}

TEST_F(MessageQueue, WaitForCreatorEndDoesNotReturnBefore) {
    sal::MessageQueue creator;
    sal::MessageQueue sut;
    ASSERT_TRUE(creator.create("Q", 4, 1024, 0));
    ASSERT_TRUE(sut.open("Q"));
    std::atomic<bool> ended{false};
    std::thread watcher([&] {
        EXPECT_TRUE(sut.waitForCreatorEnd());
        ended = true;
    });
    std::this_thread::sleep_for(300ms);
    EXPECT_FALSE(ended);
    creator.close();
    watcher.join();
}

TEST_F(MessageQueue, WaitForCreatorEndIsNothingForTheCreator) {
    sal::MessageQueue sut;
    EXPECT_FALSE(sut.waitForCreatorEnd());
    ASSERT_TRUE(sut.create("Q", 4, 1024, 0));
    EXPECT_FALSE(sut.waitForCreatorEnd());
}

TEST_F(MessageQueue, AClosedQueueLeavesNoDescriptorOpen) {
    sal::MessageQueue creator;
    ASSERT_TRUE(creator.create("Q", 4, 1024, 0));
    const int before = queueDescriptors();
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.open("Q"));
    EXPECT_GT(queueDescriptors(), before);
    sut.close();
    EXPECT_EQ(queueDescriptors(), before);
    creator.close();
    EXPECT_EQ(queueDescriptors(), 0);
}

TEST_F(MessageQueue, AForkedChildHasNoDescriptorOfAQueue) {
    sal::MessageQueue creator;
    sal::MessageQueue opened;
    ASSERT_TRUE(creator.create("Q", 4, 1024, 0));
    ASSERT_TRUE(opened.open("Q"));
    ASSERT_GT(queueDescriptors(), 0);
    const pid_t child = ::fork();
    if (child == 0) {
        ::_exit(queueDescriptors());
    }
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
}

TEST_F(MessageQueue, AWaitForTheCreatorsEndOutlivesItsObject) {
    sal::MessageQueue creator;
    auto pSut = std::make_unique<sal::MessageQueue>();
    ASSERT_TRUE(creator.create("Q", 4, 1024, 0));
    ASSERT_TRUE(pSut->open("Q"));
    std::atomic<long> thread{0};
    std::thread watcher([&thread, pRaw = pSut.get()] {
        thread = ::syscall(SYS_gettid);
        EXPECT_TRUE(pRaw->waitForCreatorEnd());
    });
    // In the kernel it waits for a lock; the object is not needed any more.
    ASSERT_TRUE(waitUntil([&] {
        std::ifstream stream("/proc/self/task/" + std::to_string(thread) + "/syscall");
        long call = -1;
        return stream >> call && call == SYS_fcntl;
    }));
    pSut.reset();
    EXPECT_EQ(statusOf("Q").holders, 1U);
    creator.close();
    watcher.join();
    EXPECT_EQ(files(), std::vector<std::string>{});
}

// Cursors that wrap.

TEST_F(MessageQueue, ASenderSeesAFullQueueThoughTheCursorsHaveWrappedSinceItSent) {
    sal::MessageQueue sut;
    sal::MessageQueue other;
    ASSERT_TRUE(sut.create("Q", 4, 64, 0));
    ASSERT_TRUE(other.open("Q"));
    // It has seen the receiver at message 0.
    ASSERT_TRUE(sendText(sut, "x"));
    ASSERT_EQ(receiveText(other), "x");
    fillWith(other, "y");
    // From there on the other one's two last messages seem to be all.
    turnBack("Q", offsetof(sal::QueueHeader, head), 3);
    turnBack("Q", offsetof(sal::QueueHeader, tail), 3);
    EXPECT_FALSE(sendText(sut, "z"));
    EXPECT_FALSE(sendText(other, "z"));
}

// Shutdown of the receiving thread.

TEST_F(MessageQueue, ShutdownWakesAReceiveThatWaits) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 4, 1024, 0));
    std::atomic<int> result{0};
    Receiver thread([&] {
        unsigned char byte = 0;
        result = sut.receive(&byte, 1, -1);
    });
    ASSERT_TRUE(waitUntil([] { return statusOf("Q").receiverAttached; }));
    std::this_thread::sleep_for(30ms);
    EXPECT_TRUE(thread.shutdown(c_hangGuardMs));
    EXPECT_EQ(result, -1);
}

TEST_F(MessageQueue, AfterShutdownReceiveDeliversWhatStoodInTheQueueAndNoMore) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 10, 1024, 0));
    std::atomic<bool> busy{false};
    std::atomic<bool> goOn{false};
    std::vector<std::string> received;
    {
        Receiver thread([&] {
            received.push_back(receiveText(sut, -1));
            busy = true;
            waitUntil([&] { return goOn.load(); });
            for (int i = 0; i < 5; ++i) {
                received.push_back(receiveText(sut, -1));
            }
        });
        sendText(sut, "0");
        ASSERT_TRUE(waitUntil([&] { return busy.load(); }));
        sendText(sut, "1");
        sendText(sut, "2");
        EXPECT_FALSE(thread.shutdown(0));
        sendText(sut, "3");
        goOn = true;
    }
    EXPECT_EQ(received, (std::vector<std::string>{"0", "1", "2", "nothing", "nothing", "nothing"}));
}

TEST_F(MessageQueue, ASenderThatNeverPausesDoesNotHoldUpAShutdown) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 256, 1024, 0));
    QueuePeer sender({"send", "Q", "1", "100000000"});
    ASSERT_EQ(sender.line(), "opened");
    Receiver thread([&] {
        while (receiveText(sut, 1000) != "nothing") {
        }
    });
    std::this_thread::sleep_for(50ms);
    EXPECT_TRUE(thread.shutdown(c_hangGuardMs));
}

TEST_F(MessageQueue, AThreadThatWasShutDownBeforeItsFirstReceiveGetsWhatStoodThen) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 4, 1024, 0));
    sendText(sut, "x");
    std::atomic<bool> goOn{false};
    std::vector<std::string> received;
    {
        Receiver thread([&] {
            waitUntil([&] { return goOn.load(); });
            received.push_back(receiveText(sut, -1));
            received.push_back(receiveText(sut, -1));
        });
        EXPECT_FALSE(thread.shutdown(0));
        goOn = true;
    }
    EXPECT_EQ(received, (std::vector<std::string>{"x", "nothing"}));
}

TEST_F(MessageQueue, AnotherThreadReceivesOnAfterAShutdown) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 4, 1024, 0));
    {
        Receiver thread([&] { receiveText(sut, -1); });
    }
    sendText(sut, "x");
    EXPECT_EQ(receiveText(sut), "x");
}

TEST_F(MessageQueue, ShutdownWakesAReceiveThatIsRefused) {
    sal::MessageQueue first;
    sal::MessageQueue sut;
    ASSERT_TRUE(first.create("Q", 4, 1024, 0));
    ASSERT_TRUE(sut.open("Q"));
    receiveText(first);
    std::atomic<int> answers{0};
    std::atomic<bool> stop{false};
    Receiver thread([&] {
        while (!stop) {
            receiveText(sut, 1000);
            ++answers;
        }
    });
    const auto begin = Clock::now();
    std::this_thread::sleep_for(300ms);
    const int answered = answers;
    EXPECT_LE(answered, 2 + (Clock::now() - begin) / 1s)
        << "a refused receive in a loop must not burn a processor";
    stop = true;
    EXPECT_TRUE(thread.shutdown(c_hangGuardMs));
}

// Damage.

TEST_F(MessageQueue, AScribbledTailIsAnErrorAndALine) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 4, 1024, 0));
    const std::uint64_t nonsense = 0x0123456789abcdef;
    scribble("Q", offsetof(sal::QueueHeader, tail), &nonsense, sizeof(nonsense));
    EXPECT_EQ(logOf([&] { EXPECT_EQ(receiveText(sut, -1), "nothing"); }),
              "QUEUE: queue Q: its indices make no sense; its messages are lost, it must be made anew\n");
}

TEST_F(MessageQueue, AScribbledTailWakesAReceiveThatWaits) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 4, 1024, 0));
    std::thread scribbler([&] {
        std::this_thread::sleep_for(100ms);
        const std::uint64_t nonsense = 0x0123456789abcdef;
        scribble("Q", offsetof(sal::QueueHeader, tail), &nonsense, sizeof(nonsense));
    });
    EXPECT_EQ(receiveText(sut, -1), "nothing");
    scribbler.join();
}

TEST_F(MessageQueue, DamageThatOneEndFindsEndsTheWaitOfTheOther) {
    sal::MessageQueue sut;
    sal::MessageQueue other;
    ASSERT_TRUE(sut.create("Q", 1, 1024, 0));
    ASSERT_TRUE(other.open("Q"));
    ASSERT_EQ(receiveText(other), "nothing");
    fillWith(sut, "x");
    std::thread finder([&] {
        std::this_thread::sleep_for(100ms);
        const std::uint64_t nonsense = 0x0123456789abcdef;
        scribble("Q", offsetof(sal::QueueHeader, head), &nonsense, sizeof(nonsense));
        EXPECT_EQ(receiveText(other, -1), "nothing");
    });
    EXPECT_FALSE(sendText(sut, "y", -1));
    finder.join();
}

TEST_F(MessageQueue, AScribbledLengthIsNoAccessOutside) {
    for (const std::uint32_t length : {1025U, 0x7fffffffU, 0xfffffff0U, 0xffffffffU}) {
        sal::MessageQueue sut;
        ASSERT_TRUE(sut.create("Q", 4, 1024, 0));
        ASSERT_TRUE(sendText(sut, "the first, since a sum that overflows needs one before"));
        ASSERT_TRUE(sendText(sut, "a message of which the first eight bytes are found by their text"));
        const auto geometry = std::filesystem::file_size(file("Q"));
        std::vector<char> content(geometry);
        const int descriptor = ::open(file("Q").c_str(), O_RDONLY | O_CLOEXEC);
        ASSERT_EQ(::pread(descriptor, content.data(), content.size(), 0),
                  static_cast<ssize_t>(content.size()));
        ::close(descriptor);
        const std::string text = "a message of which";
        const auto found = std::search(content.begin(), content.end(), text.begin(), text.end());
        ASSERT_NE(found, content.end());
        scribble("Q", static_cast<std::size_t>(found - content.begin()) - 8, &length, sizeof(length));
        EXPECT_EQ(receiveText(sut, -1).substr(0, 9), "the first");
        EXPECT_EQ(receiveText(sut, -1), "nothing") << length;
    }
}

TEST_F(MessageQueue, NoScribbledWordIsACrashOrAHang) {
    const std::array<std::uint64_t, 5> patterns{0, ~std::uint64_t{0}, 0x0101010101010101, 0xffffffff'00000000,
                                                0x8000000080000000};
    std::mt19937_64 random(5);
    for (std::size_t offset = 0; offset < 4096 + 256; offset += offset == 512 ? 4096 - 512 : 8) {
        for (std::size_t i = 0; i < patterns.size() + 2; ++i) {
            sal::MessageQueue sut;
            sal::MessageQueue receiver;
            ASSERT_TRUE(sut.create("Q", 400, 1024, 0));
            ASSERT_TRUE(receiver.open("Q"));
            for (std::uint32_t number = 0; number < 100; ++number) {
                ASSERT_TRUE(sendNumber(sut, 1, number, 0));
            }
            receiveText(receiver);
            const std::uint64_t word = i < patterns.size() ? patterns[i] : random();
            scribble("Q", offset, &word, sizeof(word));
            logOf([&] {
                for (int attempt = 0; attempt < 110; ++attempt) {
                    if (attempt > 0 || i % 2 == 0) {
                        sendNumber(sut, 1, 0, 1);
                    }
                    if (receiveText(receiver, 0) == "nothing") {
                        break;
                    }
                }
                sal::MessageQueue::statuses();
            });
        }
    }
}

TEST_F(MessageQueue, ATruncatedFileIsNoCrash) {
    for (const off_t size : {0, 100, 4096, 8192, 20000, 60000}) {
        sal::MessageQueue sut;
        sal::MessageQueue receiver;
        ASSERT_TRUE(sut.create("Q", 400, 1024, 0));
        ASSERT_TRUE(receiver.open("Q"));
        for (std::uint32_t number = 0; number < 300; ++number) {
            ASSERT_TRUE(sendNumber(sut, 1, number, 0));
        }
        ASSERT_EQ(::truncate(file("Q").c_str(), size), 0);
        const std::string log = logOf([&] {
            while (sendNumber(sut, 1, 0, 0)) {
            }
            while (receiveText(receiver, 0) != "nothing") {
            }
        });
        EXPECT_NE(log.find("its file has been cut short"), std::string::npos) << size << ": " << log;
    }
}

TEST_F(MessageQueue, AMessageWhosePageHasVanishedIsNotDelivered) {
    const std::string message(10000, 'x');
    sal::MessageQueue sut;
    sal::MessageQueue receiver;
    ASSERT_TRUE(sut.create("Q", 4, 16384, 0));
    ASSERT_TRUE(receiver.open("Q"));
    ASSERT_TRUE(sendText(sut, message));
    std::ostringstream bytes;
    bytes << std::ifstream(file("Q"), std::ios::binary).rdbuf();
    const std::size_t begin = bytes.str().find(message);
    ASSERT_NE(begin, std::string::npos);
    // The page with its first bytes is left, and all before.
    ASSERT_EQ(::truncate(file("Q").c_str(), static_cast<off_t>((begin / 4096 + 1) * 4096)), 0);
    std::vector<unsigned char> buffer(16384);
    EXPECT_EQ(receiver.receive(buffer.data(), static_cast<int>(buffer.size()), 0), -1);
}

TEST_F(MessageQueue, AMessageThatATruncatedFileLosesIsNotReportedAsSent) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 400, 1024, 0));
    ASSERT_EQ(::truncate(file("Q").c_str(), 0), 0);
    EXPECT_FALSE(sendText(sut, "x"));
}

TEST_F(MessageQueue, ATruncatedFileEndsAReceiveThatWaits) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 400, 1024, 0));
    std::thread truncator([&] {
        std::this_thread::sleep_for(50ms);
        EXPECT_EQ(::truncate(file("Q").c_str(), 0), 0);
    });
    EXPECT_EQ(receiveText(sut, -1), "nothing");
    truncator.join();
}

TEST_F(MessageQueue, ATruncatedFileEndsASendThatWaits) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 1, 1024, 0));
    fillWith(sut, "x");
    std::thread truncator([&] {
        std::this_thread::sleep_for(50ms);
        EXPECT_EQ(::truncate(file("Q").c_str(), 0), 0);
    });
    EXPECT_FALSE(sendText(sut, "y", -1));
    truncator.join();
}

/// Causes a bus error that is no queue's.
void causeBusError() {
    const int descriptor = ::memfd_create("short", MFD_CLOEXEC);
    auto* pBytes =
        static_cast<volatile char*>(::mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0));
    pBytes[0] = 1;
}

TEST_F(MessageQueue, ABusErrorElsewhereStillEndsTheProgram) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            sal::MessageQueue sut;
            ::signal(SIGBUS, SIG_DFL);
            sut.create("Q", 4, 1024, 0);
            causeBusError();
            ::_exit(0);
        },
        testing::KilledBySignal(SIGBUS), "");
}

TEST_F(MessageQueue, ABusErrorElsewhereGoesToTheHandlerThatWasThereBefore) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            ::signal(SIGBUS, [](int) { ::_exit(7); });
            sal::MessageQueue sut;
            sut.create("Q", 4, 1024, 0);
            causeBusError();
            ::_exit(0);
        },
        testing::ExitedWithCode(7), "");
}

// Memory.

TEST_F(MessageQueue, TakesLittleMemoryWhileTheReceiverKeepsUp) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 16384, 1024, 0));
    for (std::uint32_t number = 0; number < 100'000; ++number) {
        ASSERT_TRUE(sendNumber(sut, 1, number, 0));
        ASSERT_NE(receiveText(sut), "nothing");
    }
    EXPECT_LE(memoryOf("Q"), 128U * 1024);
}

TEST_F(MessageQueue, GivesMemoryBackAfterABacklog) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 16384, 1024, 0));
    for (std::uint32_t number = 0; number < 12'000; ++number) {
        ASSERT_TRUE(sendNumber(sut, 1, number, 0));
    }
    ASSERT_GT(memoryOf("Q"), 5'000'000U);
    for (std::uint32_t number = 0; number < 12'000; ++number) {
        ASSERT_NE(receiveText(sut), "nothing");
    }
    EXPECT_TRUE(waitUntil([&] {
        receiveText(sut, 100);
        return memoryOf("Q") <= 160U * 1024;
    }));
}

TEST_F(MessageQueue, GivesMemoryBackWhileTrafficGoesOn) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 16384, 1024, 0));
    std::uint32_t sent = 0;
    std::uint32_t received = 0;
    std::array<unsigned char, 1024> buffer{};
    for (; sent < 5'000; ++sent) {
        ASSERT_TRUE(sendNumber(sut, 1, sent, 0));
    }
    // One message always stands in the queue, so the receiver never comes to wait.
    EXPECT_TRUE(waitUntil([&] {
        for (int i = 0; i < 200; ++i) {
            if (sent - received < 2) {
                EXPECT_TRUE(sendNumber(sut, 1, sent++, 0));
            }
            const auto message = NumberedMessage::read(buffer.data(), sut.receive(buffer.data(), 1024, 0));
            EXPECT_TRUE(message && message->number == received);
            ++received;
        }
        return memoryOf("Q") <= 160U * 1024;
    }));
}

/// The queues of a process are in a file system of their own, which is small.
class MessageQueueWithoutMemory : public MessageQueue {
protected:
    void SetUp() override {
        MessageQueue::SetUp();
        if (std::system("unshare -Urm true 2>/dev/null") != 0)
            GTEST_SKIP() << "needs user and mount namespaces";
    }
    static std::string lineOf(const std::string& command, const std::string& size) {
        QueuePeer peer(
            {command, "Q"},
            {"unshare", "-Urm", "sh", "-c",
             "mount -t tmpfs -o size=" + size + ",mode=0700 none $MFD_QUEUE_DIR && exec \"$@\"", "sh"});
        return peer.line();
    }
};

TEST_F(MessageQueueWithoutMemory, SendFails) {
    EXPECT_EQ(lineOf("fill", "512k"), "filled and emptied");
}

TEST_F(MessageQueueWithoutMemory, SendFailsThoughSomeWasGivenBack) {
    EXPECT_EQ(lineOf("refill", "2m"), "refilled and emptied");
}

TEST_F(MessageQueueWithoutMemory, CreateFails) {
    EXPECT_EQ(lineOf("create", "16k"), "not created");
}

// What the host shows.

TEST_F(MessageQueue, StatusesShowTheQueuesThatThisProcessMade) {
    sal::MessageQueue second;
    sal::MessageQueue first;
    sal::MessageQueue opened;
    ASSERT_TRUE(second.create("B/2", 4, 1024, 0));
    ASSERT_TRUE(first.create("A", 4, 1024, 0));
    ASSERT_TRUE(opened.open("A"));
    const auto statuses = sal::MessageQueue::statuses();
    ASSERT_EQ(statuses.size(), 2U);
    EXPECT_EQ(statuses[0].name, "A");
    EXPECT_EQ(statuses[1].name, "B/2");
}

TEST_F(MessageQueue, StatusesCountMessages) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 4, 1024, 0));
    sendText(sut, "abc");
    sendText(sut, "de");
    receiveText(sut);
    const auto status = statusOf("Q");
    EXPECT_EQ(status.capacity, 4U);
    EXPECT_EQ(status.depth, 1U);
    EXPECT_EQ(status.highWater, 2U);
    EXPECT_EQ(status.messages, 2U);
    EXPECT_EQ(status.bytes, 5U);
}

TEST_F(MessageQueue, StatusesCountHolders) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 4, 1024, 0));
    QueuePeer peer({"hold", "Q"});
    ASSERT_EQ(peer.line(), "opened");
    sal::MessageQueue other;
    ASSERT_TRUE(other.open("Q"));
    EXPECT_EQ(statusOf("Q").holders, 3U);
    peer.kill();
    EXPECT_EQ(statusOf("Q").holders, 2U);
}

TEST_F(MessageQueue, StatusesSayWhetherAReceiverIsAttached) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 4, 1024, 0));
    EXPECT_FALSE(statusOf("Q").receiverAttached);
    QueuePeer peer({"attach", "Q"});
    ASSERT_EQ(peer.line(), "attached");
    EXPECT_TRUE(statusOf("Q").receiverAttached);
    peer.kill();
    EXPECT_FALSE(statusOf("Q").receiverAttached);
}

TEST_F(MessageQueue, StatusesSayHowLongASenderHasWaited) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 1, 1024, 0));
    EXPECT_EQ(statusOf("Q").waitingForMs, 0U);
    fillWith(sut, "x");
    std::thread sender([&] { EXPECT_TRUE(sendText(sut, "y", -1)); });
    EXPECT_TRUE(waitUntil([] { return statusOf("Q").waitingForMs >= 50; }));
    receiveText(sut);
    sender.join();
    EXPECT_EQ(statusOf("Q").waitingForMs, 0U);
    EXPECT_EQ(statusOf("Q").waits, 2U);
}

TEST_F(MessageQueue, StatusesForgetAClosedQueue) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 4, 1024, 0));
    sut.close();
    EXPECT_TRUE(sal::MessageQueue::statuses().empty());
}

TEST_F(MessageQueue, StatusesSayWhetherSomebodyIsOrWasAttached) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 4, 1024, 0));
    EXPECT_FALSE(statusOf("Q").isAttached);
    EXPECT_FALSE(statusOf("Q").wasAttached);
    QueuePeer peer({"hold", "Q"});
    ASSERT_EQ(peer.line(), "opened");
    EXPECT_TRUE(statusOf("Q").isAttached);
    EXPECT_TRUE(statusOf("Q").wasAttached);
    peer.kill();
    EXPECT_FALSE(statusOf("Q").isAttached);
    EXPECT_TRUE(statusOf("Q").wasAttached);
}

TEST_F(MessageQueue, StatusesSayThatAnIndexMakesNoSense) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 4, 1024, 0));
    EXPECT_FALSE(statusOf("Q").isBroken);
    const std::uint64_t nonsense = 0x1234567890abcdef;
    scribble("Q", offsetof(sal::QueueHeader, tail), &nonsense, sizeof(nonsense));
    receiveText(sut);
    EXPECT_TRUE(statusOf("Q").isBroken);
}

TEST_F(MessageQueue, StatusesSayThatAnotherProcessFoundDamage) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 4, 1024, 0));
    const std::uint32_t broken = 1;
    scribble("Q", offsetof(sal::QueueHeader, broken), &broken, sizeof(broken));
    EXPECT_TRUE(statusOf("Q").isBroken);
}

TEST_F(MessageQueue, SaysOfItselfThatItIsBroken) {
    sal::MessageQueue sut;
    EXPECT_FALSE(sut.isBroken());
    ASSERT_TRUE(sut.create("Q", 4, 1024, 0));
    EXPECT_FALSE(sut.isBroken());
    const std::uint32_t broken = 1;
    scribble("Q", offsetof(sal::QueueHeader, broken), &broken, sizeof(broken));
    EXPECT_TRUE(sut.isBroken());
}

TEST_F(MessageQueue, StatusesSayThatAFileHasBeenCutShort) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 4, 1024, 0));
    ASSERT_EQ(::truncate(file("Q").c_str(), 8192), 0);
    EXPECT_TRUE(statusOf("Q").isBroken);
}

// The senders' lock, left by somebody who lives.

TEST_F(MessageQueue, StatusesSayHowLongASenderHasWaitedForTheLock) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 4, 1024, 0));
    QueuePeer peer({"hold", "Q"});
    ASSERT_EQ(peer.line(), "opened");
    lockForTheLastWhoAttached("Q");
    std::thread sender([&] { EXPECT_TRUE(sendText(sut, "y", -1)); });
    EXPECT_TRUE(waitUntil([] { return statusOf("Q").lockedForMs >= 50; }));
    EXPECT_GE(statusOf("Q").waitingForMs, 50U);
    EXPECT_EQ(statusOf("Q").waits, 0U);
    peer.kill();
    sender.join();
    EXPECT_EQ(statusOf("Q").lockedForMs, 0U);
    EXPECT_EQ(statusOf("Q").waitingForMs, 0U);
}

TEST_F(MessageQueue, StatusesSeeASenderBehindAnotherThreadsOfTheProcess) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 4, 1024, 0));
    QueuePeer peer({"hold", "Q"});
    ASSERT_EQ(peer.line(), "opened");
    lockForTheLastWhoAttached("Q");
    std::thread first([&] { EXPECT_TRUE(sendText(sut, "x", -1)); });
    ASSERT_TRUE(waitUntil([] { return statusOf("Q").lockedForMs >= 1000; }));
    // It waits for the first one, inside the process.
    std::thread second([&] { EXPECT_FALSE(sendText(sut, "y", 500)); });
    second.join();
    EXPECT_GE(statusOf("Q").lockedForMs, 1500U);
    peer.kill();
    first.join();
}

TEST_F(MessageQueue, AWaitForRoomIsNoneForTheLock) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 1, 1024, 0));
    fillWith(sut, "x");
    std::thread sender([&] { EXPECT_TRUE(sendText(sut, "y", -1)); });
    EXPECT_TRUE(waitUntil([] { return statusOf("Q").waitingForMs >= 300; }));
    EXPECT_EQ(statusOf("Q").lockedForMs, 0U);
    receiveText(sut);
    sender.join();
}

TEST_F(MessageQueue, ASenderAtTheLockGivesUpOnceTheReaderHasDied) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 4, 1024, 0));
    QueuePeer reader({"attach", "Q"});
    ASSERT_EQ(reader.line(), "attached");
    QueuePeer holder({"hold", "Q"});
    ASSERT_EQ(holder.line(), "opened");
    lockForTheLastWhoAttached("Q");
    const pid_t pid = reader.pid();
    const std::string log = logOf([&] {
        std::thread sender([&] { EXPECT_FALSE(sendText(sut, "y", -1)); });
        ASSERT_TRUE(waitUntil([] { return statusOf("Q").lockedForMs >= 300; }));
        reader.kill();
        sender.join();
    });
    EXPECT_EQ(log, "QUEUE: queue Q: locked by another sender, and its reader (process " +
                       std::to_string(pid) + ") has ended\n");
}

TEST_F(MessageQueue, ASenderAtTheLockGivesUpOnceNobodyWillRead) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 4, 1024, 0));
    QueuePeer holder({"hold", "Q"});
    ASSERT_EQ(holder.line(), "opened");
    lockForTheLastWhoAttached("Q");
    std::thread sender([&] { EXPECT_FALSE(sendText(sut, "y", -1)); });
    ASSERT_TRUE(waitUntil([] { return statusOf("Q").lockedForMs > 0; }));
    sal::MessageQueue::receiverGone("Q");
    sender.join();
}

// Names that cannot be had.

TEST_F(MessageQueue, NameFaultSaysWhichNamesNoFileCanHave) {
    EXPECT_EQ(sal::MessageQueue::nameFault(std::string(255, 'x')), "");
    EXPECT_EQ(sal::MessageQueue::nameFault(std::string(256, 'x')),
              "the name is too long: its file name would have 256 bytes, at most 255 are possible");
    EXPECT_EQ(sal::MessageQueue::nameFault(std::string(86, ' ')),
              "the name is too long: its file name would have 258 bytes, at most 255 are possible");
}

TEST_F(MessageQueue, CreateFaultFindsNothingWrongAndLeavesNothing) {
    EXPECT_EQ(sal::MessageQueue::createFault("Q"), "");
    EXPECT_TRUE(files().empty());
}

TEST_F(MessageQueue, CreateFaultNamesWhoHasTheNameAndLogsNothing) {
    QueuePeer peer({"create", "Q"});
    ASSERT_EQ(peer.line(), "created");
    const std::string why =
        "the name is still in use by a live process (made by process " + std::to_string(peer.pid()) + ")";
    EXPECT_EQ(logOf([&] { EXPECT_EQ(sal::MessageQueue::createFault("Q"), why); }), "");
    sal::MessageQueue sut;
    // That was the caller's to say.
    EXPECT_EQ(logOf([&] { EXPECT_FALSE(sut.create("Q", 4, 1024, 0)); }), "");
}

TEST_F(MessageQueue, CreateFaultOfAQueueOfThisProcessTriesTheDirectory) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 4, 1024, 0));
    EXPECT_EQ(sal::MessageQueue::createFault("Q"), "");
    EXPECT_EQ(files(), std::vector<std::string>{"Q"});
    ASSERT_EQ(::chmod(m_directory.c_str(), 0777), 0);
    EXPECT_EQ(sal::MessageQueue::createFault("Q"),
              "queue directory " + m_directory + " is open to other users (mode 0777); it must be 0700");
}

TEST_F(MessageQueue, SaysOnceWhyANameIsRefused) {
    ASSERT_EQ(::chmod(m_directory.c_str(), 0750), 0);
    sal::MessageQueue sut;
    const std::string why = "QUEUE: queue Q: not created: queue directory " + m_directory +
                            " is open to other users (mode 0750); it must be 0700\n";
    const auto refused = [&] {
        for (int i = 0; i < 3; ++i) {
            EXPECT_FALSE(sut.create("Q", 4, 1024, 0));
        }
    };
    EXPECT_EQ(logOf(refused), why);
    // And again once it could be made.
    ASSERT_EQ(::chmod(m_directory.c_str(), 0700), 0);
    ASSERT_TRUE(sut.create("Q", 4, 1024, 0));
    sut.close();
    ASSERT_EQ(::chmod(m_directory.c_str(), 0750), 0);
    EXPECT_EQ(logOf(refused), why);
}

TEST_F(MessageQueue, RefusalsShowWhatIsBeingTriedAgainAndAgain) {
    QueuePeer peer({"create", "Q"});
    ASSERT_EQ(peer.line(), "created");
    sal::MessageQueue sut;
    // Those of the test before.
    ASSERT_TRUE(waitUntil([] { return sal::MessageQueue::refusals().empty(); }));
    EXPECT_FALSE(sut.create("Q", 4, 1024, 0));
    std::this_thread::sleep_for(100ms);
    EXPECT_FALSE(sut.create("Q", 4, 1024, 0));
    const auto refusals = sal::MessageQueue::refusals();
    ASSERT_EQ(refusals.size(), 1U);
    EXPECT_EQ(refusals[0].name, "Q");
    EXPECT_EQ(refusals[0].why, "the name is still in use by a live process (made by process " +
                                   std::to_string(peer.pid()) + ")");
    EXPECT_GE(refusals[0].forMs, 100U);
    peer.kill();
    EXPECT_TRUE(sut.create("Q", 4, 1024, 0));
    EXPECT_TRUE(sal::MessageQueue::refusals().empty());
}

TEST_F(MessageQueue, RefusalsForgetWhatNobodyTriesAnyMore) {
    QueuePeer peer({"create", "Q"});
    ASSERT_EQ(peer.line(), "created");
    EXPECT_FALSE(sal::MessageQueue().create("Q", 4, 1024, 0));
    EXPECT_TRUE(waitUntil([] { return sal::MessageQueue::refusals().empty(); }));
}

TEST_F(MessageQueue, RetireTakesTheNameFromThoseWhoOutliveItsCreator) {
    QueuePeer creator({"create", "Q"});
    ASSERT_EQ(creator.line(), "created");
    QueuePeer peer({"receive", "Q"});
    ASSERT_EQ(peer.line(), "opened");
    creator.kill();
    sal::MessageQueue sut;
    ASSERT_FALSE(sut.create("Q", 4, 1024, 0));
    EXPECT_TRUE(sal::MessageQueue::retire("Q"));
    EXPECT_TRUE(sut.create("Q", 4, 1024, 0));
    // To its former holder the queue is a broken one.
    EXPECT_EQ(peer.line(), "not received");
}

TEST_F(MessageQueue, RetireLeavesAQueueToALiveCreator) {
    QueuePeer peer({"create", "Q"});
    ASSERT_EQ(peer.line(), "created");
    EXPECT_FALSE(sal::MessageQueue::retire("Q"));
    EXPECT_TRUE(std::filesystem::exists(file("Q")));
    sal::MessageQueue own;
    ASSERT_TRUE(own.create("R", 4, 1024, 0));
    EXPECT_FALSE(sal::MessageQueue::retire("R"));
    EXPECT_FALSE(statusOf("R").isBroken);
}

TEST_F(MessageQueue, RetireRemovesNothingThatIsNoQueueOfOurs) {
    std::filesystem::create_directory(m_directory + "/target");
    std::filesystem::create_symlink("target", file("Q"));
    EXPECT_FALSE(sal::MessageQueue::retire("Q"));
    EXPECT_TRUE(std::filesystem::is_symlink(file("Q")));
    EXPECT_TRUE(sal::MessageQueue::retire("absent"));
}

TEST_F(MessageQueue, PassedCreateAnswersWithoutAQueue) {
    QueuePeer peer({"create", "Q"});
    ASSERT_EQ(peer.line(), "created");
    sal::MessageQueue sut;
    ASSERT_FALSE(sut.create("Q", 4, 1024, 0));
    sal::MessageQueue::passNextCreate({"Q", "", 0});
    EXPECT_TRUE(sut.create("Q", 4, 1024, 0));
    EXPECT_FALSE(sendText(sut, "x"));
    EXPECT_EQ(receiveText(sut), "nothing");
    EXPECT_TRUE(sal::MessageQueue::statuses().empty());
    sut.close();
    // The next one only.
    EXPECT_FALSE(sut.create("Q", 4, 1024, 0));
}

TEST_F(MessageQueue, PassEndsWhatWasRefused) {
    QueuePeer peer({"create", "Q"});
    ASSERT_EQ(peer.line(), "created");
    sal::MessageQueue sut;
    ASSERT_FALSE(sut.create("Q", 4, 1024, 0));
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
    ASSERT_FALSE(sut.create("Q", 4, 1024, 0));
    const std::vector<sal::MessageQueue::Refusal> refusals = sal::MessageQueue::refusals();
    ASSERT_EQ(refusals.size(), 1u);
    sal::MessageQueue::passNextCreate(refusals.front());
    ASSERT_TRUE(sut.create("Q", 4, 1024, 0));
    EXPECT_TRUE(sal::MessageQueue::refusals().empty());
    // Whoever has seen it being refused before the pass was taken passes nothing any more.
    sal::MessageQueue::passNextCreate(refusals.front());
    EXPECT_FALSE(sut.create("Q", 4, 1024, 0));
    sal::MessageQueue::passNextCreate(refusals.front());
    EXPECT_FALSE(sut.create("Q", 4, 1024, 0));
}

TEST_F(MessageQueue, PassedCreateMakesTheQueueWhereItCan) {
    QueuePeer peer({"create", "Q"});
    ASSERT_EQ(peer.line(), "created");
    sal::MessageQueue sut;
    ASSERT_FALSE(sut.create("Q", 4, 1024, 0));
    sal::MessageQueue::passNextCreate({"Q", "", 0});
    peer.kill();
    EXPECT_TRUE(sut.create("Q", 4, 1024, 0));
    EXPECT_TRUE(sendText(sut, "x"));
}

TEST_F(MessageQueue, PassCountsOnlyForANameThatIsBeingRefused) {
    QueuePeer peer({"create", "PASSED"});
    ASSERT_EQ(peer.line(), "created");
    sal::MessageQueue sut;
    sal::MessageQueue::passNextCreate({"PASSED", "", 0});
    EXPECT_FALSE(sut.create("PASSED", 4, 1024, 0));
    sal::MessageQueue::passNextCreate({"PASSED", "", 0});
    // By now the one that was refused has gone away.
    ASSERT_TRUE(waitUntil([] { return sal::MessageQueue::refusals().empty(); }));
    EXPECT_FALSE(sut.create("PASSED", 4, 1024, 0));
}

TEST_F(MessageQueue, RemoveNamesLeavesThoseThatAnotherProcessStillHas) {
    sal::MessageQueue alone;
    sal::MessageQueue shared;
    ASSERT_TRUE(alone.create("A", 4, 1024, 0));
    ASSERT_TRUE(shared.create("S", 4, 1024, 0));
    QueuePeer peer({"hold", "S"});
    ASSERT_EQ(peer.line(), "opened");
    EXPECT_FALSE(sal::MessageQueue::removeNames());
    EXPECT_EQ(files(), std::vector<std::string>{"S"});
    peer.kill();
    EXPECT_TRUE(sal::MessageQueue::removeNames());
    EXPECT_TRUE(files().empty());
}

TEST_F(MessageQueue, WithoutADirectoryNothingIsMade) {
    ::unsetenv("MFD_QUEUE_DIR");
    sal::MessageQueue sut;
    EXPECT_EQ(
        logOf([&] { EXPECT_FALSE(sut.create("Q", 4, 1024, 0)); }),
        "QUEUE: queue Q: not created: MFD_QUEUE_DIR does not name the directory of the host's queues\n");
    EXPECT_EQ(logOf([&] { EXPECT_FALSE(sut.open("Q")); }),
              "QUEUE: queue Q: not opened: MFD_QUEUE_DIR does not name the directory of the host's queues\n");
}

TEST_F(MessageQueue, OpenMakesNoDirectory) {
    const std::string path = m_directory + "/inner";
    ::setenv("MFD_QUEUE_DIR", path.c_str(), 1);
    EXPECT_EQ(logOf([&] { EXPECT_FALSE(sal::MessageQueue().open("Q")); }),
              "QUEUE: queue Q: not opened: queue directory " + path +
                  " cannot be opened: No such file or directory\n");
    EXPECT_FALSE(std::filesystem::exists(path));
}

}  // namespace
