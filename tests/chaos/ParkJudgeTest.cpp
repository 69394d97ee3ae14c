#include "ParkJudge.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::ElementsAre;
using testing::IsEmpty;

TEST(ParkJudge, MarksMayComeAndGoWhereItWasAskedFor) {
    ParkJudge sut;
    EXPECT_THAT(sut.judge({}, {}), IsEmpty());
    sut.parkTyped("A", 0);
    sut.parkTyped("B", 0);
    // The host of one that is not marked was killed before it said so.
    EXPECT_THAT(sut.judge({"A"}, {{"A", 1}}), IsEmpty());
    sut.unparkTyped("A");
    EXPECT_THAT(sut.judge({}, {{"A", 1}}), IsEmpty());
    sut.parkTyped("A", 1);
    sut.unparkTyped("A");
    EXPECT_THAT(sut.judge({}, {{"A", 2}}), IsEmpty());
}

TEST(ParkJudge, MarkThatIsLostIsToldOnce) {
    ParkJudge sut;
    sut.parkTyped("A", 0);
    EXPECT_THAT(sut.judge({"A"}, {}), IsEmpty());
    EXPECT_THAT(sut.judge({}, {}), ElementsAre("the mark of A was lost"));
    EXPECT_THAT(sut.judge({}, {}), IsEmpty());
}

TEST(ParkJudge, MarkThatNobodyAskedForIsTold) {
    ParkJudge sut;
    sut.parkTyped("A", 0);
    sut.unparkTyped("B");
    EXPECT_THAT(sut.judge({"A", "B"}, {}), ElementsAre("B was marked, and nobody asked for it"));
}

TEST(ParkJudge, MarkThatTheHostHadConfirmedMustBeThere) {
    ParkJudge sut;
    sut.parkTyped("A", 3);
    EXPECT_THAT(sut.judge({}, {{"A", 4}}),
                ElementsAre("the host had said that A is parked, and its mark was lost"));
    sut.parkTyped("A", 4);
    EXPECT_THAT(sut.judge({}, {{"A", 4}}), IsEmpty());
}
