#include "Deadlines.h"

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

using std::chrono::milliseconds;

TEST(Deadlines, CallsComeInTheOrderOfTheirTimes) {
    Deadlines sut;
    std::mutex mutex;
    std::string order;
    std::promise<void> done;
    const auto note = [&](char name) {
        const std::lock_guard lock(mutex);
        order += name;
    };
    sut.after(milliseconds(40), [&] {
        note('b');
        done.set_value();
    });
    sut.after(milliseconds(0), [&] { note('a'); });
    sut.start();
    done.get_future().wait();
    sut.stop();
    EXPECT_EQ("ab", order);
}

TEST(Deadlines, NoneComesBeforeItsTime) {
    Deadlines sut;
    sut.start();
    std::promise<Deadlines::Clock::time_point> called;
    const auto begin = Deadlines::Clock::now();
    sut.after(milliseconds(50), [&] { called.set_value(Deadlines::Clock::now()); });
    EXPECT_GE(called.get_future().get() - begin, milliseconds(50));
}

TEST(Deadlines, EarlierOneThatComesLaterIsNotHeldUp) {
    Deadlines sut;
    sut.start();
    std::promise<void> called;
    sut.after(std::chrono::hours(1), [] {});
    sut.after(milliseconds(1), [&] { called.set_value(); });
    called.get_future().wait();
}

TEST(Deadlines, CallMayAskForAnother) {
    Deadlines sut;
    sut.start();
    std::promise<void> called;
    sut.after(milliseconds(1), [&] { sut.after(milliseconds(1), [&] { called.set_value(); }); });
    called.get_future().wait();
}

TEST(Deadlines, WhatHasNotComeByTheStopIsDropped) {
    const auto pHeld = std::make_shared<int>();
    bool isCalled = false;
    {
        Deadlines sut;
        sut.start();
        sut.after(std::chrono::hours(1), [pHeld, &isCalled] { isCalled = true; });
        sut.stop();
        EXPECT_EQ(1, pHeld.use_count());
        sut.after(milliseconds(0), [pHeld, &isCalled] { isCalled = true; });
        EXPECT_EQ(1, pHeld.use_count());
    }
    EXPECT_FALSE(isCalled);
}

TEST(Deadlines, NothingIsCalledWithoutAThread) {
    bool isCalled = false;
    {
        Deadlines sut;
        sut.after(milliseconds(0), [&] { isCalled = true; });
    }
    EXPECT_FALSE(isCalled);
}
