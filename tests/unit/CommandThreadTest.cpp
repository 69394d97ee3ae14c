#include "CommandThread.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <future>
#include <optional>
#include <stdexcept>
#include <vector>

#include "HangGuard.h"
#include "LogCapture.h"

namespace {

/// A command thread whose last task and end are written down.
class CommandThreadTest : public testing::Test {
protected:
    void start() {
        m_sut.start([this] { ++m_activityChanges; }, [this] { add("last"); }, [this] { m_end.set_value(); });
    }
    void add(const std::string& line) {
        const std::lock_guard lock(m_mutex);
        m_lines.push_back(line);
    }
    std::vector<std::string> finish() {
        m_end.get_future().wait();
        const std::lock_guard lock(m_mutex);
        return m_lines;
    }

    std::mutex m_mutex;
    std::vector<std::string> m_lines;
    std::promise<void> m_end;
    std::atomic<int> m_activityChanges = 0;
    CommandThread m_sut;
};

using Lines = std::vector<std::string>;

}  // namespace

TEST_F(CommandThreadTest, RunsTasksInOrderAndTheLastOneAtTheEnd) {
    m_sut.post("1", [this] { add("1"); });
    m_sut.post("2", [this] { add("2"); });
    m_sut.stopWhenDone();
    start();
    EXPECT_EQ((Lines{"1", "2", "last"}), finish());
}

TEST_F(CommandThreadTest, StopAfterCurrentDropsWhatWaits) {
    m_sut.post("1", [this] { add("1"); });
    m_sut.stopAfterCurrent();
    start();
    EXPECT_EQ(Lines{"last"}, finish());
}

TEST(CommandThread, EndsWithoutHavingBeenToldToStop) {
    const auto endWithTheObject = [] {
        ::alarm(c_hangGuard.count());
        {
            CommandThread sut;
            sut.start([] {}, [] {}, [] {});
        }
        ::_exit(0);
    };
    EXPECT_EXIT(endWithTheObject(), testing::ExitedWithCode(0), "");
}

TEST_F(CommandThreadTest, TaskMayStopItsThread) {
    m_sut.post("1", [this] {
        add("1");
        m_sut.stopAfterCurrent();
    });
    m_sut.post("2", [this] { add("2"); });
    start();
    EXPECT_EQ((Lines{"1", "last"}), finish());
}

TEST_F(CommandThreadTest, TakesNothingWhileStopping) {
    m_sut.stopWhenDone();
    EXPECT_FALSE(m_sut.post("1", [] {}));
    EXPECT_FALSE(m_sut.postInLane("A", "1", [] {}, {}));
    EXPECT_FALSE(m_sut.postInLaneWaiting("A", "1", [] {}, {}));
    start();
    finish();
}

TEST_F(CommandThreadTest, RefusesMoreThanAThousandWaitingTasks) {
    for (int i = 0; i < 1000; ++i)
        ASSERT_TRUE(m_sut.post("x", [] {}));
    EXPECT_FALSE(m_sut.post("x", [] {}));
    m_sut.stopAfterCurrent();
    start();
    finish();
}

TEST_F(CommandThreadTest, ReaderOfManyLinesWaitsForRoom) {
    int count = 0;
    const auto add = [&count] { ++count; };
    for (int i = 0; i < 1000; ++i)
        ASSERT_TRUE(m_sut.postInLane("", "x", add, {}));
    EXPECT_FALSE(m_sut.postInLane("", "x", add, {}));
    auto posted = std::async(std::launch::async, [&] { return m_sut.postInLaneWaiting("", "x", add, {}); });
    EXPECT_EQ(std::future_status::timeout, posted.wait_for(std::chrono::milliseconds(50)));
    start();
    EXPECT_TRUE(posted.get());
    m_sut.stopWhenDone();
    finish();
    EXPECT_EQ(1001, count);
}

TEST_F(CommandThreadTest, StopReleasesAReaderThatWaitsForRoom) {
    for (int i = 0; i < 1000; ++i)
        m_sut.postInLane("", "x", [] {}, {});
    auto posted = std::async(std::launch::async, [&] { return m_sut.postInLaneWaiting("", "x", [] {}, {}); });
    m_sut.stopAfterCurrent();
    EXPECT_FALSE(posted.get());
    start();
    finish();
}

TEST_F(CommandThreadTest, LaneHasRoomOfItsOwn) {
    for (int i = 0; i < 1000; ++i)
        ASSERT_TRUE(m_sut.postInLane("A", "x", [] {}, {}));
    EXPECT_FALSE(m_sut.postInLane("A", "x", [] {}, {}));
    EXPECT_TRUE(m_sut.postInLane("B", "x", [] {}, {}));
    EXPECT_TRUE(m_sut.post("x", [] {}));
    m_sut.stopAfterCurrent();
    start();
    finish();
}

