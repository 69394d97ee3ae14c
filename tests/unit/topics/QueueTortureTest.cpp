// The queue under everything that may happen to the processes at its ends: killed between any two
// instructions, killed under load, stopped with the lock in its hands, gone wild. Whatever happens to one,
// the others go on, and nothing arrives torn, twice or out of order.

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <filesystem>
#include <map>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "QueuePeer.h"
#include "QueueTorture.h"
#include "SteppedPeer.h"
#include "sal/MessageQueue.h"

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

TEST_F(QueueTorture, EnduranceASenderMayDieBehindAnyInstruction) {
    sal::MessageQueue creator;
    ASSERT_TRUE(creator.create("Q", 16, 1024, 0));
    const auto instants = this->instants("send", "Q", 8);
    if (instants.empty())
        GTEST_SKIP() << "processes may not be traced here (ptrace)";
    while (receive(creator, 0)) {
    }
    std::uint32_t number = 0;
    for (const long instant : instants) {
        SteppedPeer victim("send", "Q");
        ASSERT_TRUE(victim.isAtBeginning());
        victim.run(instant);
        victim.kill();
        ASSERT_NO_FATAL_FAILURE(expectGoesOn(creator, number++)) << "killed after instruction " << instant;
    }
}

TEST_F(QueueTorture, EnduranceASenderMayDieBehindAnyInstructionWhileTheReceiverSleeps) {
    sal::MessageQueue creator;
    ASSERT_TRUE(creator.create("Q", 16, 1024, 0));
    const auto instants = this->instants("send", "Q", 5);
    if (instants.empty())
        GTEST_SKIP() << "processes may not be traced here (ptrace)";
    while (receive(creator, 0)) {
    }
    std::uint32_t number = 0;
    for (const long instant : instants) {
        SteppedPeer victim("send", "Q");
        ASSERT_TRUE(victim.isAtBeginning());
        std::vector<NumberedMessage> received;
        std::thread receiver([&] {
            // Until the one that the survivor sends.
            while (received.empty() || received.back().sender != 1) {
                const auto message = receive(creator, c_hangGuardMs);
                if (!message)
                    return;
                received.push_back(*message);
            }
        });
        std::this_thread::sleep_for(2ms);
        victim.run(instant);
        victim.kill();
        sal::MessageQueue fresh;
        const bool isSent = fresh.open("Q") && send(fresh, 1, number, c_hangGuardMs);
        receiver.join();
        ASSERT_TRUE(isSent) << "killed behind instruction " << instant;
        ASSERT_FALSE(received.empty()) << "killed behind instruction " << instant;
        ASSERT_LE(received.size(), 2U) << "killed behind instruction " << instant;
        ASSERT_EQ(received.back().sender, 1U);
        ASSERT_EQ(received.back().number, number++);
        if (received.size() == 2) {
            ASSERT_EQ(received.front().sender, 7U);
        }
    }
}

TEST_F(QueueTorture, EnduranceAReceiverMayDieBehindAnyInstruction) {
    sal::MessageQueue creator;
    ASSERT_TRUE(creator.create("Q", 16, 1024, 0));
    std::uint32_t number = 0;
    ASSERT_TRUE(send(creator, 1, number++, 0));
    const auto instants = this->instants("receive", "Q", 8);
    if (instants.empty())
        GTEST_SKIP() << "processes may not be traced here (ptrace)";
    for (const long instant : instants) {
        const std::uint32_t first = number;
        for (int i = 0; i < 3; ++i)
            ASSERT_TRUE(send(creator, 1, number++, c_hangGuardMs)) << "instant " << instant;
        SteppedPeer victim("receive", "Q");
        ASSERT_TRUE(victim.isAtBeginning());
        victim.run(instant);
        victim.kill();
        sal::MessageQueue fresh;
        ASSERT_TRUE(fresh.open("Q"));
        std::vector<std::uint32_t> left;
        while (const auto message = receive(fresh, 0))
            left.push_back(message->number);
        // The message that was in the victim's hands is still first, or it is gone.
        const std::vector<std::uint32_t> all{first, first + 1, first + 2};
        const std::vector<std::uint32_t> allButOne{first + 1, first + 2};
        ASSERT_TRUE(left == all || left == allButOne) << "killed behind instruction " << instant;
        ASSERT_TRUE(send(creator, 1, number++, c_hangGuardMs)) << "killed behind instruction " << instant;
        const auto last = receive(fresh, c_hangGuardMs);
        ASSERT_TRUE(last) << "killed behind instruction " << instant;
        ASSERT_EQ(last->number, number - 1);
    }
}

