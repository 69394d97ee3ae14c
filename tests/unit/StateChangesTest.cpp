#include "StateChanges.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

std::vector<std::string> take(StateChanges& sut, const char* pJson) {
    const nlohmann::json answer = nlohmann::json::parse(pJson);
    return sut.take(JsonView(answer));
}

}  // namespace

TEST(StateChanges, TellsEachValueOnceUntilItChanges) {
    StateChanges sut;
    EXPECT_THAT(
        take(sut, R"({"version":1,"complete":true,"values":[{"key":"A","value":1,"text":"1"}],"unset":[]})"),
        ElementsAre(MatchesRegex("[0-9:]+ A = 1")));
    EXPECT_THAT(take(sut, R"({"version":2,"values":[{"key":"A","value":1,"text":"1"}]})"), IsEmpty());
    EXPECT_THAT(take(sut, R"({"version":3,"values":[{"key":"A","value":2,"text":"2"}]})"),
                ElementsAre(MatchesRegex("[0-9:]+ A = 2")));
}

TEST(StateChanges, TellsThatAValueBecomesStaleAndWhy) {
    StateChanges sut;
    take(sut, R"({"values":[{"key":"A","text":"1"}]})");
    EXPECT_THAT(take(sut, R"({"values":[{"key":"A","text":"1","stale":{"cause":"signal 11","forMs":5}}]})"),
                ElementsAre(MatchesRegex("[0-9:]+ A = 1  \\(stale: signal 11\\)")));
    EXPECT_THAT(take(sut, R"({"values":[{"key":"A","text":"1","stale":{"cause":"signal 11","forMs":99}}]})"),
                IsEmpty());
}

TEST(StateChanges, TellsWhatIsUnset) {
    StateChanges sut;
    take(sut, R"({"values":[{"key":"A","text":"1"}]})");
    EXPECT_THAT(take(sut, R"({"values":[],"unset":["A","B"]})"),
                ElementsAre(MatchesRegex("[0-9:]+ A unset")));
}

TEST(StateChanges, WhatDoesNotStandInACompleteAnswerIsUnset) {
    StateChanges sut;
    take(sut, R"({"complete":true,"values":[{"key":"A","text":"1"},{"key":"B","text":"1"}]})");
    EXPECT_THAT(take(sut, R"({"complete":false,"values":[{"key":"B","text":"1"}]})"), IsEmpty());
    EXPECT_THAT(take(sut, R"({"complete":true,"values":[{"key":"B","text":"1"}]})"),
                ElementsAre(MatchesRegex("[0-9:]+ A unset")));
}

TEST(StateChanges, LinesArePrintable) {
    StateChanges sut;
    EXPECT_THAT(take(sut, R"({"values":[{"key":"A","text":"\u001b[2J"}]})"),
                ElementsAre(testing::EndsWith(" A = \\x1b[2J")));
}
