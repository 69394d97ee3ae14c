#include "TrafficMeter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>

using namespace std::chrono_literals;
using testing::IsEmpty;

namespace {

class TrafficMeterTest : public testing::Test {
protected:
    /// What the queues of driver A have carried by then.
    static TrafficMeter::Queues carried(std::uint64_t received, std::uint64_t sent) {
        TrafficMeter::Queues queues;
        queues["A_INQ"].messages = received;
        queues["A_OUTQ"].messages = sent;
        return queues;
    }

    const TrafficMeter::Clock::time_point m_begin = TrafficMeter::Clock::now();
    TrafficMeter m_sut;
};

TEST_F(TrafficMeterTest, FirstLookTellsNothing) {
    EXPECT_THAT(m_sut.measure({"A"}, carried(100, 100), m_begin), IsEmpty());
}

TEST_F(TrafficMeterTest, RateIsWhatWasCarriedBySecond) {
    m_sut.measure({"A"}, carried(100, 1000), m_begin);
    const auto rates = m_sut.measure({"A"}, carried(104, 1300), m_begin + 2s);
    ASSERT_EQ(rates.size(), 1U);
    EXPECT_EQ(rates[0].driverID, "A");
    EXPECT_DOUBLE_EQ(rates[0].receivedPerSecond, 2);
    EXPECT_DOUBLE_EQ(rates[0].sentPerSecond, 150);
}

TEST_F(TrafficMeterTest, CountersThatWentBackTellNothingUntilTheNextLook) {
    for (const auto& [received, sent] : {std::pair{5, 2000}, {2000, 5}}) {
        m_sut.measure({"A"}, carried(1000, 1000), m_begin);
        EXPECT_THAT(m_sut.measure({"A"}, carried(received, sent), m_begin + 1s), IsEmpty());
        const auto rates = m_sut.measure({"A"}, carried(received + 3, sent + 4), m_begin + 2s);
        ASSERT_EQ(rates.size(), 1U);
        EXPECT_DOUBLE_EQ(rates[0].receivedPerSecond, 3);
        EXPECT_DOUBLE_EQ(rates[0].sentPerSecond, 4);
    }
}

TEST_F(TrafficMeterTest, DriverThatWasAwayBeginsAnew) {
    m_sut.measure({"A"}, carried(10, 10), m_begin);
    EXPECT_THAT(m_sut.measure({}, carried(10, 10), m_begin + 1s), IsEmpty());
    EXPECT_THAT(m_sut.measure({"A"}, carried(20, 20), m_begin + 2s), IsEmpty());
}

TEST_F(TrafficMeterTest, DriverWithoutQueuesHasCarriedNothing) {
    m_sut.measure({"A"}, {}, m_begin);
    const auto rates = m_sut.measure({"A"}, carried(7, 0), m_begin + 1s);
    ASSERT_EQ(rates.size(), 1U);
    EXPECT_DOUBLE_EQ(rates[0].receivedPerSecond, 7);
    EXPECT_DOUBLE_EQ(rates[0].sentPerSecond, 0);
}

TEST_F(TrafficMeterTest, IsDueAfterASecondOrNearly) {
    m_sut.measure({}, {}, m_begin);
    EXPECT_FALSE(m_sut.isDue(m_begin + 899ms));
    EXPECT_TRUE(m_sut.isDue(m_begin + 900ms));
}

}  // namespace
