#include "DriverGuard.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <stdexcept>

#include "LogCapture.h"

namespace {

using testing::EndsWith;

TEST(DriverGuard, GivesTheResultOfTheCall) {
    const sal::DriverGuard sut("Axis.so");
    EXPECT_TRUE(sut.run("showState", false, [] { return true; }));
}

TEST(DriverGuard, GivesTheFallbackWhenTheCallThrows) {
    const LogCapture log;
    const sal::DriverGuard sut("Axis.so");
    EXPECT_EQ(sut.run("showState", 17, []() -> int { throw std::runtime_error("no"); }), 17);
}

TEST(DriverGuard, NameIsTheFileUntilThereIsAnID) {
    sal::DriverGuard sut("Axis.so");
    EXPECT_EQ(sut.name(), "Axis.so");
    EXPECT_EQ(sut.driverID(), "");
    sut.setDriverID("AXIS1");
    EXPECT_EQ(sut.name(), "AXIS1");
    EXPECT_EQ(sut.driverID(), "AXIS1");
}

TEST(DriverGuard, IDThatWasReadStaysWhereTheDriverGetsAnother) {
    sal::DriverGuard sut("Axis.so");
    sut.setDriverID("AXIS1");
    const std::string& read = sut.driverID();
    sut.setDriverID("AXIS2");
    EXPECT_EQ(read, "AXIS1");
    EXPECT_EQ(sut.driverID(), "AXIS2");
}

TEST(DriverGuard, GivesTheTextOfTheExceptionToo) {
    const LogCapture log;
    const sal::DriverGuard sut("Axis.so");
    std::string exception;
    sut.run(
        "sendFID", "MOVE", false, []() -> bool { throw std::logic_error("stuck"); }, &exception);
    EXPECT_EQ(exception, "std::logic_error: stuck");
}

TEST(DriverGuard, LogsDriverOperationArgumentAndException) {
    LogCapture log;
    sal::DriverGuard sut("Axis.so");
    sut.setDriverID("AXIS1");
    sut.run("sendFID", "MOVE", false, []() -> bool { throw std::logic_error("stuck"); });
    EXPECT_THAT(log.finish(), EndsWith(" error    MODULE: driver AXIS1: an exception left sendFID(MOVE): "
                                       "std::logic_error: stuck\n"));
}

std::atomic<bool> s_inside{false};

void* callThatIsCancelled(void*) {
    const sal::DriverGuard guard("Axis.so");
    guard.run("showState", false, [] {
        s_inside = true;
        for (;;)
            ::pause();
        return true;
    });
    return nullptr;
}

TEST(DriverGuard, CancelledThreadEnds) {
    pthread_t thread{};
    ASSERT_EQ(::pthread_create(&thread, nullptr, callThatIsCancelled, nullptr), 0);
    while (!s_inside)
        ::usleep(1000);
    ::pthread_cancel(thread);
    void* pResult = nullptr;
    ::pthread_join(thread, &pResult);
    EXPECT_EQ(pResult, PTHREAD_CANCELED);
}

}  // namespace
