// A sender that sends many messages in a row passes the senders' lock by plain stores until another comes:
// the same promises hold on that way, between any two instructions.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cstddef>
#include <fstream>
#include <map>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "QueueLayout.h"
#include "QueuePeer.h"
#include "QueueTorture.h"

using namespace std::chrono_literals;

namespace {

/// More than a sender needs in a row to be favoured for the first time.
constexpr std::uint32_t g_many = 300;

class QueueFavour : public QueueTorture {
protected:
    /// The queue's header as it stands in shared memory.
    class Header {
    public:
        explicit Header(const std::string& file) {
            const int descriptor = ::open(file.c_str(), O_RDWR | O_CLOEXEC);
            m_pMemory = ::mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
            ::close(descriptor);
        }
        ~Header() { ::munmap(m_pMemory, 4096); }
        Header(const Header&) = delete;
        Header& operator=(const Header&) = delete;
        sal::QueueHeader* operator->() const { return static_cast<sal::QueueHeader*>(m_pMemory); }

        std::uint32_t favoured() const { return (*this)->senderLock.favoured.load(); }
        /// How often somebody was woken for a message; the word behind it tells that somebody waits.
        std::uint32_t wakeUps() const { return dataEvent()[0].load(); }
        bool isAwaited() const { return dataEvent()[1].load() != 0; }
        bool isEmpty() const {
            return sal::QueueCursor::unpack((*this)->head.load()).count ==
                   sal::QueueCursor::unpack((*this)->tail.load()).count;
        }

    private:
        sal::FutexWord* dataEvent() const { return reinterpret_cast<sal::FutexWord*>(&(*this)->dataEvent); }

        void* m_pMemory;
    };

    std::string file() const { return m_directory + "/Q"; }

    /// Sends and receives until the lock's words say that the sender is favoured.
    static bool earnFavour(sal::MessageQueue& queue, const Header& header) {
        for (int i = 0; i < 20000; ++i) {
            if (header.favoured() != 0) {
                return true;
            }
            if (!send(queue, 3, 0, 0) || !receive(queue, 0)) {
                return false;
            }
        }
        return false;
    }

    /// Whether that thread of this process waits in the kernel for a wake-up.
    static bool sleeps(long thread) {
        std::ifstream stream("/proc/self/task/" + std::to_string(thread) + "/syscall");
        long call = -1;
        return stream >> call && call == SYS_futex;
    }

    static int empty(sal::MessageQueue& queue) {
        int count = 0;
        while (receive(queue, 0)) {
            ++count;
        }
        return count;
    }
};

}  // namespace

TEST_F(QueueFavour, ASenderInARowIsFavoured) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 16, 1024, 0));
    const Header header(file());
    EXPECT_EQ(header.favoured(), 0U);
    EXPECT_TRUE(earnFavour(sut, header));
    EXPECT_TRUE(send(sut, 1, 5, 0));
    EXPECT_EQ(receive(sut, 0)->number, 5U);
}

TEST_F(QueueFavour, AnotherSenderWithdrawsIt) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 16, 1024, 0));
    const Header header(file());
    ASSERT_TRUE(earnFavour(sut, header));
    sal::MessageQueue other;
    ASSERT_TRUE(other.open("Q"));
    EXPECT_TRUE(send(other, 2, 6, 0));
    EXPECT_EQ(header.favoured(), 0U);
    EXPECT_TRUE(send(sut, 1, 7, 0));
    EXPECT_EQ(receive(sut, 0)->number, 6U);
    EXPECT_EQ(receive(sut, 0)->number, 7U);
}

TEST_F(QueueFavour, AnotherThreadOfTheProcessWithdrawsIt) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 16, 1024, 0));
    const Header header(file());
    ASSERT_TRUE(earnFavour(sut, header));
    bool isSent = false;
    std::thread([&] { isSent = send(sut, 2, 6, 0); }).join();
    EXPECT_TRUE(isSent);
    EXPECT_EQ(header.favoured(), 0U);
}

