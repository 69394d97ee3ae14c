#include "HangDetector.h"

#include <gtest/gtest.h>

#include <functional>

namespace {

using namespace std::chrono_literals;

/// A detector with the default time-out of ten seconds that looks each second.
class HangDetectorTest : public testing::Test {
protected:
    using Samples = std::vector<HangDetector::Sample>;

    /// A driver that leaves five messages standing and does nothing.
    static HangDetector::Sample asleep(const std::string& driverID = "A") {
        return {.driverID = driverID, .pid = 42, .standing = 5, .received = 7};
    }
    /// Looks once a second, until that many seconds are over or a driver is found. The second of the finding,
    /// or -1.
    int look(int seconds, const std::function<Samples(int second)>& samples) {
        for (int second = 0; second <= seconds; ++second, m_now += 1s) {
            m_found = m_sut.judge(samples(second), m_now);
            if (!m_found.empty())
                return second;
        }
        return -1;
    }
    static std::function<Samples(int)> always(const HangDetector::Sample& sample) {
        return [sample](int) { return Samples{sample}; };
    }

    HangDetector m_sut{10s};
    HangDetector::Duration m_now = 1000s;
    std::vector<HangDetector::Verdict> m_found;
};

}  // namespace

TEST_F(HangDetectorTest, FindsWhoTakesNoMessageAndDoesNotCompute) {
    EXPECT_EQ(10, look(60, always(asleep())));
    ASSERT_EQ(1u, m_found.size());
    EXPECT_EQ("A", m_found[0].driverID);
    EXPECT_EQ(42, m_found[0].pid);
    EXPECT_EQ(5u, m_found[0].standing);
    EXPECT_EQ(10s, m_found[0].stillFor);
    EXPECT_FALSE(m_found[0].usedCpu);
}

TEST_F(HangDetectorTest, FindsWhoseInputQueueASenderDoesNotLeave) {
    EXPECT_EQ(10, look(60, [](int second) {
                  // Nothing stands in it, and the driver has nothing to do.
                  HangDetector::Sample sample = asleep();
                  sample.standing = 0;
                  sample.lockedFor = std::chrono::seconds(second) + 1ms;
                  return Samples{sample};
              }));
    ASSERT_EQ(1u, m_found.size());
    EXPECT_EQ("A", m_found[0].driverID);
    EXPECT_EQ(42, m_found[0].pid);
    EXPECT_TRUE(m_found[0].isLocked);
    EXPECT_EQ(10s + 1ms, m_found[0].stillFor);
}

TEST_F(HangDetectorTest, TakesNoSendersThatFollowEachOtherForOneThatStays) {
    EXPECT_EQ(-1, look(60, [](int) {
        HangDetector::Sample sample = asleep();
        sample.standing = 0;
        sample.lockedFor = 9s;
        return Samples{sample};
    }));
}

TEST_F(HangDetectorTest, TakesNoTimeInWhichTheHostStoodStillForALock) {
    const auto locked = [](HangDetector::Duration lockedFor) {
        HangDetector::Sample sample = asleep();
        sample.standing = 0;
        sample.lockedFor = lockedFor;
        return Samples{sample};
    };
    EXPECT_EQ(-1, look(1, [&](int) { return locked(1ms); }));
    m_now += 20s;
    EXPECT_EQ(-1, look(9, [&](int second) { return locked(21s + std::chrono::seconds(second)); }));
    EXPECT_EQ(0, look(1, [&](int) { return locked(31s); }));
}

TEST_F(HangDetectorTest, LeavesALockedQueueOfWhoIsDebuggedAlone) {
    EXPECT_EQ(-1, look(60, [](int second) {
        HangDetector::Sample sample = asleep();
        sample.isTraced = true;
        sample.lockedFor = std::chrono::seconds(second);
        return Samples{sample};
    }));
}

TEST_F(HangDetectorTest, GivesWhoComputesThreeTimesAsLong) {
    EXPECT_EQ(30, look(60, [](int second) {
                  HangDetector::Sample sample = asleep();
                  sample.cpuTicks = static_cast<std::uint64_t>(second);
                  return Samples{sample};
              }));
    EXPECT_TRUE(m_found[0].usedCpu);
    EXPECT_EQ(30s, m_found[0].stillFor);
}

