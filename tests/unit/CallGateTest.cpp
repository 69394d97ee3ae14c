#include "CallGate.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <memory>

using mfd::CallGate;

TEST(CallGate, LetsNobodyInBeforeItIsOpened) {
    CallGate sut;
    EXPECT_FALSE(sut.enter());
}

TEST(CallGate, LetsCallsInOnceOpened) {
    CallGate sut;
    sut.open();
    EXPECT_TRUE(sut.enter());
}

TEST(CallGate, LetsNobodyInOnceClosed) {
    CallGate sut;
    sut.open();
    sut.close();
    EXPECT_FALSE(sut.enter());
}

TEST(CallGate, LetsTheSameThreadInTwice) {
    CallGate sut;
    sut.open();
    const auto outer = sut.enter();
    EXPECT_TRUE(sut.enter());
}

TEST(CallGate, CloseWaitsForThoseInside) {
    CallGate sut;
    sut.open();
    auto inside = std::make_unique<CallGate::Pass>(sut.enter());
    std::atomic<bool> left{false};

    auto closing = std::async(std::launch::async, [&] {
        sut.close();
        return left.load();
    });
    while (sut.enter()) {
        // until close() has begun
    }
    EXPECT_EQ(closing.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
    left = true;
    inside.reset();
    EXPECT_TRUE(closing.get());
}

TEST(CallGate, CloseReturnsAtOnceWhenNobodyIsInside) {
    CallGate sut;
    sut.open();
    { const auto inside = sut.enter(); }
    sut.close();
}

TEST(CallGate, MovedPassLeavesOnce) {
    CallGate sut;
    sut.open();
    auto first = std::make_unique<CallGate::Pass>(sut.enter());
    auto second = std::make_unique<CallGate::Pass>(std::move(*first));
    auto third = std::make_unique<CallGate::Pass>(sut.enter());
    first.reset();
    second.reset();
    // One is inside still: a pass that left twice would let close() through.
    auto closing = std::async(std::launch::async, [&] { sut.close(); });
    EXPECT_EQ(closing.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
    third.reset();
    closing.get();
}
