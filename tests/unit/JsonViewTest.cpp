#include "JsonView.h"

#include <gtest/gtest.h>

using Json = nlohmann::json;

namespace {
const Json s_json = Json::parse(
    R"({"text":"a","whole":5,"real":1.5,"yes":true,"none":null,"list":[1,"b"],"in":{"x":"y"},"huge":1e300})");
}

TEST(JsonView, TextIsThatOfTextsNumbersAndTruthValues) {
    const JsonView sut(s_json);
    EXPECT_EQ("a", sut.text("text"));
    EXPECT_EQ("5", sut.text("whole"));
    EXPECT_EQ("1.5", sut.text("real"));
    EXPECT_EQ("true", sut.text("yes"));
    EXPECT_EQ("", sut.text("none"));
    EXPECT_EQ("", sut.text("list"));
    EXPECT_EQ("", sut.text("missing"));
}

TEST(JsonView, NumberIsZeroForWhatIsNone) {
    const JsonView sut(s_json);
    EXPECT_EQ(5, sut.number("whole"));
    EXPECT_EQ(2, sut.number("real"));
    EXPECT_EQ(0, sut.number("text"));
    EXPECT_EQ(0, sut.number("missing"));
    EXPECT_EQ(0, sut.number("huge"));
}

TEST(JsonView, FlagIsTrueForTrueAlone) {
    const JsonView sut(s_json);
    EXPECT_TRUE(sut.flag("yes"));
    EXPECT_FALSE(sut.flag("whole"));
    EXPECT_FALSE(sut.flag("missing"));
}

TEST(JsonView, NullIsMissing) {
    const JsonView sut(s_json);
    EXPECT_FALSE(sut.has("none"));
    EXPECT_TRUE(sut.has("text"));
}

TEST(JsonView, ListsAndMembersAreViewsThemselves) {
    const JsonView sut(s_json);
    const auto list = sut.list("list");
    ASSERT_EQ(2u, list.size());
    EXPECT_EQ("1", list[0].text());
    EXPECT_EQ("b", list[1].text());
    EXPECT_TRUE(sut.list("text").empty());
    EXPECT_EQ("y", sut.member("in").text("x"));
    EXPECT_EQ("", sut.member("missing").text("x"));
}

TEST(JsonView, WhatIsNoObjectHasNoMembers) {
    const Json text = "a";
    EXPECT_FALSE(JsonView(text).has("x"));
    EXPECT_EQ("", JsonView(text).text("x"));
}
