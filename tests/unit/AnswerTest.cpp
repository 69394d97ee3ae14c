#include "mfd/Answer.h"

#include <gtest/gtest.h>

namespace {

using mfd::Answer;

TEST(Answer, ThatItIsDoneHasNoReason) {
    EXPECT_TRUE(Answer::done().isDone());
    EXPECT_FALSE(Answer::done().hasFailed());
    EXPECT_EQ(Answer::done().reason(), "");
}

TEST(Answer, TellsWhatWasNotBegunFromWhatHasFailed) {
    const Answer ignored = Answer::ignored("the lamp is hot");
    EXPECT_FALSE(ignored.isDone());
    EXPECT_FALSE(ignored.hasFailed());
    EXPECT_EQ(ignored.reason(), "the lamp is hot");
    const Answer failed = Answer::failed("the lamp does not answer");
    EXPECT_FALSE(failed.isDone());
    EXPECT_TRUE(failed.hasFailed());
    EXPECT_EQ(failed.reason(), "the lamp does not answer");
}

}  // namespace
