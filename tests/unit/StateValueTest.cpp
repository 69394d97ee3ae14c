#include "StateValue.h"

#include <gtest/gtest.h>

TEST(StateValue, TellsItsType) {
    EXPECT_STREQ("string", StateValue(std::string("a")).typeName());
    EXPECT_STREQ("float", StateValue(1.5F).typeName());
    EXPECT_STREQ("int", StateValue(3).typeName());
    EXPECT_STREQ("bool", StateValue(true).typeName());
}

TEST(StateValue, WritesAFloatWithSixDigits) {
    EXPECT_EQ("0.1", StateValue(0.1F).text());
    EXPECT_EQ("1e+06", StateValue(1000000.0F).text());
}

TEST(StateValue, WritesABoolAsAWord) {
    EXPECT_EQ("true", StateValue(true).text());
    EXPECT_EQ("false", StateValue(false).text());
}

TEST(StateValue, DiffersFromTheSameNumberOfAnotherType) {
    EXPECT_FALSE(StateValue(1) == StateValue(1.0F));
    EXPECT_FALSE(StateValue(1) == StateValue(true));
}
