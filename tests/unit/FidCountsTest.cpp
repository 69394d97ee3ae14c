#include "FidCounts.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

class FidCountsTest : public testing::Test {
protected:
    void add(const std::string& driverID, EFidStage stage, EFidReason reason = EFidReason::None) {
        FidOutcome outcome;
        outcome.stage = stage;
        outcome.reason = reason;
        m_sut.add(driverID, outcome);
    }
    std::vector<std::string> counts() const {
        std::vector<std::string> lines;
        for (const FidCounts::Count& count : m_sut.counts())
            lines.push_back(count.driverID + " " + count.outcome + " " + std::to_string(count.fids));
        return lines;
    }

    FidCounts m_sut;
};

}  // namespace

TEST_F(FidCountsTest, EachDriversOutcomesAreCountedByTheirWords) {
    add("B", EFidStage::Written);
    add("A", EFidStage::Delivered);
    add("A", EFidStage::Delivered, EFidReason::Refused);
    add("A", EFidStage::Delivered);
    add("A", EFidStage::Nobody, EFidReason::NotRunning);
    EXPECT_THAT(counts(),
                testing::ElementsAre("A delivered 2", "A not-running 1", "A refused 1", "B written 1"));
}

TEST_F(FidCountsTest, WhatNamesNoDriverIsCountedTogether) {
    add("NOBODY", EFidStage::Nobody, EFidReason::NoSuchDriver);
    add("ELSE", EFidStage::Nobody, EFidReason::NoSuchDriver);
    add("", EFidStage::Nobody, EFidReason::QueueFull);
    EXPECT_THAT(counts(), testing::ElementsAre(" no-such-driver 2", " queue-full 1"));
}
