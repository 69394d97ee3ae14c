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

TEST(Nearest, BeginningOfThreeCharactersIsNearTheShortestFirst) {
    EXPECT_THAT(base::nearest("hist", {"history", "hibernate"}), ElementsAre("history"));
    EXPECT_THAT(base::nearest("SET", {"setStateValue", "setAlarm", "send"}),
                ElementsAre("setAlarm", "setStateValue"));
    EXPECT_THAT(base::nearest("se", {"setAlarm"}), IsEmpty());
}

TEST(Nearest, SlipComesBeforeALongerWordThatItBegins) {
    EXPECT_THAT(base::nearest("stat", {"stationary", "start", "state"}),
                ElementsAre("start", "state", "stationary"));
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

TEST(Nearest, QuestionNamesOneOrMore) {
    EXPECT_EQ("", base::didYouMean({}));
    EXPECT_EQ("; did you mean A?", base::didYouMean({"A"}));
    EXPECT_EQ("; did you mean A or B?", base::didYouMean({"A", "B"}));
    EXPECT_EQ("; did you mean A, B or C?", base::didYouMean({"A", "B", "C"}));
}

TEST(Nearest, QuestionMayHaveItsNamesInQuotes) {
    EXPECT_EQ("", base::didYouMeanQuoted({}));
    EXPECT_EQ("; did you mean \"A\" or \"B\\n\"?", base::didYouMeanQuoted({"A", "B\n"}));
}

}  // namespace