TEST_F(HangDetectorTest, TakesWhoWaitsForAProcessorForComputing) {
    HangDetector::Sample sample = asleep();
    sample.isRunnable = true;
    EXPECT_EQ(30, look(60, always(sample)));
}

TEST_F(HangDetectorTest, WaitsTheWholeTimeAfterTheLastComputing) {
    EXPECT_EQ(14, look(60, [](int second) {
                  HangDetector::Sample sample = asleep();
                  sample.cpuTicks = second < 4 ? 100 : 101;
                  return Samples{sample};
              }));
}

TEST_F(HangDetectorTest, LeavesWhoTakesMessagesHoweverSlowly) {
    EXPECT_EQ(-1, look(300, [](int second) {
        HangDetector::Sample sample = asleep();
        sample.received = static_cast<std::uint32_t>(second / 9);
        return Samples{sample};
    }));
}

TEST_F(HangDetectorTest, LeavesWhoHasNothingToTake) {
    HangDetector::Sample sample = asleep();
    sample.standing = 0;
    EXPECT_EQ(-1, look(300, always(sample)));
}

TEST_F(HangDetectorTest, BeginsAnewWhenNothingStoodInBetween) {
    EXPECT_EQ(19, look(60, [](int second) {
                  HangDetector::Sample sample = asleep();
                  sample.standing = second == 8 ? 0 : 1;
                  return Samples{sample};
              }));
}

TEST_F(HangDetectorTest, LeavesADriverUnderADebugger) {
    HangDetector::Sample sample = asleep();
    sample.isTraced = true;
    EXPECT_EQ(-1, look(300, always(sample)));
}

TEST_F(HangDetectorTest, BeginsAnewWhenTheDebuggerLetsGo) {
    EXPECT_EQ(40, look(60, [](int second) {
                  HangDetector::Sample sample = asleep();
                  sample.isTraced = second < 30;
                  return Samples{sample};
              }));
}

TEST_F(HangDetectorTest, BeginsAnewAfterTheMachineSlept) {
    EXPECT_EQ(-1, look(8, always(asleep())));
    m_now += 3600s;
    EXPECT_EQ(10, look(60, always(asleep())));
}

TEST_F(HangDetectorTest, BeginsAnewWithANewProcess) {
    EXPECT_EQ(19, look(60, [](int second) {
                  HangDetector::Sample sample = asleep();
                  sample.pid = second < 9 ? 42 : 43;
                  return Samples{sample};
              }));
}

TEST_F(HangDetectorTest, FindsNothingWithATimeoutOfNone) {
    HangDetector sut(0s);
    for (int i = 0; i < 100; ++i)
        EXPECT_TRUE(sut.judge({asleep()}, i * 1s).empty());
}

TEST_F(HangDetectorTest, FindsEachOneOfSeveral) {
    EXPECT_EQ(10, look(60, [](int) { return Samples{asleep("A"), asleep("B")}; }));
    EXPECT_EQ(2u, m_found.size());
}

TEST_F(HangDetectorTest, LeavesWhoWaitsForTheHostWhileAnotherIsTheCause) {
    look(60, [](int) {
        HangDetector::Sample waiting = asleep("A");
        waiting.waitsForHost = true;
        waiting.holdsUpSender = true;
        return Samples{waiting, asleep("B")};
    });
    ASSERT_EQ(1u, m_found.size());
    EXPECT_EQ("B", m_found[0].driverID);
}

TEST_F(HangDetectorTest, LeavesWhoWaitsForTheHostAndHoldsUpNobody) {
    HangDetector::Sample waiting = asleep();
    waiting.waitsForHost = true;
    EXPECT_EQ(-1, look(300, always(waiting)));
}

TEST_F(HangDetectorTest, EndsOneOfARingThatWaitsForEachOther) {
    const auto ring = [](int) {
        HangDetector::Sample first = asleep("A");
        first.waitsForHost = true;
        first.holdsUpSender = true;
        HangDetector::Sample second = first;
        second.driverID = "B";
        return Samples{first, second};
    };
    EXPECT_EQ(10, look(60, ring));
    ASSERT_EQ(1u, m_found.size());
    EXPECT_EQ("A", m_found[0].driverID);
    // The other one has the whole time again to come back.
    m_now += 1s;
    EXPECT_EQ(10, look(60, [&](int second) { return Samples{ring(second)[1]}; }));
}
