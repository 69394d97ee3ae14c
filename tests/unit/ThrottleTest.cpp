#include "Throttle.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

TEST(Throttle, FirstOfManyPasses) {
    base::Throttle sut;
    EXPECT_TRUE(sut.passes());
    for (int i = 0; i < 1000; ++i)
        EXPECT_FALSE(sut.passes());
}

TEST(Throttle, OneOfThoseThatComeAtOncePasses) {
    base::Throttle sut;
    std::atomic<int> passed{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i)
        threads.emplace_back([&] { passed += sut.passes() ? 1 : 0; });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(1, passed);
}
