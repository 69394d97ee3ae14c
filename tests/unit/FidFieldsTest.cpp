#include "FidFields.h"

#include <gtest/gtest.h>

#include <string>

using stream::FidFields;
using namespace std::string_literals;
using Parameters = std::vector<std::pair<std::string, std::string>>;

TEST(FidFields, AreThoseOfAMessage) {
    FidFields sut("MOVE");
    sut.add("to", "12.5");
    sut.add("speed", "3");
    EXPECT_EQ(sut.bytes(), "\4MOVE\2\2to\00412.5\5speed\0013"s);
    EXPECT_FALSE(sut.isCut());
}

TEST(FidFields, ComeBackAsTheyWere) {
    FidFields fields("AXIS1.MOVE");
    fields.add("", "");
    fields.add("zero", "a\0b"s);
    const auto fid = FidFields::parse(fields.bytes());
    EXPECT_EQ(fid.function, "AXIS1.MOVE");
    EXPECT_EQ(fid.parameters, (Parameters{{"", ""}, {"zero", "a\0b"s}}));
}

TEST(FidFields, SecretsAreMasked) {
    FidFields fields("LOGIN");
    fields.add("user", "anna");
    fields.add("password", "sesame");
    const auto masked =
        FidFields::masked(fields.bytes(), [](std::string_view name) { return name == "password"; });
    EXPECT_EQ(FidFields::parse(masked.bytes()).parameters,
              (Parameters{{"user", "anna"}, {"password", "***"}}));
}

TEST(FidFields, LongTextIsCut) {
    FidFields sut("F");
    sut.add("n", std::string(256, 'x'));
    EXPECT_TRUE(sut.isCut());
    EXPECT_EQ(FidFields::parse(sut.bytes()).parameters, (Parameters{{"n", std::string(255, 'x')}}));
}

TEST(FidFields, ParameterThatDoesNotFitIsLeftOut) {
    FidFields sut("F");
    for (int i = 0; i < 10; ++i)
        sut.add(std::to_string(i), std::string(255, 'x'));
    EXPECT_TRUE(sut.isCut());
    EXPECT_EQ(FidFields::parse(sut.bytes()).parameters.size(), 7u);
}

TEST(FidFields, HaveAtMost255Parameters) {
    FidFields sut("F");
    for (int i = 0; i < 300; ++i)
        sut.add("", "");
    EXPECT_TRUE(sut.isCut());
    EXPECT_EQ(FidFields::parse(sut.bytes()).parameters.size(), 255u);
}

TEST(FidFields, WhatIsNotWholeIsLeftOut) {
    const std::string whole = "\4MOVE\2\2to\00412.5\5speed\0013"s;
    EXPECT_EQ(FidFields::parse(whole.substr(0, 9)).parameters, Parameters{});
    EXPECT_EQ(FidFields::parse(whole.substr(0, 13)).parameters, Parameters{});
    EXPECT_EQ(FidFields::parse(whole.substr(0, 14)).parameters, (Parameters{{"to", "12.5"}}));
    EXPECT_EQ(FidFields::parse(whole.substr(0, 3)).function, "MO");
    EXPECT_EQ(FidFields::parse("").function, "");
    for (std::size_t size = 0; size < whole.size(); ++size)
        FidFields::masked(std::string_view(whole).substr(0, size), [](std::string_view) { return true; });
}
