#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "HangGuard.h"
#include "NumberedMessage.h"
#include "Rounds.h"
#include "SteppedPeer.h"
#include "sal/MessageQueue.h"

/// What the tests share that stop and kill the processes at a queue's ends: a queue directory of their own,
/// numbered messages, and the instants at which a process is to be killed.
class QueueTorture : public testing::Test {
protected:
    using Clock = std::chrono::steady_clock;

    void SetUp() override {
        std::string path = "/dev/shm/mfd-queue-torture-XXXXXX";
        ASSERT_NE(::mkdtemp(path.data()), nullptr);
        m_directory = path;
        ::setenv("MFD_QUEUE_DIR", m_directory.c_str(), 1);
    }
    void TearDown() override {
        ::unsetenv("MFD_QUEUE_DIR");
        std::filesystem::remove_all(m_directory);
    }

    /// After how many instructions of its call a process is to be killed: spread over the whole of it, each
    /// single one when there are rounds enough. A round takes a third of a second or less, however slowly
    /// the machine or a sanitizer lets it step, but there are so many at least. Empty when processes cannot
    /// be traced here.
    static std::vector<long> instants(const std::string& command, const std::string& queue, int perRound,
                                      double atLeast = 1) {
        const auto begin = Clock::now();
        SteppedPeer whole(command, queue);
        if (!whole.isAtBeginning())
            return {};
        const long all = whole.run(2'000'000);
        const double seconds = std::chrono::duration<double>(Clock::now() - begin).count();
        const double perSecond = std::min<double>(perRound, 1 / (3 * seconds));
        const double most = std::max(rounds() * perSecond, atLeast);
        const long stride = std::max(1L, static_cast<long>(static_cast<double>(all) / most));
        std::vector<long> found;
        for (long instant = rounds() % stride; instant <= all; instant += stride)
            found.push_back(instant);
        return found;
    }

    static bool send(sal::MessageQueue& queue, std::uint32_t sender, std::uint32_t number, int timeout) {
        const auto bytes = NumberedMessage{sender, number}.bytes();
        return queue.send(bytes.data(), static_cast<int>(bytes.size()), timeout);
    }

    /// Nothing in time is an empty answer, a torn message a failure.
    static std::optional<NumberedMessage> receive(sal::MessageQueue& queue, int timeout) {
        std::array<unsigned char, 1024> buffer{};
        const int length = queue.receive(buffer.data(), static_cast<int>(buffer.size()), timeout);
        if (length < 0)
            return std::nullopt;
        const auto message = NumberedMessage::read(buffer.data(), length);
        EXPECT_TRUE(message) << "a torn message of " << length << " bytes";
        return message;
    }

    /// Whether the survivor's message stands in the queue (sender 1), behind that of the victim (sender 7)
    /// where that came so far, and nothing else.
    static bool holdsJust(sal::MessageQueue& queue, std::uint32_t number) {
        auto message = receive(queue, c_hangGuardMs);
        if (message && message->sender == 7)
            message = receive(queue, c_hangGuardMs);
        return message && message->sender == 1 && message->number == number && !receive(queue, 0);
    }

    /// Another sender may send (sender 1), and its message arrives.
    static void expectGoesOn(sal::MessageQueue& creator, std::uint32_t number) {
        sal::MessageQueue fresh;
        ASSERT_TRUE(fresh.open("Q"));
        ASSERT_TRUE(send(fresh, 1, number, c_hangGuardMs));
        ASSERT_TRUE(holdsJust(creator, number));
    }

    std::string m_directory;
};
