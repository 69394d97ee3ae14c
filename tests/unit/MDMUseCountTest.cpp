#include "MDMUseCount.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <latch>
#include <thread>
#include <vector>

using namespace std::chrono_literals;

TEST(MDMUseCount, NobodyInsideIsNotWaitedFor) {
    const MDMUseCount sut;
    sut.waitForAll();
}

TEST(MDMUseCount, WaitsForTheOneInside) {
    MDMUseCount sut;
    const std::size_t place = sut.enter();
    auto waited = std::async(std::launch::async, [&] { sut.waitForAll(); });
    EXPECT_EQ(waited.wait_for(50ms), std::future_status::timeout);
    sut.leave(place);
    waited.wait();
}

TEST(MDMUseCount, WaitsForTheLastOfSeveral) {
    MDMUseCount sut;
    const std::size_t first = sut.enter();
    const std::size_t second = sut.enter();
    auto waited = std::async(std::launch::async, [&] { sut.waitForAll(); });
    sut.leave(first);
    EXPECT_EQ(waited.wait_for(50ms), std::future_status::timeout);
    sut.leave(second);
    waited.wait();
}

TEST(MDMUseCount, MayBeLeftOnAnotherThread) {
    MDMUseCount sut;
    const std::size_t place = sut.enter();
    std::thread([&] { sut.leave(place); }).join();
    sut.waitForAll();
}

TEST(MDMUseCount, CountsThreadsThatComeAndGoSideBySide) {
    MDMUseCount sut;
    // Only those that count in the same place get in each other's way.
    constexpr std::size_t count = 4 * MDMThreadPlace::s_places;
    std::latch start(count);
    std::atomic<int> together = 0;
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < count; ++i)
        threads.emplace_back([&] {
            const bool isOneOfThem = MDMThreadPlace::current() == 0;
            together += isOneOfThem;
            start.arrive_and_wait();
            for (int round = 0; isOneOfThem && round < 200000; ++round)
                sut.leave(sut.enter());
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_GE(together, 2);
    sut.waitForAll();
}
