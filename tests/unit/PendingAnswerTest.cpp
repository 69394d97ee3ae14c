#include "PendingAnswer.h"

#include <gtest/gtest.h>

#include <optional>
#include <vector>

namespace {

struct Given {
    std::vector<ApiAnswer> answers;
    PendingAnswer::Give give() {
        return [this](ApiAnswer answer) { answers.push_back(std::move(answer)); };
    }
};

TEST(PendingAnswer, GivesTheFirstOneOnly) {
    Given given;
    {
        PendingAnswer sut(given.give());
        ApiAnswer answer;
        answer.body = "first";
        sut.give(answer);
        answer.body = "second";
        sut.give(answer);
    }
    ASSERT_EQ(given.answers.size(), 1u);
    EXPECT_EQ(given.answers[0].body, "first");
}

TEST(PendingAnswer, DroppedWithoutOneSaysSo) {
    Given given;
    std::optional<PendingAnswer> sut(std::in_place, given.give());
    sut.reset();
    ASSERT_EQ(given.answers.size(), 1u);
    EXPECT_EQ(given.answers[0].status, 500u);
    EXPECT_EQ(
        given.answers[0].body,
        R"({"error":{"code":"internal","text":"the host has dropped this request without an answer"}})");
}

}  // namespace
