#include "ConsoleWaits.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(ConsoleWaits, LongWaitOfWhichNobodyWasToldIsFound) {
    ConsoleWaits sut(10s);
    sut.answered(10s, false);
    sut.answered(11s, true);
    EXPECT_EQ(sut.untold(), 0u);
    sut.answered(11s, false);
    EXPECT_EQ(sut.untold(), 1u);
    EXPECT_EQ(sut.longest(), 11s);
    EXPECT_THAT(sut.findings(), ElementsAre("the console answered after 11000 ms, and nobody was told why"));
}

TEST(ConsoleWaits, QuestionWithoutAnAnswerIsFoundWhetherToldOrNot) {
    ConsoleWaits sut(10s);
    EXPECT_THAT(sut.findings(), IsEmpty());
    sut.notAnswered(40s);
    EXPECT_EQ(sut.unanswered(), 1u);
    EXPECT_EQ(sut.longest(), 40s);
    EXPECT_THAT(sut.findings(), ElementsAre("the console had no answer for 40000 ms"));
}
