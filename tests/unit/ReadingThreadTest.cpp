#include "ReadingThread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <memory>
#include <string>
#include <thread>

TEST(ReadingThread, TasksRunOneAfterAnotherInTheirOrder) {
    ReadingThread sut;
    std::string order;
    std::promise<void> done;
    ASSERT_TRUE(sut.post([&] { order += 'a'; }));
    ASSERT_TRUE(sut.post([&] {
        order += 'b';
        done.set_value();
    }));
    sut.start();
    done.get_future().wait();
    EXPECT_EQ("ab", order);
}

TEST(ReadingThread, WhatComesTooFastIsRefusedUntilThereIsRoom) {
    ReadingThread sut;
    std::promise<void> last;
    for (std::size_t i = 1; i < ReadingThread::s_mostWaiting; ++i)
        ASSERT_TRUE(sut.post([] {}));
    ASSERT_TRUE(sut.post([&] { last.set_value(); }));
    EXPECT_FALSE(sut.post([] {}));
    sut.start();
    last.get_future().wait();
    EXPECT_TRUE(sut.post([] {}));
}

TEST(ReadingThread, WhatHasNotBegunByTheStopIsDropped) {
    ReadingThread sut;
    std::promise<void> began;
    std::atomic<bool> isDone = false;
    const auto pDropped = std::make_shared<int>();
    ASSERT_TRUE(sut.post([&] {
        began.set_value();
        while (!sut.isStopping())
            std::this_thread::yield();
        isDone = true;
    }));
    sut.start();
    began.get_future().wait();
    ASSERT_TRUE(sut.post([pDropped, &isDone] { isDone = false; }));
    sut.stop();
    EXPECT_TRUE(isDone);
    EXPECT_EQ(1, pDropped.use_count());
    EXPECT_FALSE(sut.post([] {}));
}