TEST_F(QueueFavour, ItIsEarnedHarderEachTime) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 16, 1024, 0));
    const Header header(file());
    ASSERT_TRUE(earnFavour(sut, header));
    sal::MessageQueue other;
    ASSERT_TRUE(other.open("Q"));
    ASSERT_TRUE(send(other, 2, 0, 0));
    for (std::uint32_t i = 0; i < g_many; ++i) {
        ASSERT_TRUE(send(sut, 1, i, 0));
        ASSERT_TRUE(receive(sut, 0));
    }
    EXPECT_EQ(header.favoured(), 0U);
    EXPECT_TRUE(earnFavour(sut, header));
}

TEST_F(QueueFavour, SendersByTurnsGetNone) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 16, 1024, 0));
    sal::MessageQueue other;
    ASSERT_TRUE(other.open("Q"));
    const Header header(file());
    for (std::uint32_t i = 0; i < 2 * g_many; ++i) {
        ASSERT_TRUE(send(sut, 1, i, 0));
        ASSERT_TRUE(send(other, 2, i, 0));
        ASSERT_EQ(empty(sut), 2);
        ASSERT_EQ(header.favoured(), 0U);
    }
}

TEST_F(QueueFavour, ASeatOfTheDeadServesAgain) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 1024, 1024, 0));
    const Header header(file());
    // More favoured processes, one after the other, than there are seats.
    for (int i = 0; i < 10; ++i) {
        QueuePeer peer({"send", "Q", "1", std::to_string(g_many)});
        ASSERT_EQ(peer.line(), "opened");
        ASSERT_EQ(peer.line(), "sent");
        EXPECT_NE(header.favoured(), 0U) << "process " << i;
        peer.wait();
        EXPECT_EQ(empty(sut), static_cast<int>(g_many));
    }
}

TEST_F(QueueFavour, AProcessWithoutTheKernelsFencesGetsNone) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 1024, 1024, 0));
    const Header header(file());
    QueuePeer peer({"without-fences", "send", "Q", "1", std::to_string(2 * g_many)});
    ASSERT_EQ(peer.line(), "opened");
    ASSERT_EQ(peer.line(), "sent");
    EXPECT_EQ(header.favoured(), 0U);
    EXPECT_EQ(empty(sut), static_cast<int>(2 * g_many));
}

TEST_F(QueueFavour, AProcessWithoutTheKernelsFencesWithdrawsItAllTheSame) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 16, 1024, 0));
    const Header header(file());
    ASSERT_TRUE(earnFavour(sut, header));
    QueuePeer peer({"without-fences", "send", "Q", "1", "3"});
    ASSERT_EQ(peer.line(), "opened");
    ASSERT_EQ(peer.line(), "sent");
    EXPECT_EQ(header.favoured(), 0U);
    EXPECT_EQ(empty(sut), 3);
}

TEST_F(QueueFavour, AReceiverWithoutTheKernelsFencesIsWoken) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 16, 1024, 0));
    const Header header(file());
    QueuePeer peer({"without-fences", "receive", "Q"});
    ASSERT_EQ(peer.line(), "opened");
    const auto hang = Clock::now() + c_hangGuard;
    for (std::uint32_t i = 0; i < 3; ++i) {
        while (!header.isAwaited() && Clock::now() < hang) {
            std::this_thread::yield();
        }
        const std::uint32_t before = header.wakeUps();
        ASSERT_TRUE(send(sut, 1, i, c_hangGuardMs));
        EXPECT_EQ(header.wakeUps(), before + 1);
        while (!header.isEmpty() && Clock::now() < hang) {
            std::this_thread::yield();
        }
        EXPECT_TRUE(header.isEmpty());
    }
}

TEST_F(QueueFavour, EnduranceAFavouredSenderMayDieBehindAnyInstruction) {
    sal::MessageQueue creator;
    ASSERT_TRUE(creator.create("Q", 1024, 1024, 0));
    const Header header(file());
    const auto instants = this->instants("send-favoured", "Q", 8);
    if (instants.empty())
        GTEST_SKIP() << "processes may not be traced here (ptrace)";
    empty(creator);
    std::uint32_t number = 0;
    for (const long instant : instants) {
        SteppedPeer victim("send-favoured", "Q");
        ASSERT_TRUE(victim.isAtBeginning());
        ASSERT_NE(header.favoured(), 0U);
        ASSERT_EQ(empty(creator), 300);
        victim.run(instant);
        victim.kill();
        ASSERT_NO_FATAL_FAILURE(expectGoesOn(creator, number++)) << "killed after instruction " << instant;
    }
}

