#include "EventLoop.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <future>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "CallLog.h"

namespace {

using mfd::EventLoop;
using std::chrono::milliseconds;

class EventLoopTest : public testing::Test {
protected:
    static EventLoop::Settings settings(bool timeStandsStill = false) {
        EventLoop::Settings settings;
        settings.driverID = "AXIS1";
        settings.timeStandsStill = timeStandsStill;
        return settings;
    }
    /// Has the loop do all that was posted so far.
    static void settle(EventLoop& loop) {
        std::promise<void> done;
        ASSERT_TRUE(loop.post("mark", [&] { done.set_value(); }));
        ASSERT_EQ(done.get_future().wait_for(c_hangGuard), std::future_status::ready);
    }
    static void advance(EventLoop& loop, milliseconds time) {
        ASSERT_TRUE(loop.post("advance", [&loop, time] { loop.advance(time); }));
        settle(loop);
    }
    std::function<void()> note(const std::string& line) {
        return [this, line] { calls.add(line); };
    }

    CallLog calls;
};

TEST_F(EventLoopTest, DoesWhatIsPostedInItsOrderOnOneThread) {
    EventLoop sut(settings());
    sut.start();
    std::vector<int> order;
    std::vector<std::thread::id> threads;
    for (int i = 0; i < 100; ++i) {
        ASSERT_TRUE(sut.post("work", [&, i] {
            order.push_back(i);
            threads.push_back(std::this_thread::get_id());
        }));
    }
    settle(sut);
    ASSERT_EQ(order.size(), 100u);
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(order[static_cast<std::size_t>(i)], i);
        EXPECT_EQ(threads[static_cast<std::size_t>(i)], threads.front());
    }
    EXPECT_NE(threads.front(), std::this_thread::get_id());
}

TEST_F(EventLoopTest, ThreadBearsTheNameOfTheDriver) {
    EventLoop sut(settings());
    sut.start();
    std::string name;
    ASSERT_TRUE(sut.post("work", [&] {
        std::array<char, 16> text{};
        pthread_getname_np(pthread_self(), text.data(), text.size());
        name = text.data();
    }));
    settle(sut);
    EXPECT_EQ(name, "AXIS1 driver");
}

TEST_F(EventLoopTest, TakesNoMoreThanItsQueueHolds) {
    EventLoop::Settings small = settings();
    small.longest = 2;
    EventLoop sut(std::move(small));
    EXPECT_TRUE(sut.post("work", note("one")));
    EXPECT_TRUE(sut.post("work", note("two")));
    EXPECT_FALSE(sut.post("work", note("three")));
    sut.start();
    EXPECT_TRUE(calls.waitFor("two"));
    settle(sut);
    EXPECT_EQ(calls.lines(), (std::vector<std::string>{"one", "two"}));
}

TEST_F(EventLoopTest, DoesAtItsStopWhatWasPostedBefore) {
    EventLoop sut(settings());
    sut.start();
    std::promise<void> go;
    ASSERT_TRUE(sut.post("work", [&] { go.get_future().wait_for(c_hangGuard); }));
    for (const char* line : {"one", "two"})
        ASSERT_TRUE(sut.post("work", note(line)));
    std::future<std::size_t> left = std::async(std::launch::async, [&] { return sut.stop(c_hangGuard); });
    go.set_value();
    EXPECT_EQ(left.get(), 0u);
    EXPECT_EQ(calls.lines(), (std::vector<std::string>{"one", "two"}));
}

TEST_F(EventLoopTest, LeavesUndoneAtItsStopWhatTakesTooLong) {
    EventLoop sut(settings());
    sut.start();
    std::promise<void> begun;
    std::promise<void> go;
    ASSERT_TRUE(sut.post("work", [&] {
        begun.set_value();
        go.get_future().wait_for(c_hangGuard);
    }));
    ASSERT_TRUE(sut.post("work", note("one")));
    ASSERT_TRUE(sut.post("work", note("two")));
    begun.get_future().wait();
    std::future<std::size_t> left = std::async(std::launch::async, [&] { return sut.stop(milliseconds(0)); });
    while (!sut.isStopping())
        std::this_thread::yield();
    go.set_value();
    EXPECT_GE(left.get(), 2u);
    EXPECT_TRUE(calls.lines().empty());
}

TEST_F(EventLoopTest, TakesNothingAfterItsStop) {
    EventLoop sut(settings());
    sut.start();
    EXPECT_EQ(sut.stop(milliseconds(0)), 0u);
    EXPECT_FALSE(sut.post("work", note("late")));
}

