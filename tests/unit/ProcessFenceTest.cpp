#include "ProcessFence.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <random>
#include <thread>

namespace {

int rounds() {
    const char* pSetting = std::getenv("MFD_ROUNDS");
    return pSetting != nullptr ? std::atoi(pSetting) : 20;
}

struct alignas(64) Line {
    std::atomic<unsigned> word{0};
};

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
    std::atomic<unsigned> begun{0};
    std::atomic<unsigned> ended{0};
    unsigned seenByOften = 0;
    const unsigned all = static_cast<unsigned>(rounds()) * 500;
    std::thread frequent([&] {
        std::minstd_rand random(3);
        for (unsigned next = 1; next <= all; ++next) {
            while (begun.load(std::memory_order_acquire) < next) {
            }
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
    for (unsigned next = 1; next <= all; ++next) {
        held.word.store(0, std::memory_order_relaxed);
        begun.store(next, std::memory_order_release);
        linger(random() % 300);
        rare.word.store(next, std::memory_order_relaxed);
        sal::heavyFence();
        const unsigned seenByRare = often.word.load(std::memory_order_relaxed);
        while (ended.load(std::memory_order_acquire) < next) {
        }
        neither += seenByRare != next && seenByOften != next ? 1 : 0;
    }
    frequent.join();
    EXPECT_EQ(neither, 0U);
}
