#include "FarClock.h"

#include <gtest/gtest.h>

#include <chrono>

namespace {

using namespace std::chrono_literals;

class FarClockTest : public testing::Test {
protected:
    /// The clock there, which is an hour behind that of the epoch.
    linkpayload::Time there() const {
        return linkpayload::Time(
            std::chrono::duration_cast<linkpayload::Time::duration>(m_now.time_since_epoch() - 1h));
    }

    FarClock::Time m_now = FarClock::Time() + 24h;
    FarClock sut;
};

}  // namespace

TEST_F(FarClockTest, WithoutATickEverythingIsOfNow) {
    EXPECT_EQ(sut.here(there() - 5s, m_now), m_now);
}

TEST_F(FarClockTest, AgeIsRightThoughTheClockThereIsNot) {
    sut.take(there(), std::nullopt, m_now);
    EXPECT_EQ(sut.here(there() - 90s, m_now), m_now - 90s);
}

TEST_F(FarClockTest, WhatIsToComeThereIsOfNow) {
    sut.take(there(), std::nullopt, m_now);
    EXPECT_EQ(sut.here(there() + 90s, m_now), m_now);
}

TEST_F(FarClockTest, HalfTheWayThereAndBackIsTakenOff) {
    sut.take(there() - 2s, 4s, m_now);
    EXPECT_EQ(sut.here(there() - 90s, m_now), m_now - 90s);
}

TEST_F(FarClockTest, TickThatWasHeldUpChangesNothing) {
    sut.take(there(), 10ms, m_now);
    sut.take(there() - 9s, 9s, m_now);
    sut.take(there() - 9s, std::nullopt, m_now);
    EXPECT_EQ(sut.here(there() - 90s, m_now), m_now - 90s - 5ms);
}

TEST_F(FarClockTest, OfTicksWhoseWayIsNotKnownTheFastestCounts) {
    sut.take(there() - 3s, std::nullopt, m_now);
    sut.take(there(), std::nullopt, m_now);
    sut.take(there() - 9s, std::nullopt, m_now);
    EXPECT_EQ(sut.here(there() - 90s, m_now), m_now - 90s);
}

TEST_F(FarClockTest, AfterAMinuteTheNextTickCountsAgain) {
    sut.take(there() - 2s, 0ms, m_now);
    m_now += 61s;
    sut.take(there(), 1s, m_now);
    EXPECT_EQ(sut.here(there() - 90s, m_now), m_now - 90s - 500ms);
}

TEST_F(FarClockTest, AfterAnotherStartTheNextTickCounts) {
    sut.take(there(), 0ms, m_now);
    sut.forget();
    EXPECT_EQ(sut.here(there() - 5s, m_now), m_now);
}

TEST_F(FarClockTest, AnyTimeOfAStrangerHasAnAge) {
    for (const linkpayload::Time told : {linkpayload::Time::min(), linkpayload::Time::max()}) {
        sut.forget();
        sut.take(told, std::nullopt, m_now);
        EXPECT_GE(sut.here(linkpayload::Time::min(), m_now), m_now - 24h * 365);
        EXPECT_LE(sut.here(linkpayload::Time::max(), m_now), m_now);
    }
}
