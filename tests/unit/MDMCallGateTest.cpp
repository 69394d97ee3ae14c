#include "MDMCallGate.h"

#include <gtest/gtest.h>

#include <future>
#include <memory>
#include <vector>

namespace {

using namespace std::chrono_literals;

struct Target {
    int value = 7;
};

}  // namespace

TEST(MDMCallGate, CallReachesTheObject) {
    MDMCallGate sut;
    Target target;
    Target* pTarget = &target;
    const MDMCallGate::Call<Target> call(sut, pTarget);
    ASSERT_TRUE(call);
    EXPECT_EQ(call->value, 7);
}

TEST(MDMCallGate, CallThroughNullIsEmpty) {
    MDMCallGate sut;
    Target* pTarget = nullptr;
    EXPECT_FALSE((MDMCallGate::Call<Target>(sut, pTarget)));
}

TEST(MDMCallGate, CloseLeavesNull) {
    MDMCallGate sut;
    Target target;
    Target* pTarget = &target;
    sut.close(pTarget);
    EXPECT_EQ(pTarget, nullptr);
}

TEST(MDMCallGate, CloseWaitsForTheCallInside) {
    MDMCallGate sut;
    Target target;
    Target* pTarget = &target;
    std::promise<void> inside;
    std::promise<void> leave;
    std::thread caller([&] {
        const MDMCallGate::Call<Target> call(sut, pTarget);
        inside.set_value();
        leave.get_future().wait();
    });
    inside.get_future().wait();
    auto closed = std::async(std::launch::async, [&] { sut.close(pTarget); });
    EXPECT_EQ(closed.wait_for(50ms), std::future_status::timeout);
    leave.set_value();
    closed.wait();
    caller.join();
}

TEST(MDMCallGate, CallThatComesWhileOthersLeaveIsEmpty) {
    MDMCallGate sut;
    Target target;
    Target* pTarget = &target;
    std::promise<void> inside;
    std::promise<void> leave;
    std::thread caller([&] {
        const MDMCallGate::Call<Target> call(sut, pTarget);
        inside.set_value();
        leave.get_future().wait();
    });
    inside.get_future().wait();
    auto closed = std::async(std::launch::async, [&] { sut.close(pTarget); });
    while (MDMCallGate::load(pTarget))
        std::this_thread::yield();
    EXPECT_FALSE((MDMCallGate::Call<Target>(sut, pTarget)));
    leave.set_value();
    closed.wait();
    caller.join();
}

// The object is gone as soon as close() returns: no caller of several may touch it then.
TEST(MDMCallGate, NobodyIsInsideOnceCloseHasReturnedEndurance) {
    for (int round = 0; round < 200; ++round) {
        MDMCallGate sut;
        auto target = std::make_unique<Target>();
        Target* pTarget = target.get();
        std::atomic<bool> stop{false};
        std::vector<std::thread> callers;
        for (int index = 0; index < 3; ++index)
            callers.emplace_back([&] {
                while (!stop) {
                    const MDMCallGate::Call<Target> call(sut, pTarget);
                    if (call) {
                        EXPECT_EQ(call->value, 7);
                    }
                }
            });
        sut.close(pTarget);
        target->value = 0;
        target.reset();
        stop = true;
        for (std::thread& caller : callers)
            caller.join();
    }
}