TEST_F(QueueFavour, EnduranceASenderMayDieBehindAnyInstructionOfAWithdrawal) {
    sal::MessageQueue creator;
    ASSERT_TRUE(creator.create("Q", 16, 1024, 0));
    const Header header(file());
    ASSERT_TRUE(earnFavour(creator, header));
    const auto instants = this->instants("send", "Q", 8);
    if (instants.empty())
        GTEST_SKIP() << "processes may not be traced here (ptrace)";
    empty(creator);
    std::uint32_t number = 0;
    for (const long instant : instants) {
        ASSERT_TRUE(earnFavour(creator, header)) << "instruction " << instant;
        SteppedPeer victim("send", "Q");
        ASSERT_TRUE(victim.isAtBeginning());
        victim.run(instant);
        // By favour, beside a withdrawal that stands still, or for want of it only after the victim's end.
        const bool isBeside = send(creator, 1, number, 0);
        victim.kill();
        ASSERT_TRUE(isBeside || send(creator, 1, number, c_hangGuardMs))
            << "killed behind instruction " << instant;
        ASSERT_TRUE(holdsJust(creator, number++)) << "killed behind instruction " << instant;
    }
}

TEST_F(QueueFavour, AFavouredSenderStoppedInsideDelaysOthersUntilItDiesOrGoesOn) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 1024, 1024, 0));
    const auto instants = this->instants("send-favoured", "Q", 10, 100);
    if (instants.empty())
        GTEST_SKIP() << "processes may not be traced here (ptrace)";
    empty(sut);
    int held = 0;
    for (const long instant : instants) {
        SteppedPeer victim("send-favoured", "Q");
        ASSERT_TRUE(victim.isAtBeginning());
        empty(sut);
        victim.run(instant);
        if (!send(sut, 1, 0, 30)) {
            ++held;
            ASSERT_FALSE(send(sut, 1, 0, 60)) << "stopped behind instruction " << instant;
            if (held % 2 == 0) {
                victim.kill();
            } else {
                victim.finish();
            }
            ASSERT_TRUE(send(sut, 1, 0, c_hangGuardMs)) << "stopped behind instruction " << instant;
        }
        victim.kill();
        // The stopped one's message first, if it came so far, then the one that waited.
        std::vector<std::uint32_t> senders;
        while (const auto message = receive(sut, 0))
            senders.push_back(message->sender);
        ASSERT_FALSE(senders.empty());
        EXPECT_LE(senders.size(), 2U);
        EXPECT_EQ(senders.back(), 1U) << "stopped behind instruction " << instant;
        if (held >= 6)
            return;
    }
    EXPECT_GE(held, 2) << "no instruction was found at which the lock is held";
}

TEST_F(QueueFavour, EnduranceAReceiverThatFallsAsleepDuringAnyInstructionIsWoken) {
    for (const char* const pCommand : {"send", "send-favoured"}) {
        sal::MessageQueue sut;
        ASSERT_TRUE(sut.create("Q", 1024, 1024, 0));
        const Header header(file());
        const auto instants = this->instants(pCommand, "Q", 5);
        if (instants.empty())
            GTEST_SKIP() << "processes may not be traced here (ptrace)";
        empty(sut);
        for (const long instant : instants) {
            SteppedPeer victim(pCommand, "Q");
            ASSERT_TRUE(victim.isAtBeginning());
            // Takes so many in a row that the senders need no fence of their own.
            for (std::uint32_t i = 0; i < g_many && !header.isEmpty(); ++i)
                ASSERT_TRUE(receive(sut, 0));
            victim.run(instant);
            const std::uint32_t before = header.wakeUps();
            std::atomic<bool> hasReceived{false};
            std::atomic<long> thread{0};
            std::thread receiver([&] {
                thread = ::syscall(SYS_gettid);
                hasReceived = receive(sut, c_hangGuardMs).has_value();
            });
            const auto hang = Clock::now() + c_hangGuard;
            bool isAsleep = false;
            while (!isAsleep && !hasReceived && header.isEmpty() && Clock::now() < hang)
                isAsleep = thread != 0 && sleeps(thread) && header.isEmpty() && !hasReceived;
            victim.finish();
            receiver.join();
            ASSERT_TRUE(hasReceived) << pCommand << ", instruction " << instant;
            if (isAsleep) {
                ASSERT_GT(header.wakeUps(), before) << pCommand << ", instruction " << instant;
            }
            victim.kill();
        }
    }
}

