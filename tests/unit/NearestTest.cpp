#include "Nearest.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(Nearest, SwappedNeighboursAreOneSlip) {
    EXPECT_THAT(base::nearest("AXSI1", {"LAMP", "AXIS1", "SYS"}), ElementsAre("AXIS1"));
}

TEST(Nearest, MissingExtraAndWrongCharactersAreOneSlipEach) {
    EXPECT_THAT(base::nearest("drivrs", {"drivers"}), ElementsAre("drivers"));
    EXPECT_THAT(base::nearest("driversx", {"drivers"}), ElementsAre("drivers"));
    EXPECT_THAT(base::nearest("drivorz", {"drivers"}), ElementsAre("drivers"));
}

TEST(Nearest, CapitalAndSmallLettersCountAlike) {
    EXPECT_THAT(base::nearest("panel", {"PANEL"}), ElementsAre("PANEL"));
}

TEST(Nearest, TheLikestComesFirstAndEqualOnesKeepTheirOrder) {
    EXPECT_THAT(base::nearest("AXIS12", {"AXIS34", "AXIS2", "AXIS1", "AXIS13"}),
                ElementsAre("AXIS2", "AXIS1", "AXIS13"));
}

TEST(Nearest, AtMostSoManyComeBack) {
    EXPECT_THAT(base::nearest("AXIS9", {"AXIS1", "AXIS2", "AXIS3"}, 2), ElementsAre("AXIS1", "AXIS2"));
    EXPECT_THAT(base::nearest("AXIS9", {"AXIS1", "AXIS2"}, 0), IsEmpty());
}

TEST(Nearest, AnotherWordIsNotOffered) {
    EXPECT_THAT(base::nearest("LAMP", {"SYS", "AXIS1", "CLAMPS", ""}), IsEmpty());
    EXPECT_THAT(base::nearest("", {"SYS", ""}), ElementsAre(""));
    EXPECT_THAT(base::nearest("X", {"ABC"}), IsEmpty());
}

TEST(Nearest, MoreThanSixtyFourBytesAreComparedWithNothing) {
    const std::string longest(64, 'a');
    EXPECT_THAT(base::nearest(longest, {longest.substr(1)}), ElementsAre(longest.substr(1)));
    EXPECT_THAT(base::nearest(longest + 'a', {longest}), IsEmpty());
    EXPECT_THAT(base::nearest(longest, {longest + 'a'}), IsEmpty());
}

}  // namespace
