#include "check/JsonText.h"

#include <gtest/gtest.h>

TEST(JsonText, PlainTextIsQuoted) {
    EXPECT_EQ("\"A 1\"", JsonText::of("A 1"));
    EXPECT_EQ("\"\"", JsonText::of(""));
}

TEST(JsonText, QuotesBackslashesAndControlCharactersAreEscaped) {
    EXPECT_EQ("\"\\\"\\\\\\u000a\\u0000\\u001f\"", JsonText::of(std::string("\"\\\n\0\x1f", 5)));
}

TEST(JsonText, CharactersOfTwoToFourBytesStay) {
    EXPECT_EQ("\"\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80\"",
              JsonText::of("\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80"));
}

TEST(JsonText, BytesThatAreNoCharactersAreReplacedOneByOne) {
    const std::string replaced = "\xEF\xBF\xBD";
    EXPECT_EQ("\"" + replaced + "A\"", JsonText::of("\xE4"
                                                    "A"));
    EXPECT_EQ("\"" + replaced + replaced + "\"", JsonText::of("\xC0\x80"));
    EXPECT_EQ("\"" + replaced + replaced + replaced + "\"", JsonText::of("\xED\xA0\x80"));
    EXPECT_EQ("\"" + replaced + replaced + "\"", JsonText::of("\xE2\x82"));
}
