#include "NestedCall.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/mman.h>

#include <cstddef>
#include <functional>
#include <string>
#include <thread>

#include "DriverGuard.h"

namespace {

using EVerdict = sal::NestedCall::EVerdict;

/// Two drivers by the names A and B.
class NestedCall : public testing::Test {
protected:
    NestedCall() {
        a.setDriverID("A");
        b.setDriverID("B");
    }

    /// A and B call each other in turn until one is refused or that depth is reached; what is said of it
    /// then.
    std::string alternate(unsigned int depth, bool isA = true) {
        sal::NestedCall call(isA ? a : b, isA ? ping : pong);
        if (call.judge() != EVerdict::Allowed)
            return std::to_string(call.depth()) + ": " + call.circle();
        return call.depth() == depth ? "done" : alternate(depth, !isA);
    }

    sal::DriverGuard a{"A.so"};
    sal::DriverGuard b{"B.so"};
    const std::string ping = "PING";
    const std::string pong = "PONG";
};

TEST_F(NestedCall, CallsThatFollowEachOtherAreNotNested) {
    for (int i = 0; i < 1000; ++i) {
        sal::NestedCall sut(a, ping);
        EXPECT_EQ(sut.depth(), 1u);
        EXPECT_EQ(sut.judge(), EVerdict::Allowed);
    }
}

TEST_F(NestedCall, TwoHundredInsideEachOtherAreAllowed) {
    EXPECT_EQ(alternate(200), "done");
}

TEST_F(NestedCall, TheNextIsRefusedAndNamesTheCircle) {
    EXPECT_EQ(alternate(201), "201: A.PING -> B.PONG -> A.PING");
}

TEST_F(NestedCall, OtherThreadsDoNotCount) {
    const std::function<void(int)> nest = [&](int depth) {
        sal::NestedCall call(a, ping);
        EXPECT_EQ(call.judge(), EVerdict::Allowed);
        if (depth < 150)
            nest(depth + 1);
        else
            std::thread([&] {
                sal::NestedCall sut(a, ping);
                EXPECT_EQ(sut.depth(), 1u);
                EXPECT_EQ(sut.judge(), EVerdict::Allowed);
            }).join();
    };
    nest(1);
}

/// One driver that calls itself with a function of its own each time.
std::string countDown(const sal::DriverGuard& driver, int number) {
    const std::string function = "STEP" + std::to_string(number);
    sal::NestedCall call(driver, function);
    return call.judge() == EVerdict::Allowed ? countDown(driver, number - 1) : call.circle();
}

TEST_F(NestedCall, DriverThatAnswersItselfIsACircle) {
    EXPECT_EQ(countDown(a, 1000), "A.STEP801 -> A.STEP800");
}

/// Many drivers that call each other in a row without an end.
std::string chain(int number) {
    sal::DriverGuard driver("D" + std::to_string(number));
    const std::string function = "F";
    sal::NestedCall call(driver, function);
    return call.judge() == EVerdict::Allowed ? chain(number + 1) : call.circle();
}

TEST_F(NestedCall, OfALongRowTheEndIsNamed) {
    const std::string text = chain(1);
    EXPECT_TRUE(text.starts_with("... -> D182.F -> D183.F -> ")) << text;
    EXPECT_TRUE(text.ends_with(" -> D200.F -> D201.F")) << text;
}

TEST_F(NestedCall, LongFunctionsAreCut) {
    const std::string function(200, 'x');
    const std::function<std::string()> nest = [&] {
        sal::NestedCall call(a, function);
        return call.judge() == EVerdict::Allowed ? nest() : call.circle();
    };
    const std::string name = "A." + std::string(80, 'x') + "...";
    EXPECT_EQ(nest(), name + " -> " + name);
}

/// Each call makes two more: a circle that would begin anew at every level.
struct Branches {
    const sal::DriverGuard& driver;
    const std::string function = "F";
    int calls = 0;
    int refused = 0;
    int refusedAlso = 0;

    void run() {
        sal::NestedCall call(driver, function);
        switch (call.judge()) {
            case EVerdict::Allowed:
                ++calls;
                run();
                run();
                break;
            case EVerdict::Refused:
                ++refused;
                break;
            case EVerdict::RefusedAlso:
                ++refusedAlso;
                break;
        }
    }
};

TEST_F(NestedCall, CircleThatBranchesComesToItsEnd) {
    Branches sut{a};
    sut.run();
    EXPECT_EQ(sut.refused, 1);
    EXPECT_EQ(sut.calls, 1200);
    EXPECT_EQ(sut.refusedAlso, 1200);
}

TEST_F(NestedCall, AfterTheOutermostHasReturnedAllIsForgotten) {
    Branches first{a};
    first.run();
    Branches sut{a};
    sut.run();
    EXPECT_EQ(sut.refused, 1);
    EXPECT_EQ(sut.calls, 1200);
}

TEST_F(NestedCall, OthersAreStillCalledWhileACircleReturns) {
    int others = 0;
    const std::function<void()> nest = [&] {
        sal::NestedCall call(a, ping);
        if (call.judge() != EVerdict::Allowed)
            return;
        nest();
        sal::NestedCall other(b, pong);
        others += other.judge() == EVerdict::Allowed ? 1 : 0;
    };
    nest();
    // At the innermost level there is no depth left for it.
    EXPECT_EQ(others, 199);
}

/// Runs on a thread with a stack of that size.
void onStackOf(std::size_t size, const std::function<void()>& run) {
    // One of the test's own: the C library would take a larger one that it has left.
    void* pStack = ::mmap(nullptr, size, PROT_READ | PROT_WRITE,
                          MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | MAP_STACK, -1, 0);
    ASSERT_NE(pStack, MAP_FAILED);
    pthread_attr_t attributes;
    ASSERT_EQ(::pthread_attr_init(&attributes), 0);
    ASSERT_EQ(::pthread_attr_setstack(&attributes, pStack, size), 0);
    pthread_t thread{};
    const auto start = [](void* pRun) -> void* {
        (*static_cast<const std::function<void()>*>(pRun))();
        return nullptr;
    };
    ASSERT_EQ(::pthread_create(&thread, &attributes, start, const_cast<std::function<void()>*>(&run)), 0);
    ::pthread_join(thread, nullptr);
    ::pthread_attr_destroy(&attributes);
    ::munmap(pStack, size);
}

/// A driver that keeps much on the stack.
__attribute__((noinline)) unsigned int callWithData(const sal::DriverGuard& driver,
                                                    const std::string& function) {
    volatile char data[64 * 1024];
    data[0] = 1;
    data[sizeof data - 1] = 1;
    sal::NestedCall call(driver, function);
    const unsigned int depth =
        call.judge() == EVerdict::Allowed ? callWithData(driver, function) : call.depth();
    return depth + (data[0] - data[sizeof data - 1]);
}

TEST_F(NestedCall, IsRefusedBeforeTheStackIsUsedUp) {
    unsigned int depth = 0;
    onStackOf(2 * 1024 * 1024, [&] { depth = callWithData(a, ping); });
    EXPECT_LT(depth, 30u);
    EXPECT_GT(depth, 5u);
}

TEST_F(NestedCall, EachThreadHasTheRoomOfItsOwnStack) {
    unsigned int small = 0;
    unsigned int large = 0;
    onStackOf(1024 * 1024, [&] { small = callWithData(a, ping); });
    onStackOf(8 * 1024 * 1024, [&] { large = callWithData(a, ping); });
    EXPECT_GT(large, 3 * small);
}

}  // namespace
