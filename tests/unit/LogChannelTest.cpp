#include "LogChannel.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <spdlog/details/log_msg.h>
#include <spdlog/sinks/sink.h>

#include <future>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <vector>

namespace {

using namespace std::chrono_literals;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

/// A destination that keeps its lines, and that a test can block or break.
class Destination {
public:
    spdlog::sink_ptr open() {
        if (m_opens)
            return std::make_shared<Sink>(*this);
        throw std::runtime_error("cannot be opened");
    }

    std::vector<std::string> lines() {
        const std::lock_guard lock(m_mutex);
        return m_lines;
    }
    void block() { m_gate.lock(); }
    void unblock() { m_gate.unlock(); }

    std::atomic<bool> m_opens{true};
    std::atomic<bool> m_writes{true};

private:
    class Sink : public spdlog::sinks::sink {
    public:
        explicit Sink(Destination& owner) : m_owner(owner) {}
        void log(const spdlog::details::log_msg& message) override {
            const std::lock_guard gate(m_owner.m_gate);
            if (!m_owner.m_writes)
                throw std::runtime_error("is full");
            const std::lock_guard lock(m_owner.m_mutex);
            m_owner.m_lines.emplace_back(message.payload.data(), message.payload.size());
        }
        void flush() override {}
        void set_pattern(const std::string&) override {}
        void set_formatter(std::unique_ptr<spdlog::formatter>) override {}

    private:
        Destination& m_owner;
    };

    std::mutex m_gate;
    std::mutex m_mutex;
    std::vector<std::string> m_lines;
};

class LogChannel : public testing::Test {
protected:
    ~LogChannel() override { m_pSut.reset(); }

    void post(const std::string& text) {
        m_pSut->post(std::make_shared<const sal::LogRecord>(
            sal::LogRecord{spdlog::level::info, spdlog::log_clock::now(), "MDM", text}));
    }
    bool flush() { return m_pSut->flush(20s); }
    std::vector<std::string> complaints() {
        const std::lock_guard lock(m_mutex);
        return m_complaints;
    }

    Destination destination;
    std::mutex m_mutex;
    std::vector<std::string> m_complaints;
    std::unique_ptr<sal::LogChannel> m_pSut =
        std::make_unique<sal::LogChannel>([this] { return destination.open(); },
                                          [this](const std::string& text) {
                                              const std::lock_guard lock(m_mutex);
                                              m_complaints.push_back(text);
                                          });
};

TEST_F(LogChannel, WritesInOrder) {
    post("one");
    post("two");
    EXPECT_TRUE(flush());
    EXPECT_THAT(destination.lines(), ElementsAre("one", "two"));
}

TEST_F(LogChannel, WritesTheRestBeforeItEnds) {
    for (int i = 0; i < 1000; ++i)
        post("line");
    m_pSut.reset();
    EXPECT_THAT(destination.lines(), SizeIs(1000));
}

TEST_F(LogChannel, FlushWithoutLinesReturnsAtOnce) {
    EXPECT_TRUE(m_pSut->flush(0ms));
}

TEST_F(LogChannel, FlushOfABlockedDestinationEndsWithItsTime) {
    destination.block();
    post("stuck");
    EXPECT_FALSE(m_pSut->flush(20ms));
    destination.unblock();
    EXPECT_TRUE(flush());
}

TEST_F(LogChannel, BlockedDestinationKeepsTheNewestLines) {
    destination.block();
    for (std::size_t i = 0; i < 3 * sal::LogChannel::s_maxLines; ++i)
        post(std::to_string(i));
    destination.unblock();
    EXPECT_TRUE(flush());
    const auto lines = destination.lines();
    EXPECT_LE(lines.size(), sal::LogChannel::s_maxLines + 512);
    EXPECT_EQ(lines.back(), std::to_string(3 * sal::LogChannel::s_maxLines - 1));
}

TEST_F(LogChannel, DestinationThatHasRecoveredIsWaitedForAgain) {
    // More than the queue holds and the thread has in its hands: whoever posts them waits for room once.
    const auto overfill = [this] {
        const auto begin = std::chrono::steady_clock::now();
        for (std::size_t i = 0; i < sal::LogChannel::s_maxLines + 512; ++i)
            post("line");
        return std::chrono::steady_clock::now() - begin;
    };
    for (int round = 0; round < 2; ++round) {
        destination.block();
        EXPECT_GE(overfill(), 200ms) << round;
        destination.unblock();
        ASSERT_TRUE(flush());
    }
}

TEST_F(LogChannel, BlockedDestinationKeepsMemoryBounded) {
    destination.block();
    const std::string big(64u << 10, 'x');
    for (int i = 0; i < 1000; ++i)
        post(big);
    destination.unblock();
    EXPECT_TRUE(flush());
    // The queue, and what the thread had in its hands.
    EXPECT_LE(destination.lines().size() * big.size(), sal::LogChannel::s_maxBytes * 3);
}

TEST_F(LogChannel, DestinationThatFailsIsComplainedOfOnce) {
    destination.m_writes = false;
    for (int i = 0; i < 5; ++i) {
        post("lost");
        flush();
    }
    EXPECT_THAT(complaints(), ElementsAre("the log goes on without its file: is full"));
}

TEST_F(LogChannel, DestinationThatDoesNotOpenIsComplainedOfOnce) {
    destination.m_opens = false;
    for (int i = 0; i < 5; ++i) {
        post("lost");
        flush();
    }
    EXPECT_THAT(complaints(), ElementsAre("the log goes on without its file: cannot be opened"));
}

TEST_F(LogChannel, DestinationIsTriedAgainAndTheMissingLinesAreCounted) {
    destination.m_writes = false;
    post("lost");
    post("lost");
    flush();
    destination.m_writes = true;
    for (int i = 0; i < 200 && destination.lines().empty(); ++i) {
        std::this_thread::sleep_for(20ms);
        post("again");
        flush();
    }
    EXPECT_THAT(destination.lines(), testing::Contains("again"));
    ASSERT_THAT(complaints(), SizeIs(2));
    EXPECT_THAT(complaints()[1],
                testing::ContainsRegex("the log file is written again, [0-9]+ lines are missing"));
}

TEST(LogChannelEnd, LeavesABlockedDestination) {
    // The thread that is left behind still uses them.
    static auto* pDestination = new Destination;
    pDestination->block();
    {
        sal::LogChannel sut([] { return pDestination->open(); }, [](const std::string&) {});
        sut.post(std::make_shared<const sal::LogRecord>(
            sal::LogRecord{spdlog::level::info, spdlog::log_clock::now(), "MDM", "stuck"}));
    }
    EXPECT_THAT(pDestination->lines(), IsEmpty());
    pDestination->unblock();
}

}  // namespace
