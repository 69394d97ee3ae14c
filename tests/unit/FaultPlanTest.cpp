#include "FaultPlan.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

TEST(FaultPlan, StageWithoutAnEntrySucceeds) {
    EXPECT_TRUE(FaultPlan().strike(FaultPlan::EStage::Start));
}

TEST(FaultPlan, EachStageHasItsOwnFault) {
    FaultPlan sut;
    EXPECT_THAT(sut.read("load throw; configure fail\nstart fail ;; deinitialize fail\n\n delete fail"),
                IsEmpty());
    EXPECT_THROW(sut.strike(FaultPlan::EStage::Load), std::runtime_error);
    EXPECT_FALSE(sut.strike(FaultPlan::EStage::Configure));
    EXPECT_FALSE(sut.strike(FaultPlan::EStage::Start));
    EXPECT_FALSE(sut.strike(FaultPlan::EStage::Deinitialize));
    EXPECT_FALSE(sut.strike(FaultPlan::EStage::Delete));
}

TEST(FaultPlan, EntryForOneStageLeavesTheOthersAlone) {
    FaultPlan sut;
    sut.read("start fail");
    EXPECT_TRUE(sut.strike(FaultPlan::EStage::Deinitialize));
}

TEST(FaultPlan, LaterEntryReplacesTheEarlier) {
    FaultPlan sut;
    sut.read("start throw");
    sut.read("start fail");
    EXPECT_FALSE(sut.strike(FaultPlan::EStage::Start));
}

TEST(FaultPlan, WrongEntriesAreNamedAndTheOthersHold) {
    FaultPlan sut;
    EXPECT_THAT(sut.read("never fail; start explode; deinitialize; configure fail"),
                ElementsAre("\"never\" is no stage; there are load, configure, start, deinitialize, delete",
                            HasSubstr("\"explode\" is no fault"), HasSubstr("\"\" is no fault")));
    EXPECT_FALSE(sut.strike(FaultPlan::EStage::Configure));
}

TEST(FaultPlan, ClearedPlanFailsNowhere) {
    FaultPlan sut;
    sut.read("start fail");
    sut.clear();
    EXPECT_TRUE(sut.strike(FaultPlan::EStage::Start));
}

}  // namespace