TEST_F(QueueTorture, EnduranceAReceiverMayDieBehindAnyInstructionWhileASenderSleeps) {
    std::vector<long> instants;
    {
        sal::MessageQueue creator;
        ASSERT_TRUE(creator.create("Q", 4, 1024, 0));
        ASSERT_TRUE(send(creator, 1, 0, 0));
        instants = this->instants("receive", "Q", 4);
    }
    if (instants.empty())
        GTEST_SKIP() << "processes may not be traced here (ptrace)";
    for (const long instant : instants) {
        sal::MessageQueue creator;
        ASSERT_TRUE(creator.create("Q", 4, 1024, 0));
        SteppedPeer victim("receive", "Q");
        ASSERT_TRUE(victim.isAtBeginning());
        std::uint32_t number = 0;
        while (send(creator, 1, number, 0))
            ++number;
        bool isSent = false;
        std::thread sender([&] { isSent = send(creator, 1, number, c_hangGuardMs); });
        std::this_thread::sleep_for(1ms);
        victim.run(instant);
        victim.kill();
        // How long the victim took for its steps is nobody's wait.
        const auto begin = Clock::now();
        sal::MessageQueue fresh;
        ASSERT_TRUE(fresh.open("Q"));
        // Before the victim had attached as the receiver, nobody but the next receiver makes room.
        std::vector<std::uint32_t> received;
        while (received.empty() || received.back() + 1 < number) {
            const auto message = receive(fresh, c_hangGuardMs);
            ASSERT_TRUE(message) << "killed behind instruction " << instant;
            received.push_back(message->number);
        }
        sender.join();
        ASSERT_LT(Clock::now() - begin, c_hangGuard) << "killed behind instruction " << instant;
        if (isSent) {
            const auto message = receive(fresh, c_hangGuardMs);
            ASSERT_TRUE(message) << "killed behind instruction " << instant;
            received.push_back(message->number);
        }
        ASSERT_LE(received.front(), 1U) << "killed behind instruction " << instant;
        for (std::size_t i = 1; i < received.size(); ++i)
            ASSERT_EQ(received[i], received[i - 1] + 1) << "killed behind instruction " << instant;
    }
}

TEST_F(QueueTorture, EnduranceACreatorMayDieBehindAnyInstruction) {
    const auto instants = this->instants("create", "Q", 1);
    if (instants.empty())
        GTEST_SKIP() << "processes may not be traced here (ptrace)";
    for (const long instant : instants) {
        SteppedPeer victim("create", "Q");
        ASSERT_TRUE(victim.isAtBeginning());
        victim.run(instant);
        victim.kill();
        sal::MessageQueue sut;
        ASSERT_TRUE(sut.create("Q", 4, 1024, 0)) << "killed behind instruction " << instant;
        ASSERT_TRUE(send(sut, 1, 0, 0)) << "killed behind instruction " << instant;
        ASSERT_TRUE(receive(sut, 0)) << "killed behind instruction " << instant;
        sut.close();
        ASSERT_TRUE(std::filesystem::is_empty(m_directory)) << "killed behind instruction " << instant;
    }
}

TEST_F(QueueTorture, EnduranceProcessesOfManyThreadsMayBeKilledUnderLoad) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 256, 1024, 0));
    std::mt19937 random(11);
    std::map<std::uint32_t, std::uint32_t> next;
    const auto take = [&](int timeout) {
        const auto message = receive(sut, timeout);
        if (message) {
            EXPECT_EQ(message->number, next[message->sender]++) << "sender " << message->sender;
        }
        return message.has_value();
    };
    for (int round = 0; round < rounds() && !HasFailure(); ++round) {
        const auto first = static_cast<std::uint32_t>(100 * round);
        QueuePeer victim({"flood", "Q", std::to_string(first)});
        QueuePeer survivor({"flood", "Q", std::to_string(first + 10)});
        ASSERT_EQ(victim.line(), "opened");
        ASSERT_EQ(survivor.line(), "opened");
        const auto end = Clock::now() + std::chrono::microseconds(random() % 10000);
        while (Clock::now() < end)
            ASSERT_TRUE(take(5000));
        victim.kill();
        // The survivor's threads go on, each of them.
        const std::array<std::uint32_t, 3> before{next[first + 10], next[first + 11], next[first + 12]};
        const auto hang = Clock::now() + c_hangGuard;
        const auto allWentOn = [&] {
            for (std::uint32_t i = 0; i < 3; ++i)
                if (next[first + 10 + i] <= before.at(i) + 5)
                    return false;
            return true;
        };
        while (!allWentOn()) {
            ASSERT_TRUE(take(5000));
            ASSERT_LT(Clock::now(), hang);
        }
        survivor.kill();
        while (take(0)) {
        }
    }
}

