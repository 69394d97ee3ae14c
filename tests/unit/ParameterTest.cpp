#include "mfd/Parameter.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace {

using mfd::Parameter;

template <class Type>
Type parsed(const Parameter& parameter, const std::string& text) {
    const auto value = parameter.parsed(text);
    if (!value)
        throw std::runtime_error("\"" + text + "\" is refused");
    return std::get<Type>(*value);
}

TEST(Parameter, BooleanIsTrueOrFalse) {
    const Parameter sut = Parameter::boolean("on");
    EXPECT_TRUE(parsed<bool>(sut, "true"));
    EXPECT_TRUE(parsed<bool>(sut, "1"));
    EXPECT_FALSE(parsed<bool>(sut, "false"));
    EXPECT_FALSE(parsed<bool>(sut, "0"));
    for (const char* text : {"", "TRUE", "yes", "2", "true "})
        EXPECT_FALSE(sut.parsed(text)) << text;
    EXPECT_EQ(sut.rightText(), "true or false");
}

TEST(Parameter, IntegerIsAWholeNumberOfItsRange) {
    const Parameter sut = Parameter::integer("percent", -5, 100);
    EXPECT_EQ(parsed<int>(sut, "-5"), -5);
    EXPECT_EQ(parsed<int>(sut, "100"), 100);
    for (const char* text : {"", "-6", "101", "5.0", "5x", " 5", "+5", "0x5", "99999999999999"})
        EXPECT_FALSE(sut.parsed(text)) << text;
    EXPECT_EQ(sut.rightText(), "a whole number from -5 to 100");
}

TEST(Parameter, IntegerWithoutARangeIsAnyInt) {
    const Parameter sut = Parameter::integer("n");
    EXPECT_EQ(parsed<int>(sut, "-2147483648"), -2147483647 - 1);
    EXPECT_EQ(parsed<int>(sut, "2147483647"), 2147483647);
    EXPECT_EQ(sut.rightText(), "a whole number from -2147483648 to 2147483647");
    EXPECT_EQ(Parameter::integer("n", 0, 1000000).rightText(), "a whole number from 0 to 1000000");
}

TEST(Parameter, NumberIsFiniteAndOfItsRange) {
    const Parameter sut = Parameter::number("seconds", 0, 60);
    EXPECT_DOUBLE_EQ(parsed<double>(sut, "0.5"), 0.5);
    EXPECT_DOUBLE_EQ(parsed<double>(sut, "6e1"), 60);
    for (const char* text : {"", "-0.1", "60.1", "nan", "inf", "1,5", "1 "})
        EXPECT_FALSE(sut.parsed(text)) << text;
    EXPECT_EQ(sut.rightText(), "a number from 0 to 60");
    EXPECT_FALSE(Parameter::number("n").parsed("inf"));
    EXPECT_EQ(Parameter::number("n").rightText(), "a number");
    EXPECT_EQ(Parameter::number("n", 0.5).rightText(), "a number from 0.5 up");
}

TEST(Parameter, TextIsAnyText) {
    EXPECT_EQ(parsed<std::string>(Parameter::text("name"), "x = y"), "x = y");
    EXPECT_EQ(Parameter::text("name").rightText(), "a text that is not empty");
}

TEST(Parameter, ChoiceIsOneOfItsWords) {
    const Parameter sut = Parameter::choice("curve", {"linear", "soft"});
    EXPECT_EQ(parsed<std::string>(sut, "soft"), "soft");
    EXPECT_FALSE(sut.parsed("Soft"));
    EXPECT_EQ(sut.rightText(), "one of linear, soft");
}

TEST(Parameter, HasWhatStandsForItWhereItIsLeftOut) {
    EXPECT_FALSE(Parameter::integer("n").fallback());
    EXPECT_EQ(std::get<int>(*Parameter::integer("n").orElse(3).fallback()), 3);
    EXPECT_DOUBLE_EQ(std::get<double>(*Parameter::number("n").orElse(3).fallback()), 3);
    EXPECT_DOUBLE_EQ(std::get<double>(*Parameter::number("n").orElse(0.5).fallback()), 0.5);
    EXPECT_TRUE(std::get<bool>(*Parameter::boolean("n").orElse(true).fallback()));
    EXPECT_EQ(std::get<std::string>(*Parameter::choice("n", {"a"}).orElse("a").fallback()), "a");
}

TEST(Parameter, RefusesAFallbackThatIsWrong) {
    EXPECT_THROW(static_cast<void>(Parameter::integer("n", 0, 9).orElse(10)), std::logic_error);
    EXPECT_THROW(static_cast<void>(Parameter::integer("n").orElse("3")), std::logic_error);
    EXPECT_THROW(static_cast<void>(Parameter::choice("n", {"a"}).orElse("b")), std::logic_error);
    try {
        static_cast<void>(Parameter::integer("n", 0, 9).orElse(10));
    } catch (const std::logic_error& error) {
        EXPECT_STREQ(error.what(), "what stands for the parameter \"n\" is not a whole number from 0 to 9");
    }
}

TEST(Parameter, NeedsAName) {
    EXPECT_THROW(static_cast<void>(Parameter::text("")), std::logic_error);
}

TEST(Parameter, SaysWhatIsRightAsItWasDescribed) {
    const auto sut = Parameter::number("load", 0).described("a number from 0 (no alarm) up");
    EXPECT_EQ(sut.rightText(), "a number from 0 (no alarm) up");
    EXPECT_TRUE(sut.parsed("0"));
    EXPECT_FALSE(sut.parsed("-1"));
}

TEST(Parameter, FurtherOnesHaveNoValueOfTheirOwn) {
    EXPECT_TRUE(Parameter::further().isFurther());
    EXPECT_FALSE(Parameter::text("name").isFurther());
    EXPECT_FALSE(Parameter::further().parsed("1"));
    EXPECT_THROW(static_cast<void>(Parameter::further().orElse("1")), std::logic_error);
}

}  // namespace
