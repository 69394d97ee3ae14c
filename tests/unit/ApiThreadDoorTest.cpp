#include "ApiThreadDoor.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

namespace {

TEST(ApiThreadDoor, HandsOnUntilItIsClosed) {
    std::vector<int> done;
    ApiThreadDoor sut([](ApiThreadDoor::Work work) { work(); });
    sut.post([&] { done.push_back(1); });
    sut.close();
    sut.post([&] { done.push_back(2); });
    EXPECT_EQ(done, std::vector<int>{1});
}

TEST(ApiThreadDoor, NoneIsUnderWayOnceItIsClosed) {
    std::atomic<bool> isClosed = false;
    std::atomic<int> late = 0;
    std::atomic<bool> isOver = false;
    ApiThreadDoor sut([&](const ApiThreadDoor::Work&) { late += isClosed; });
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            while (!isOver)
                sut.post([] {});
        });
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    sut.close();
    isClosed = true;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    isOver = true;
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(late, 0);
}

}  // namespace