TEST_F(QueueTorture, EnduranceAPeerThatScribblesEndsNobodyElse) {
    for (int round = 0; round < rounds() && !HasFailure(); ++round) {
        sal::MessageQueue sut;
        ASSERT_TRUE(sut.create("Q", 256, 1024, 0)) << "round " << round;
        QueuePeer sender({"flood", "Q", "1"});
        ASSERT_EQ(sender.line(), "opened");
        std::array<unsigned char, 1024> buffer{};
        for (int i = 0; i < 20; ++i)
            ASSERT_GE(sut.receive(buffer.data(), 1024, c_hangGuardMs), 0);
        testing::internal::CaptureStderr();
        QueuePeer wild({"scribble", "Q", std::to_string(round)});
        ASSERT_EQ(wild.line(), "opened");
        // Messages may be lost or wrong, but each call comes back.
        const auto begin = Clock::now();
        for (int i = 0; i < 300; ++i) {
            const auto before = Clock::now();
            const int length = sut.receive(buffer.data(), 1024, 100);
            ASSERT_LE(length, 1024);
            ASSERT_LT(Clock::now() - before, c_hangGuard);
            send(sut, 9, 0, 0);
            if (Clock::now() - begin > 1s)
                break;
        }
        EXPECT_EQ(wild.line(), "scribbled");
        wild.wait();
        sender.kill();
        testing::internal::GetCapturedStderr();
        // And the name serves again.
        sut.close();
        sal::MessageQueue anew;
        ASSERT_TRUE(anew.create("Q", 4, 1024, 0)) << "round " << round;
        ASSERT_TRUE(send(anew, 1, 0, 0));
        ASSERT_TRUE(receive(anew, 0));
    }
}

TEST_F(QueueTorture, ASenderStoppedWithTheLockDelaysOthersUntilItDies) {
    sal::MessageQueue sut;
    ASSERT_TRUE(sut.create("Q", 16, 1024, 0));
    const auto instants = this->instants("send", "Q", 10, 100);
    if (instants.empty())
        GTEST_SKIP() << "processes may not be traced here (ptrace)";
    while (receive(sut, 0)) {
    }
    // A traced process stands still between two instructions: find one with the lock in its hands.
    int held = 0;
    for (const long instant : instants) {
        SteppedPeer victim("send", "Q");
        ASSERT_TRUE(victim.isAtBeginning());
        victim.run(instant);
        if (!send(sut, 1, 0, 30)) {
            ++held;
            // Still there, still held: the time-out holds and the lock is not taken away.
            ASSERT_FALSE(send(sut, 1, 0, 60)) << "stopped behind instruction " << instant;
            victim.kill();
            ASSERT_TRUE(send(sut, 1, 0, c_hangGuardMs)) << "stopped behind instruction " << instant;
        }
        victim.kill();
        while (receive(sut, 0)) {
        }
        if (held >= 5)
            return;
    }
    EXPECT_GT(held, 0) << "no instruction was found at which the lock is held";
}

TEST_F(QueueTorture, ASendThatComesBeforeTheQueueIsMadeFailsAndALaterOneArrives) {
    sal::MessageQueue sut;
    std::thread sender([&] {
        const auto hang = Clock::now() + c_hangGuard;
        while (!send(sut, 1, 0, 0) && Clock::now() < hang) {
        }
    });
    std::this_thread::sleep_for(5ms);
    ASSERT_TRUE(sut.create("Q", 4, 1024, 0));
    sender.join();
    EXPECT_TRUE(receive(sut, 0));
}
