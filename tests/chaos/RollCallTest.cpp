#include "RollCall.h"

#include <gtest/gtest.h>

using namespace std::chrono_literals;

namespace {

const RollCall::Clock::time_point s_begin{};

TEST(RollCall, OldestQuestionWithoutAnAnswerCounts) {
    RollCall sut;
    sut.asked("F1", 7, s_begin);
    sut.asked("F1", 8, s_begin + 2s);
    EXPECT_TRUE(sut.owes("F1"));
    EXPECT_EQ(sut.owedFor("F1", s_begin + 5s), 5s);
}

TEST(RollCall, AnswerToALaterQuestionAnswersTheEarlier) {
    RollCall sut;
    sut.asked("F1", 7, s_begin);
    sut.heard("F1", 9, 0);
    EXPECT_FALSE(sut.owes("F1"));
    EXPECT_EQ(sut.owedFor("F1", s_begin + 5s), 0s);
}

TEST(RollCall, AnswerToAnEarlierQuestionDoesNotCount) {
    RollCall sut;
    sut.asked("F1", 7, s_begin);
    sut.heard("F1", 6, 0);
    EXPECT_TRUE(sut.owes("F1"));
}

TEST(RollCall, DriverWhoseValuesBecameStaleOwesNothing) {
    RollCall sut;
    sut.heard("F1", 6, 1);
    sut.asked("F1", 7, s_begin);
    sut.heard("F1", 6, 2);
    EXPECT_FALSE(sut.owes("F1"));
    sut.asked("F1", 8, s_begin + 9s);
    sut.heard("F1", 6, 2);
    EXPECT_EQ(sut.owedFor("F1", s_begin + 10s), 1s);
}

TEST(RollCall, DriversOweEachForThemselves) {
    RollCall sut;
    sut.asked("F1", 7, s_begin);
    sut.heard("F2", 9, 0);
    EXPECT_TRUE(sut.owes("F1"));
    EXPECT_FALSE(sut.owes("F2"));
    sut.forget();
    EXPECT_FALSE(sut.owes("F1"));
    sut.asked("F1", 8, s_begin);
    sut.excuse("F1");
    EXPECT_FALSE(sut.owes("F1"));
}

}  // namespace
