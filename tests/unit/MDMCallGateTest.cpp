#include "MDMCallGate.h"

#include <gtest/gtest.h>

#include <future>
#include <memory>
#include <thread>
#include <vector>

namespace {

using namespace std::chrono_literals;

struct Target {
    int value = 7;
};

/// A call on another thread that has begun when this is made, and lasts until it is let out.
class CallInside {
public:
    CallInside(MDMCallGate& gate, Target*& pTarget)
        : m_thread([this, &gate, &pTarget] {
              const MDMCallGate::Call<Target> call(gate, pTarget);
              m_inside.set_value();
              m_leave.get_future().wait();
          }) {
        m_inside.get_future().wait();
    }
    ~CallInside() { m_thread.join(); }
    CallInside(const CallInside&) = delete;
    CallInside& operator=(const CallInside&) = delete;

    void leave() { m_leave.set_value(); }

private:
    std::promise<void> m_inside;
    std::promise<void> m_leave;
    std::thread m_thread;
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
    CallInside caller(sut, pTarget);
    auto closed = std::async(std::launch::async, [&] { sut.close(pTarget); });
    EXPECT_EQ(closed.wait_for(50ms), std::future_status::timeout);
    caller.leave();
    closed.wait();
}

TEST(MDMCallGate, CallThatComesWhileOthersLeaveIsEmpty) {
    MDMCallGate sut;
    Target target;
    Target* pTarget = &target;
    CallInside caller(sut, pTarget);
    auto closed = std::async(std::launch::async, [&] { sut.close(pTarget); });
    while (MDMCallGate::load(pTarget))
        std::this_thread::yield();
    EXPECT_FALSE((MDMCallGate::Call<Target>(sut, pTarget)));
    caller.leave();
    closed.wait();
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