TEST_F(CommandThreadTest, LaneWaitsAtAGateInItsOrderAndNobodyElseWaits) {
    std::atomic<bool> isFull = true;
    const CommandThread::Clock::time_point since = CommandThread::Clock::now();
    const CommandThread::Gate gate = [&]() -> std::optional<CommandThread::Hold> {
        if (isFull)
            return CommandThread::Hold{"B", since};
        return std::nullopt;
    };
    std::promise<void> restarted;
    m_sut.postInLane(
        "A", "A1", [this] { add("A1"); }, gate);
    m_sut.postInLane("A", "A2", [this] { add("A2"); }, {});
    m_sut.postInLane("C", "C1", [this] { add("C1"); }, {});
    m_sut.post("1", [this] { add("1"); });
    m_sut.postBehind("restart", [&] {
        add("restart");
        restarted.set_value();
    });
    EXPECT_TRUE(m_sut.waits().empty());
    start();
    ASSERT_EQ(std::future_status::ready, restarted.get_future().wait_for(c_hangGuard));
    const std::vector<CommandWait> waits = m_sut.waits();
    ASSERT_EQ(1u, waits.size());
    EXPECT_EQ("A1", waits[0].what);
    EXPECT_EQ("B", waits[0].driverID);
    EXPECT_EQ(since, waits[0].since);
    EXPECT_TRUE(eventually([&] { return !m_sut.activity().busy; }));
    m_sut.stopWhenDone();
    isFull = false;
    EXPECT_EQ((Lines{"C1", "1", "restart", "A1", "A2", "last"}), finish());
    EXPECT_TRUE(m_sut.waits().empty());
}

TEST_F(CommandThreadTest, StopAfterCurrentDropsWhatWaitsAtAGate) {
    const CommandThread::Gate gate = [] { return CommandThread::Hold{"B", {}}; };
    m_sut.postInLane(
        "A", "A1", [this] { add("A1"); }, gate);
    std::promise<void> done;
    m_sut.post("1", [&] { done.set_value(); });
    start();
    ASSERT_EQ(std::future_status::ready, done.get_future().wait_for(c_hangGuard));
    m_sut.stopAfterCurrent();
    EXPECT_EQ(Lines{"last"}, finish());
    EXPECT_TRUE(m_sut.waits().empty());
}

TEST_F(CommandThreadTest, TellsWhatItDoesAndForWhichDriver) {
    CommandActivity seen;
    m_sut.post("reloadDriver SYS", [&] {
        m_sut.setDriver("SYS");
        seen = m_sut.activity();
    });
    EXPECT_FALSE(m_sut.activity().busy);
    m_sut.stopWhenDone();
    start();
    finish();
    EXPECT_TRUE(seen.busy);
    EXPECT_EQ("reloadDriver SYS", seen.what);
    EXPECT_EQ("SYS", seen.driverID);
}

TEST_F(CommandThreadTest, NextTaskConcernsNoDriver) {
    std::string driverID = "x";
    m_sut.post("1", [&] { m_sut.setDriver("SYS"); });
    m_sut.post("2", [&] { driverID = m_sut.activity().driverID; });
    m_sut.stopWhenDone();
    start();
    finish();
    EXPECT_EQ("", driverID);
}

TEST_F(CommandThreadTest, SaysWhenItBeginsAndEnds) {
    m_sut.post("1", [] {});
    m_sut.stopWhenDone();
    start();
    finish();
    EXPECT_EQ(4, m_activityChanges);
}

TEST_F(CommandThreadTest, RunsWhatNobodyAskedForBehindAllElse) {
    std::promise<void> done;
    m_sut.postBehind("restart", [&] {
        add("restart");
        done.set_value();
    });
    m_sut.post("1", [this] { add("1"); });
    m_sut.post("2", [this] { add("2"); });
    start();
    done.get_future().wait();
    m_sut.stopWhenDone();
    EXPECT_EQ((Lines{"1", "2", "restart", "last"}), finish());
}

TEST_F(CommandThreadTest, DropsWhatNobodyAskedForAtTheEnd) {
    EXPECT_TRUE(m_sut.postBehind("restart", [this] { add("restart"); }));
    m_sut.post("1", [this] { add("1"); });
    m_sut.stopWhenDone();
    EXPECT_FALSE(m_sut.postBehind("restart", [this] { add("restart"); }));
    start();
    EXPECT_EQ((Lines{"1", "last"}), finish());
}

TEST_F(CommandThreadTest, TaskThatThrowsIsSaidAndTheThreadGoesOn) {
    LogCapture log;
    m_sut.post("reloadDriver A", [] { throw std::runtime_error("no memory"); });
    m_sut.post("2", [this] { add("2"); });
    m_sut.stopWhenDone();
    start();
    EXPECT_EQ((Lines{"2", "last"}), finish());
    m_sut.join();
    EXPECT_THAT(log.finish(), testing::HasSubstr("HOST: \"reloadDriver A\" is broken off: no memory\n"));
}
