#include "QueueEvent.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <limits>
#include <random>
#include <thread>

#include "HangGuard.h"
#include "Rounds.h"

namespace {

using namespace std::chrono_literals;

/// A store to a line that others write as well stays on its way for long: what follows it is seen late.
struct alignas(64) Line {
    std::atomic<unsigned> word{0};
};

void linger(unsigned steps) {
    for (unsigned i = 0; i < steps; ++i) {
        std::atomic_signal_fence(std::memory_order_seq_cst);
    }
}

}  // namespace

TEST(QueueEvent, SignalEndsAWait) {
    sal::QueueEvent sut;
    const auto prepared = sut.prepare();
    EXPECT_TRUE(sut.seemsAwaited());
    sut.signal();
    EXPECT_FALSE(sut.seemsAwaited());
    EXPECT_EQ(sut.wait(prepared, 10s, [] { return false; }), sal::EFutexWake::Changed);
}

TEST(QueueEvent, SignalOfAJoinedProcessEndsAWait) {
    sal::QueueEvent sut;
    sut.promiseFence();
    const auto prepared = sut.prepare();
    sut.signalFenced();
    EXPECT_EQ(sut.wait(prepared, 10s, [] { return false; }), sal::EFutexWake::Changed);
}

TEST(QueueEvent, AWaitWithoutSignalTimesOut) {
    sal::QueueEvent sut;
    const auto prepared = sut.prepare();
    EXPECT_EQ(sut.wait(prepared, 1ms, [] { return false; }), sal::EFutexWake::TimedOut);
}

TEST(QueueEvent, AWaitLooksOnceMoreForWhatAFenceHasPassedBy) {
    sal::QueueEvent sut;
    int looks = 0;
    const auto prepared = sut.prepareFenced();
    EXPECT_EQ(sut.wait(prepared, c_hangGuard, [&looks] { return ++looks == 1; }), sal::EFutexWake::TimedOut);
    EXPECT_EQ(looks, 1);
}

TEST(QueueEvent, AWaitWithoutAFenceLooksNoMore) {
    sal::QueueEvent sut;
    EXPECT_EQ(sut.wait(sut.prepare(), 5ms, [] { return ADD_FAILURE(), true; }), sal::EFutexWake::TimedOut);
}

TEST(QueueEvent, ASignalEndsAWaitAfterItsLook) {
    sal::QueueEvent sut;
    const auto prepared = sut.prepareFenced();
    EXPECT_EQ(sut.wait(prepared, c_hangGuard,
                       [&sut] {
                           sut.signal();
                           return false;
                       }),
              sal::EFutexWake::Changed);
}

TEST(QueueEvent, EnduranceAWaiterSeesWhatWasPublishedOrIsWoken) {
    ASSERT_TRUE(sal::joinProcessFences());
    sal::QueueEvent sut;
    std::atomic<unsigned> published{0};
    std::atomic<unsigned> seen{0};
    std::atomic<unsigned> missed{0};
    constexpr unsigned over = std::numeric_limits<unsigned>::max();
    std::array<Line, 32> contended;
    std::thread waiter([&] {
        std::minstd_rand random(3);
        for (unsigned next = 1; published.load(std::memory_order_acquire) != over; ++next) {
            sut.promiseFence();
            for (Line& line : contended) {
                line.word.store(next, std::memory_order_relaxed);
            }
            linger(random() % 2000);
            const auto prepared = sut.prepare();
            // Nothing yet, then it is seen or a wake-up comes.
            const auto isThere = [&] { return published.load(std::memory_order_acquire) >= next; };
            if (!isThere() && sut.wait(prepared, c_hangGuard, isThere) == sal::EFutexWake::TimedOut &&
                !isThere()) {
                ++missed;
            }
            while (!isThere()) {
                sut.wait(sut.prepare(), 1ms, isThere);
            }
            seen.store(next, std::memory_order_release);
        }
    });
    std::minstd_rand random(4);
    Rounds all(rounds() * 2000, rounds() * 500ms);
    for (unsigned next = 1; all.goOn(); ++next) {
        // About when the waiter looks; the stores hold up the one that publishes.
        linger(random() % 2000);
        for (Line& line : contended) {
            line.word.store(next, std::memory_order_relaxed);
        }
        published.store(next, std::memory_order_release);
        sut.signalFenced();
        for (int times = 0; seen.load(std::memory_order_acquire) < next; ++times) {
            // The waiter is about to see it, unless it has no processor.
            if (times > 10'000)
                std::this_thread::yield();
            else
                sal::spinPause();
        }
    }
    published.store(over, std::memory_order_release);
    sut.signalFenced();
    waiter.join();
    EXPECT_EQ(missed, 0U);
}
