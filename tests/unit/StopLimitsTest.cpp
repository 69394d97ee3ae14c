#include "StopLimits.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using namespace std::chrono_literals;

/// Limits with the host's usual times, and a clock that the test turns.
class StopLimitsTest : public testing::Test {
protected:
    static sal::MessageQueue::Status waitedFor(const std::string& name, unsigned int waitingForMs,
                                               unsigned int lockedForMs = 0) {
        sal::MessageQueue::Status status;
        status.name = name;
        status.waitingForMs = waitingForMs;
        status.lockedForMs = lockedForMs;
        return status;
    }
    /// What is due that long after the shutdown began, for a supervisor that looks at each interval
    /// meanwhile: "queues", "processes", "host".
    std::string due(std::chrono::milliseconds after) {
        return text(lookUntil(m_sut, m_looked, m_now + after));
    }
    static StopLimits::Due lookUntil(StopLimits& sut, StopLimits::Clock::time_point& looked,
                                     StopLimits::Clock::time_point until) {
        while ((looked += 50ms) < until)
            sut.due(looked);
        looked = until;
        return sut.due(until);
    }
    static std::string text(const StopLimits::Due& due) {
        std::string text;
        for (const auto& [isDue, name] :
             {std::pair(due.fullQueues, "queues "), std::pair(due.processes, "processes "),
              std::pair(due.host, "host ")})
            text += isDue ? name : "";
        return text;
    }

    StopLimits m_sut{
        {.stopTimeout = 3000ms, .shutdownLimit = 5000ms, .killDelay = 500ms, .replacedLimit = 10s}};
    const StopLimits::Clock::time_point m_now{1000s};
    StopLimits::Clock::time_point m_looked = m_now;
};

}  // namespace

TEST_F(StopLimitsTest, StopIsOverAfterItsTimeout) {
    EXPECT_FALSE(m_sut.isStopOver(m_now, m_now + 2999ms));
    EXPECT_TRUE(m_sut.isStopOver(m_now, m_now + 3000ms));
}

TEST_F(StopLimitsTest, ReplacedProcessHasALimitOfItsOwn) {
    EXPECT_FALSE(m_sut.isReplacedOver(m_now, m_now + 9999ms));
    EXPECT_TRUE(m_sut.isReplacedOver(m_now, m_now + 10s));
}

TEST_F(StopLimitsTest, KillComesADelayAfterTheSignal) {
    EXPECT_FALSE(m_sut.isKillDue(m_now, m_now + 499ms));
    EXPECT_TRUE(m_sut.isKillDue(m_now, m_now + 500ms));
}

TEST_F(StopLimitsTest, DriverIsStuckWhenItsQueueWasWaitedForLongEnough) {
    EXPECT_FALSE(m_sut.stuck({}));
    EXPECT_FALSE(m_sut.stuck({waitedFor("A_INQ", 2999)}));
    const auto stuck =
        m_sut.stuck({waitedFor("A_INQ", 2999), waitedFor("B_INQ", 3000), waitedFor("C_INQ", 4000)});
    ASSERT_TRUE(stuck);
    EXPECT_EQ("B", stuck->driverID);
    EXPECT_FALSE(stuck->isLocked);
}

TEST_F(StopLimitsTest, QueueToTheHostIsNoStuckDriver) {
    EXPECT_FALSE(m_sut.stuck({waitedFor("A_OUTQ", 4000)}));
    const auto stuck = m_sut.stuck({waitedFor("A_OUTQ", 4000), waitedFor("B_INQ", 3000)});
    ASSERT_TRUE(stuck);
    EXPECT_EQ("B", stuck->driverID);
}

TEST_F(StopLimitsTest, QueueIsLockedThatAnotherSenderHasNotLeftForTheWholeTime) {
    EXPECT_FALSE(m_sut.stuck({waitedFor("A_INQ", 4000, 2999)})->isLocked);
    EXPECT_TRUE(m_sut.stuck({waitedFor("A_INQ", 4000, 3000)})->isLocked);
}

TEST_F(StopLimitsTest, NothingIsDueWithoutAShutdown) {
    EXPECT_FALSE(m_sut.isShuttingDown());
    EXPECT_EQ("", due(1h));
    m_sut.beginProcessEnd(m_now);
    EXPECT_EQ("", due(1h));
}

TEST_F(StopLimitsTest, FirstShutdownCounts) {
    EXPECT_TRUE(m_sut.beginShutdown(7, m_now));
    EXPECT_TRUE(m_sut.isShuttingDown());
    EXPECT_FALSE(m_sut.beginShutdown(0, m_now + 1s));
    EXPECT_EQ("queues host ", due(4650ms));
    EXPECT_EQ(7, m_sut.due(m_now + 4650ms).exitCode);
}

TEST_F(StopLimitsTest, FullQueuesAreEndedAtTheStopTimeout) {
    m_sut.beginShutdown(0, m_now);
    EXPECT_EQ("", due(2999ms));
    EXPECT_EQ("queues ", due(3000ms));
    EXPECT_EQ("queues ", due(4649ms));
    EXPECT_EQ("queues host ", due(4650ms));
}

TEST_F(StopLimitsTest, ProcessesAreEndedTheStopTimeoutAfterTheManagerIsGone) {
    m_sut.beginShutdown(0, m_now);
    EXPECT_FALSE(m_sut.isEndingProcesses());
    m_sut.beginProcessEnd(m_now + 500ms);
    EXPECT_TRUE(m_sut.isEndingProcesses());
    EXPECT_EQ("", due(3499ms));
    EXPECT_EQ("processes ", due(3500ms));
    EXPECT_EQ("processes host ", due(4650ms));
}

TEST_F(StopLimitsTest, ProcessesThatHeedNothingAreKilledBeforeTheLimit) {
    m_sut.beginShutdown(0, m_now);
    m_sut.beginProcessEnd(m_now + 4s);
    // 350 ms for the last lines, 500 ms until the kill, two looks of 50 ms.
    EXPECT_EQ("", due(4049ms));
    EXPECT_EQ("processes ", due(4050ms));
}

TEST_F(StopLimitsTest, TimeInWhichNobodyLookedIsAShortPause) {
    m_sut.beginShutdown(0, m_now);
    m_sut.beginProcessEnd(m_now);
    EXPECT_EQ("", text(m_sut.due(m_now + 1h)));
    m_looked = m_now + 1h;
    // The pause counts as 200 ms.
    EXPECT_EQ("", due(1h + 2799ms));
    EXPECT_EQ("processes ", due(1h + 2800ms));
    EXPECT_EQ("processes ", due(1h + 4449ms));
    EXPECT_EQ("processes host ", due(1h + 4450ms));
}

TEST_F(StopLimitsTest, LongStopTimeoutLeavesTimeForFullQueuesAndThenForProcesses) {
    StopLimits sut({.stopTimeout = 1h, .shutdownLimit = 5000ms, .killDelay = 500ms, .replacedLimit = 10s});
    sut.beginShutdown(0, m_now);
    EXPECT_FALSE(lookUntil(sut, m_looked, m_now + 3449ms).fullQueues);
    EXPECT_TRUE(lookUntil(sut, m_looked, m_now + 3450ms).fullQueues);
    sut.beginProcessEnd(m_now + 3500ms);
    EXPECT_FALSE(lookUntil(sut, m_looked, m_now + 4049ms).processes);
    EXPECT_TRUE(lookUntil(sut, m_looked, m_now + 4050ms).processes);
}
