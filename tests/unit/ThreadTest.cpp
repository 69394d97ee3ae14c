#include "sal/Thread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

class TestThread : public sal::Thread {
public:
    explicit TestThread(std::function<void()> body) : m_body(std::move(body)) {}

private:
    void run() override { m_body(); }

    std::function<void()> m_body;
};

TEST(Thread, RunsItsBodyOnAnotherThread) {
    std::thread::id id;
    TestThread sut([&] { id = std::this_thread::get_id(); });
    ASSERT_TRUE(sut.start(sal::Thread::ePriorityNormal));
    ASSERT_TRUE(sut.shutdown(-1));
    EXPECT_NE(id, std::thread::id());
    EXPECT_NE(id, std::this_thread::get_id());
}

TEST(Thread, TheNormalPriorityIs259) {
    EXPECT_EQ(sal::Thread::ePriorityNormal, 259);
}

TEST(Thread, DoesNotBearTheNameOfItsMaker) {
    std::string name;
    TestThread sut([&] { std::getline(std::ifstream("/proc/thread-self/comm"), name); });
    ASSERT_TRUE(sut.start(sal::Thread::ePriorityNormal));
    ASSERT_TRUE(sut.shutdown(-1));
    EXPECT_EQ(name, "thread");
}

TEST(Thread, ShutdownOfAThreadThatNeverRanReturnsAtOnce) {
    TestThread sut([] {});
    EXPECT_TRUE(sut.shutdown(-1));
}

TEST(Thread, ShutdownWaitsForTheEnd) {
    std::atomic<bool> ended{false};
    TestThread sut([&] {
        std::this_thread::sleep_for(100ms);
        ended = true;
    });
    ASSERT_TRUE(sut.start(sal::Thread::ePriorityNormal));
    EXPECT_TRUE(sut.shutdown(-1));
    EXPECT_TRUE(ended);
}

TEST(Thread, ShutdownGivesUpAtItsTimeOut) {
    std::atomic<bool> goOn{false};
    TestThread sut([&] {
        while (!goOn) {
            std::this_thread::sleep_for(1ms);
        }
    });
    ASSERT_TRUE(sut.start(sal::Thread::ePriorityNormal));
    const auto begin = Clock::now();
    EXPECT_FALSE(sut.shutdown(100));
    EXPECT_GE(Clock::now() - begin, 100ms);
    goOn = true;
    EXPECT_TRUE(sut.shutdown(-1));
}

TEST(Thread, ShutdownOfAThreadThatHasEndedReturnsAtOnce) {
    TestThread sut([] {});
    ASSERT_TRUE(sut.start(sal::Thread::ePriorityNormal));
    ASSERT_TRUE(sut.shutdown(-1));
    EXPECT_TRUE(sut.shutdown(0));
}

TEST(Thread, CannotBeStartedWhileItRuns) {
    std::atomic<bool> goOn{false};
    TestThread sut([&] {
        while (!goOn) {
            std::this_thread::sleep_for(1ms);
        }
    });
    ASSERT_TRUE(sut.start(sal::Thread::ePriorityNormal));
    testing::internal::CaptureStderr();
    EXPECT_FALSE(sut.start(sal::Thread::ePriorityNormal));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "THREAD: a thread that runs cannot be started again\n");
    goOn = true;
    sut.shutdown(-1);
}

TEST(Thread, CanBeStartedAgainAfterItsEnd) {
    std::atomic<int> runs{0};
    TestThread sut([&] { ++runs; });
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(sut.start(sal::Thread::ePriorityNormal));
        ASSERT_TRUE(sut.shutdown(-1));
    }
    EXPECT_EQ(runs, 3);
}

TEST(Thread, CanBeShutDownByTwoAtOnce) {
    TestThread sut([] { std::this_thread::sleep_for(50ms); });
    ASSERT_TRUE(sut.start(sal::Thread::ePriorityNormal));
    std::thread other([&] { EXPECT_TRUE(sut.shutdown(-1)); });
    EXPECT_TRUE(sut.shutdown(-1));
    other.join();
}

TEST(Thread, AnExceptionEndsTheThreadAlone) {
    TestThread sut([] { throw std::runtime_error("no such axis"); });
    testing::internal::CaptureStderr();
    ASSERT_TRUE(sut.start(sal::Thread::ePriorityNormal));
    EXPECT_TRUE(sut.shutdown(-1));
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "THREAD: a thread has ended by std::runtime_error: no such axis\n");
}

TEST(Thread, ItsDestructorWaitsForABodyThatStillRuns) {
    std::atomic<bool> begun{false};
    std::atomic<bool> ended{false};
    class Careless : public sal::Thread {
    public:
        Careless(std::atomic<bool>& begun, std::atomic<bool>& ended) : m_begun(begun), m_ended(ended) {}

    private:
        void run() override {
            std::atomic<bool>& hasEnded = m_ended;
            m_begun = true;
            std::this_thread::sleep_for(100ms);
            hasEnded = true;
        }
        std::atomic<bool>& m_begun;
        std::atomic<bool>& m_ended;
    };
    testing::internal::CaptureStderr();
    {
        Careless sut(begun, ended);
        ASSERT_TRUE(sut.start(sal::Thread::ePriorityNormal));
        while (!begun) {
            std::this_thread::sleep_for(1ms);
        }
    }
    EXPECT_TRUE(ended);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "THREAD: a thread is destroyed before its shutdown; waiting for its end\n");
}

TEST(Thread, SleepWaitsForSeconds) {
    const auto begin = Clock::now();
    sal::Thread::sleep(1);
    EXPECT_GE(Clock::now() - begin, 1s);
}

TEST(Thread, MssleepWaitsForMilliseconds) {
    const auto begin = Clock::now();
    sal::Thread::mssleep(50);
    EXPECT_GE(Clock::now() - begin, 50ms);
}

}  // namespace
