#include "check/QuotedText.h"

#include <gtest/gtest.h>

TEST(QuotedText, TextStandsInQuotes) {
    EXPECT_EQ("\"A \xC3\xA4\"", QuotedText::of("A \xC3\xA4"));
}

TEST(QuotedText, ControlCharactersAreWrittenInDigits) {
    EXPECT_EQ("\"\\x0A\\x00\\x7F\"", QuotedText::of(std::string("\n\0\x7F", 3)));
}

TEST(QuotedText, OnlyTheBeginningOfALongTextIsWritten) {
    EXPECT_EQ("\"" + std::string(80, 'a') + "\"", QuotedText::of(std::string(80, 'a')));
    EXPECT_EQ("\"" + std::string(80, 'a') + "\"...", QuotedText::of(std::string(81, 'a')));
}
