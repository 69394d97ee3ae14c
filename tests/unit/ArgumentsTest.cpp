#include "mfd/Arguments.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace {

using mfd::Arguments;
using mfd::Parameter;

using Pairs = std::vector<std::pair<std::string, std::string>>;

const std::vector<Parameter>& declared() {
    static const std::vector<Parameter> s_declared{
        Parameter::integer("percent", 0, 100), Parameter::number("seconds", 0, 60).orElse(0.5),
        Parameter::boolean("now").orElse(false),
        Parameter::choice("curve", {"linear", "soft"}).orElse("soft")};
    return s_declared;
}

std::string filled(Arguments& sut, const Pairs& pairs) {
    FIDParameterList list;
    for (const auto& [name, value] : pairs)
        list.add(name, value);
    return sut.fill(declared(), list);
}

TEST(Arguments, AreConvertedToTheirTypes) {
    Arguments sut;
    EXPECT_EQ(filled(sut, {{"curve", "linear"}, {"percent", "40"}, {"seconds", "2.5"}, {"now", "true"}}), "");
    EXPECT_EQ(sut.integer("percent"), 40);
    EXPECT_DOUBLE_EQ(sut.number("seconds"), 2.5);
    EXPECT_TRUE(sut.boolean("now"));
    EXPECT_EQ(sut.text("curve"), "linear");
}

TEST(Arguments, HaveWhatStandsForThoseLeftOut) {
    Arguments sut;
    EXPECT_EQ(filled(sut, {{"percent", "40"}, {"curve", ""}}), "");
    EXPECT_DOUBLE_EQ(sut.number("seconds"), 0.5);
    EXPECT_FALSE(sut.boolean("now"));
    EXPECT_EQ(sut.text("curve"), "soft");
}

TEST(Arguments, SayWhatIsWrong) {
    Arguments sut;
    EXPECT_EQ(filled(sut, {}), "it needs the parameter \"percent\"");
    EXPECT_EQ(filled(sut, {{"percent", ""}}), "percent=\"\" is not a whole number from 0 to 100");
    EXPECT_EQ(filled(sut, {{"percent", "140"}}), "percent=\"140\" is not a whole number from 0 to 100");
    EXPECT_EQ(filled(sut, {{"percent", "4\x1b[2J"}}),
              "percent=\"4\\x1b[2J\" is not a whole number from 0 to 100");
    EXPECT_EQ(filled(sut, {{"percent", "40"}, {"secnds", "1"}}),
              "it has no parameter \"secnds\"; it has percent, seconds, now, curve");
    EXPECT_EQ(filled(sut, {{"percent", "40"}, {"percent", "50"}}),
              "the parameter \"percent\" stands there twice");
}

TEST(Arguments, OfAFunctionWithoutParametersAreNone) {
    Arguments sut;
    FIDParameterList list;
    EXPECT_EQ(sut.fill({}, list), "");
    list.add("x", "1");
    EXPECT_EQ(sut.fill({}, list), "it has no parameter \"x\" and needs none");
}

TEST(Arguments, ThatMayHaveFurtherOnesKeepAllInTheirOrder) {
    const std::vector<Parameter> declaredOnes{Parameter::integer("to", 0, 9), Parameter::further()};
    FIDParameterList list;
    const Pairs pairs{{"a", ""}, {"to", "5"}, {"b", "1"}, {"to", "x"}, {"b", "2"}, {"", "3"}};
    for (const auto& [name, value] : pairs)
        list.add(name, value);
    Arguments sut;
    EXPECT_EQ(sut.fill(declaredOnes, list), "");
    EXPECT_EQ(sut.integer("to"), 5);
    EXPECT_EQ(Pairs(sut.all().begin(), sut.all().end()), pairs);
    EXPECT_THROW(static_cast<void>(sut.text("b")), std::logic_error);
}

TEST(Arguments, ThatMayHaveFurtherOnesAreCheckedAsDeclared) {
    const std::vector<Parameter> declaredOnes{Parameter::integer("to", 0, 9), Parameter::further()};
    FIDParameterList list;
    list.add("b", "1");
    Arguments sut;
    EXPECT_EQ(sut.fill(declaredOnes, list), "it needs the parameter \"to\"");
    list.add("to", "10");
    EXPECT_EQ(sut.fill(declaredOnes, list), "to=\"10\" is not a whole number from 0 to 9");
}

TEST(Arguments, KeepWhatCameOfEachFid) {
    Arguments sut;
    ASSERT_EQ(filled(sut, {{"percent", "40"}, {"curve", ""}}), "");
    EXPECT_EQ(Pairs(sut.all().begin(), sut.all().end()), (Pairs{{"percent", "40"}, {"curve", ""}}));
    ASSERT_EQ(filled(sut, {{"percent", "50"}}), "");
    EXPECT_EQ(Pairs(sut.all().begin(), sut.all().end()), (Pairs{{"percent", "50"}}));
}

TEST(Arguments, ThatAreNotDeclaredOrOfAnotherTypeAreAMistake) {
    Arguments sut;
    ASSERT_EQ(filled(sut, {{"percent", "40"}}), "");
    EXPECT_THROW(static_cast<void>(sut.integer("x")), std::logic_error);
    try {
        static_cast<void>(sut.number("percent"));
        FAIL() << "an integer was given as a number";
    } catch (const std::logic_error& error) {
        EXPECT_STREQ(error.what(), "it declares no parameter \"percent\" that is a number");
    }
}

}  // namespace
