#include "ProcessFence.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <limits>
#include <random>
#include <thread>

#include "Rounds.h"

namespace {

using namespace std::chrono_literals;

struct alignas(64) Line {
    std::atomic<unsigned> word{0};
};

/// The other one is about to come, unless it has no processor.
template <class Condition>
void spinUntil(Condition condition) {
    for (int times = 0; !condition(); ++times)
        if (times > 10'000)
            std::this_thread::yield();
}

void linger(unsigned steps) {
    for (unsigned i = 0; i < steps; ++i) {
        std::atomic_signal_fence(std::memory_order_seq_cst);
    }
}

}  // namespace

TEST(ProcessFence, EnduranceOneOfTwoThatStoreAndLookSeesTheOther) {
    ASSERT_TRUE(sal::joinProcessFences()) << "this kernel has no fences across processes";
    Line often;
    Line rare;
    Line held;
    constexpr unsigned over = std::numeric_limits<unsigned>::max();
    std::atomic<unsigned> begun{0};
    std::atomic<unsigned> ended{0};
    unsigned seenByOften = 0;
    std::thread frequent([&] {
        std::minstd_rand random(3);
        for (unsigned next = 1;; ++next) {
            spinUntil([&] { return begun.load(std::memory_order_acquire) >= next; });
            if (begun.load(std::memory_order_acquire) == over)
                return;
            linger(random() % 300);
            // Its line is elsewhere, so that the store behind it stays on its way for a while.
            held.word.store(next, std::memory_order_relaxed);
            often.word.store(next, std::memory_order_relaxed);
            sal::lightFence();
            seenByOften = rare.word.load(std::memory_order_relaxed);
            ended.store(next, std::memory_order_release);
        }
    });
    unsigned neither = 0;
    std::minstd_rand random(4);
    Rounds all(rounds() * 500, rounds() * 500ms);
    for (unsigned next = 1; all.goOn(); ++next) {
        held.word.store(0, std::memory_order_relaxed);
        begun.store(next, std::memory_order_release);
        linger(random() % 300);
        rare.word.store(next, std::memory_order_relaxed);
        sal::heavyFence();
        const unsigned seenByRare = often.word.load(std::memory_order_relaxed);
        spinUntil([&] { return ended.load(std::memory_order_acquire) >= next; });
        neither += seenByRare != next && seenByOften != next ? 1 : 0;
    }
    begun.store(over, std::memory_order_release);
    frequent.join();
    EXPECT_EQ(neither, 0U);
}
