#include "ProcessFence.h"

#include <gtest/gtest.h>
#include <sched.h>

#include <array>
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

/// The first or the last processor that this process may use.
int processor(bool isLast) {
    cpu_set_t all;
    CPU_ZERO(&all);
    sched_getaffinity(0, sizeof all, &all);
    int found = -1;
    for (int number = 0; number < CPU_SETSIZE; ++number)
        if (CPU_ISSET(number, &all) && (found < 0 || isLast))
            found = number;
    return found;
}

void stayOn(int number) {
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(number, &one);
    sched_setaffinity(0, sizeof one, &one);
}

class ProcessFence : public testing::Test {
protected:
    /// How often neither of two threads has seen the other. The rare one makes the fence that it is given.
    template <class Fence>
    static unsigned timesThatNeitherSees(unsigned most, Fence fence) {
        Line often;
        Line rare;
        // About as many as a processor keeps on their way: the store after them is seen late.
        std::array<Line, 48> held;
        const auto hold = [&held](unsigned value) {
            for (Line& line : held)
                line.word.store(value, std::memory_order_relaxed);
        };
        constexpr unsigned over = std::numeric_limits<unsigned>::max();
        std::atomic<unsigned> begun{0};
        std::atomic<unsigned> ended{0};
        unsigned seenByOften = 0;
        // The end of a thread leaves its processor with the note that nobody there has joined.
        std::thread([] { stayOn(processor(false)); }).join();
        std::thread frequent([&] {
            stayOn(processor(false));
            std::minstd_rand random(3);
            for (unsigned next = 1;; ++next) {
                spinUntil([&] { return begun.load(std::memory_order_acquire) >= next; });
                if (begun.load(std::memory_order_acquire) == over)
                    return;
                linger(random() % 300);
                hold(next);
                often.word.store(next, std::memory_order_relaxed);
                sal::lightFence();
                seenByOften = rare.word.load(std::memory_order_relaxed);
                ended.store(next, std::memory_order_release);
            }
        });
        unsigned neither = 0;
        std::thread seldom([&] {
            stayOn(processor(true));
            std::minstd_rand random(4);
            Rounds all(rounds() * most, rounds() * 500ms);
            for (unsigned next = 1; all.goOn(); ++next) {
                begun.store(next, std::memory_order_release);
                hold(next);
                linger(random() % 2000);
                rare.word.store(next, std::memory_order_relaxed);
                fence();
                const unsigned seenBySeldom = often.word.load(std::memory_order_relaxed);
                spinUntil([&] { return ended.load(std::memory_order_acquire) >= next; });
                neither += seenBySeldom != next && seenByOften != next ? 1 : 0;
            }
            begun.store(over, std::memory_order_release);
        });
        seldom.join();
        frequent.join();
        return neither;
    }
};

}  // namespace

TEST_F(ProcessFence, EnduranceWithinAProcessOneOfTwoAlwaysSeesTheOther) {
    ASSERT_TRUE(sal::joinProcessFences()) << "this kernel has no fences across processes";
    EXPECT_EQ(timesThatNeitherSees(2000, [] { sal::heavyFenceOfProcess(); }), 0U);
}

TEST_F(ProcessFence, EnduranceAfterAMomentOneOfTwoHasSeenTheOther) {
    ASSERT_TRUE(sal::joinProcessFences()) << "this kernel has no fences across processes";
    EXPECT_EQ(timesThatNeitherSees(30,
                                   [] {
                                       sal::heavyFence();
                                       std::this_thread::sleep_for(sal::s_settleTime);
                                   }),
              0U);
}