TEST_F(QueueFavour, EnduranceAReceiverThatFallsAsleepAgainAndAgainMissesNoMessage) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 1024, 1024, 0));
    const Header header(file());
    std::atomic<long> thread{0};
    std::atomic<bool> isOver{false};
    std::thread receiver([&] {
        thread = ::syscall(SYS_gettid);
        while (!isOver)
            receive(sut, 50);
    });
    while (thread == 0)
        std::this_thread::yield();
    std::mt19937 random(5);
    int seen = 0;
    for (int burst = 0; burst < rounds() * 100 && !HasFailure(); ++burst) {
        for (std::uint32_t i = random() % 200; i > 0; --i)
            EXPECT_TRUE(send(sut, 1, 0, c_hangGuardMs));
        // About when the receiver has taken the others and falls asleep.
        const auto instant = Clock::now() + std::chrono::nanoseconds(random() % 3000);
        while (Clock::now() < instant) {
        }
        EXPECT_TRUE(send(sut, 1, 0, c_hangGuardMs));
        // The last one is published and whoever waited has been woken: now nobody may sleep before a message.
        for (int look = 0; look < 3 && !header.isEmpty(); ++look) {
            const bool isAsleep =
                header.isAwaited() && sleeps(thread) && header.isAwaited() && !header.isEmpty();
            seen += isAsleep ? 0 : 1;
            EXPECT_FALSE(isAsleep) << "burst " << burst;
        }
        while (!header.isEmpty())
            std::this_thread::yield();
        if (random() % 4 == 0)
            std::this_thread::sleep_for(std::chrono::microseconds(random() % 50));
    }
    isOver = true;
    receiver.join();
    EXPECT_GT(seen, 0) << "the receiver was never behind";
}

TEST_F(QueueFavour, EnduranceSendersThatTakeItFromEachOtherLoseNothing) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 256, 1024, 0));
    std::atomic<bool> isOver{false};
    std::map<std::uint32_t, std::uint32_t> next;
    std::atomic<int> withdrawn{0};
    const Header header(file());
    std::thread receiver([&] {
        while (!isOver || !header.isEmpty()) {
            const auto message = receive(sut, 20);
            if (message && message->number != next[message->sender]++) {
                ADD_FAILURE() << "sender " << message->sender << ": " << message->number;
                isOver = true;
            }
        }
    });
    // One in a row, the other two whenever it is favoured: another handle, another thread of the first.
    sal::MessageQueue other;
    ASSERT_TRUE(other.open("Q"));
    std::atomic<bool> isDone{false};
    const auto rarely = [&](sal::MessageQueue& queue, std::uint32_t sender) {
        for (std::uint32_t number = 0; !isDone;) {
            if (header.favoured() != 0) {
                EXPECT_TRUE(send(queue, sender, number++, c_hangGuardMs));
                withdrawn += header.favoured() == 0 ? 1 : 0;
            }
            std::this_thread::sleep_for(100us);
        }
    };
    std::thread second([&] { rarely(other, 2); });
    std::thread third([&] { rarely(sut, 3); });
    const auto messages = static_cast<std::uint32_t>(rounds()) * 10000;
    const auto hang = Clock::now() + c_hangGuard;
    std::uint32_t sent = 0;
    // The other two may have had no processor by then.
    for (; !isOver && (sent < messages || (withdrawn == 0 && Clock::now() < hang)); ++sent)
        EXPECT_TRUE(send(sut, 1, sent, c_hangGuardMs)) << sent;
    isDone = true;
    second.join();
    third.join();
    isOver = true;
    receiver.join();
    EXPECT_EQ(next[1], sent);
    EXPECT_GT(withdrawn, 0);
}
