#include "DeliveryTimes.h"

#include <gtest/gtest.h>

namespace {

using namespace std::chrono_literals;
using Counts = std::array<std::uint64_t, DeliveryTimes::s_bounds.size() + 1>;

class DeliveryTimesTest : public testing::Test {
protected:
    /// A look at one queue that has had so many messages, of which so many are in it.
    void look(std::chrono::milliseconds time, std::uint64_t messages, unsigned depth) {
        sal::MessageQueue::Status status;
        status.name = "A_INQ";
        status.messages = messages;
        status.depth = depth;
        status.received = static_cast<std::uint32_t>((messages - depth) & 0xffffff);
        m_sut.look({status}, DeliveryTimes::Clock::time_point(1h + time));
    }
    DeliveryTimes::Histogram histogram() const { return m_sut.histograms().at(0); }

    DeliveryTimes m_sut;
};

}  // namespace

TEST_F(DeliveryTimesTest, MessageIsTimedFromTheLookThatFoundItToTheOneThatDidNot) {
    look(0ms, 0, 0);
    look(10ms, 3, 3);
    look(20ms, 9, 7);
    EXPECT_EQ(histogram().counts, Counts{});
    // The third one is out, others have come after it.
    look(70ms, 9, 6);
    EXPECT_EQ(histogram().counts, (Counts{0, 0, 0, 1}));
    EXPECT_DOUBLE_EQ(histogram().sum, 0.06);
    // Now it is the ninth.
    look(2070ms, 9, 0);
    EXPECT_EQ(histogram().counts, (Counts{0, 0, 0, 1, 0, 0, 0, 1}));
    EXPECT_EQ(histogram().queue, "A_INQ");
}

TEST_F(DeliveryTimesTest, WhatCameAndWentBetweenTwoLooksTookHalfOfTheTimeBetween) {
    look(0ms, 0, 0);
    look(10ms, 500, 0);
    look(20ms, 500, 0);
    EXPECT_EQ(histogram().counts, (Counts{1}));
    EXPECT_DOUBLE_EQ(histogram().sum, 0.005);
}

TEST_F(DeliveryTimesTest, WhatNobodyTakesHasNoTimeYet) {
    look(0ms, 0, 0);
    look(10ms, 1, 1);
    look(60'010ms, 1, 1);
    EXPECT_EQ(histogram().counts, Counts{});
    look(60'020ms, 1, 0);
    EXPECT_EQ(histogram().counts.back(), 1u);
}

TEST_F(DeliveryTimesTest, CountOfMessagesMayBeginAgain) {
    look(0ms, 0xfffffe, 0);
    look(10ms, 0x1000001, 3);
    look(20ms, 0x1000001, 1);
    EXPECT_EQ(histogram().counts, Counts{});
    look(30ms, 0x1000001, 0);
    EXPECT_EQ(histogram().counts, (Counts{0, 1}));
}

TEST_F(DeliveryTimesTest, WhatANewQueueOfTheNameHasIsNotTakenForTheFormerOnes) {
    look(0ms, 0, 0);
    look(10ms, 100, 50);
    look(20ms, 1, 1);
    EXPECT_EQ(histogram().counts, Counts{});
    look(30ms, 1, 0);
    EXPECT_EQ(histogram().counts, (Counts{1}));
    m_sut.look({}, DeliveryTimes::Clock::time_point(2h));
    EXPECT_TRUE(m_sut.histograms().empty());
}