TEST_F(EventLoopTest, GoesOnAfterAnException) {
    EventLoop::Settings telling = settings();
    telling.onFailure = [this](const std::string& what, const std::string& reason) {
        calls.add(what + ": " + reason);
    };
    EventLoop sut(std::move(telling));
    sut.start();
    ASSERT_TRUE(sut.post("MOVE", [] { throw std::runtime_error("no such axis"); }));
    ASSERT_TRUE(sut.post("STOP", [] { throw 5; }));
    sut.startTimer(milliseconds(0), std::nullopt, [] { throw std::runtime_error("late"); });
    EXPECT_TRUE(calls.waitFor("MOVE: no such axis"));
    EXPECT_TRUE(calls.waitFor("STOP: an exception that is no std::exception"));
    EXPECT_TRUE(calls.waitFor("a timer: late"));
    settle(sut);
}

TEST_F(EventLoopTest, TimersComeByThemselves) {
    EventLoop sut(settings());
    sut.start();
    sut.startTimer(milliseconds(1), std::nullopt, note("once"));
    sut.startTimer(milliseconds(1), milliseconds(1), note("again"));
    EXPECT_TRUE(calls.waitFor("once"));
    EXPECT_TRUE(calls.waitFor("again", 3));
    EXPECT_EQ(calls.count("once"), 1);
}

TEST_F(EventLoopTest, TimersComeInTheOrderOfTheirTimes) {
    EventLoop sut(settings(true));
    sut.start();
    sut.startTimer(milliseconds(30), std::nullopt, note("late"));
    sut.startTimer(milliseconds(10), milliseconds(10), note("period"));
    sut.startTimer(milliseconds(15), std::nullopt, note("early"));
    advance(sut, milliseconds(9));
    EXPECT_TRUE(calls.lines().empty());
    advance(sut, milliseconds(21));
    EXPECT_EQ(calls.lines(), (std::vector<std::string>{"period", "early", "period", "late", "period"}));
}

TEST_F(EventLoopTest, TimeStandsAtEachTimersInstant) {
    EventLoop sut(settings(true));
    sut.start();
    const auto begin = sut.now();
    std::vector<long> seen;
    sut.startTimer(milliseconds(10), milliseconds(10), [&] {
        seen.push_back(std::chrono::duration_cast<milliseconds>(sut.now() - begin).count());
    });
    advance(sut, milliseconds(25));
    EXPECT_EQ(seen, (std::vector<long>{10, 20}));
    EXPECT_EQ(sut.now() - begin, milliseconds(25));
}

TEST_F(EventLoopTest, TimerThatStartsAnotherWithinTheTimeIsFollowed) {
    EventLoop sut(settings(true));
    sut.start();
    sut.startTimer(milliseconds(10), std::nullopt,
                   [&] { sut.startTimer(milliseconds(10), std::nullopt, note("second")); });
    advance(sut, milliseconds(20));
    EXPECT_EQ(calls.count("second"), 1);
}

TEST_F(EventLoopTest, CancelledTimerDoesNotCome) {
    EventLoop sut(settings(true));
    sut.start();
    const unsigned cancelled = sut.startTimer(milliseconds(10), milliseconds(10), note("cancelled"));
    unsigned period = 0;
    period = sut.startTimer(milliseconds(10), milliseconds(10), [&] {
        calls.add("period");
        sut.cancelTimer(period);
    });
    sut.cancelTimer(cancelled);
    sut.cancelTimer(0);
    advance(sut, milliseconds(100));
    EXPECT_EQ(calls.lines(), (std::vector<std::string>{"period"}));
}

TEST_F(EventLoopTest, WatchedDescriptorIsServedWhileItCanBeRead) {
    std::array<int, 2> pipe{};
    ASSERT_EQ(::pipe(pipe.data()), 0);
    EventLoop sut(settings());
    sut.start();
    ASSERT_EQ(sut.watch(pipe[0],
                        [&] {
                            std::array<char, 1> byte{};
                            if (::read(pipe[0], byte.data(), 1) == 1) {
                                calls.add(std::string(1, byte[0]));
                            } else {
                                calls.add("end");
                                sut.unwatch(pipe[0]);
                            }
                        }),
              "");
    ASSERT_EQ(::write(pipe[1], "ab", 2), 2);
    EXPECT_TRUE(calls.waitFor("a"));
    EXPECT_TRUE(calls.waitFor("b"));
    ::close(pipe[1]);
    EXPECT_TRUE(calls.waitFor("end"));
    settle(sut);
    settle(sut);
    EXPECT_EQ(calls.count("end"), 1);
    ::close(pipe[0]);
}

TEST_F(EventLoopTest, SaysWhyADescriptorCannotBeWatched) {
    EventLoop sut(settings());
    EXPECT_EQ(sut.watch(-1, [] {}), "Bad file descriptor");
}

TEST_F(EventLoopTest, PostsOfManyThreadsAllCome) {
    EventLoop sut(settings());
    sut.start();
    int count = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int done = 0; done < 500;)
                done += sut.post("work", [&] { ++count; }) ? 1 : 0;
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(sut.stop(c_hangGuard), 0u);
    EXPECT_EQ(count, 2000);
}

}  // namespace
