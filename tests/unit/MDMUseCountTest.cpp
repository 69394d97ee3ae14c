#include "MDMUseCount.h"

#include <gtest/gtest.h>

#include <future>
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
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&] {
            for (int round = 0; round < 5000; ++round)
                sut.leave(sut.enter());
        });
    for (std::thread& thread : threads)
        thread.join();
    sut.waitForAll();
}
