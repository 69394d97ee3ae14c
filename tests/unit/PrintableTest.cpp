#include "Printable.h"

#include <gtest/gtest.h>

using namespace std::string_literals;

TEST(Printable, OrdinaryTextStays) {
    EXPECT_EQ(base::printable("a b = \"c\\d\""), "a b = \"c\\d\"");
}

TEST(Printable, LettersBeyondAsciiStay) {
    EXPECT_EQ(base::printable("Gr\xc3\xb6\xc2\xa0\xe2\x82\xac\xf0\x9f\x98\x80"),
              "Gr\xc3\xb6\xc2\xa0\xe2\x82\xac\xf0\x9f\x98\x80");
}

TEST(Printable, LineEndsAndTabsAreWrittenOut) {
    EXPECT_EQ(base::printable("a\nb\rc\td"), "a\\nb\\rc\\td");
}

TEST(Printable, ControlCharactersAreWrittenInHex) {
    EXPECT_EQ(base::printable("\x1b[2J\x07\x7f\0"s), "\\x1b[2J\\x07\\x7f\\x00");
}

TEST(Printable, EachControlCharacterOfAsciiIsWrittenOut) {
    for (int c = 0; c < 256; ++c) {
        const std::string text(1, static_cast<char>(c));
        EXPECT_EQ(base::isPrintable(text), c >= 0x20 && c < 0x7f) << c;
    }
}

TEST(Printable, ControlCharactersBeyondAsciiAreWrittenAsNumbers) {
    EXPECT_EQ(base::printable("\xc2\x80\xc2\x9b"
                              "2J\xc2\x9f"),
              "\\u0080\\u009b2J\\u009f");
    EXPECT_EQ(base::printable("\xc2\xa0"), "\xc2\xa0");
}

TEST(Printable, BytesOfAControlCharacterWithoutItsFirstAreWrittenInHex) {
    EXPECT_EQ(base::printable("\x9b"
                              "2J\x80\x9f"),
              "\\x9b2J\\x80\\x9f");
}

TEST(Printable, BytesThatAreNoCharacterAreWrittenInHex) {
    EXPECT_EQ(base::printable("\xe4"
                              "A"),
              "\\xe4"
              "A");
    // Cut off, longer than it need be, a surrogate, beyond the last character, no first byte.
    EXPECT_EQ(base::printable("\xc2"), "\\xc2");
    EXPECT_EQ(base::printable("\xe2\x82"), "\\xe2\\x82");
    EXPECT_EQ(base::printable("\xf0\x9f\x98"), "\\xf0\\x9f\\x98");
    EXPECT_EQ(base::printable("\xc0\x9b"), "\\xc0\\x9b");
    EXPECT_EQ(base::printable("\xe0\x82\x9b"), "\\xe0\\x82\\x9b");
    EXPECT_EQ(base::printable("\xf0\x80\x82\x9b"), "\\xf0\\x80\\x82\\x9b");
    EXPECT_EQ(base::printable("\xed\xa0\x80"), "\\xed\\xa0\\x80");
    EXPECT_EQ(base::printable("\xf4\x90\x80\x80"), "\\xf4\\x90\\x80\\x80");
    EXPECT_EQ(base::printable("\xf8\xff"), "\\xf8\\xff");
}

TEST(Printable, LastAndFirstCharactersOfEachLengthStay) {
    const std::string ends =
        "\xc2\xa0\xdf\xbf\xe0\xa0\x80\xed\x9f\xbf\xee\x80\x80\xef\xbf\xbf\xf0\x90\x80\x80\xf4\x8f\xbf\xbf";
    EXPECT_EQ(base::printable(ends), ends);
}

TEST(Printable, LineSeparatorsAreWrittenAsNumbers) {
    EXPECT_EQ(base::printable("a\xe2\x80\xa8"
                              "b\xe2\x80\xa9"
                              "c"),
              "a\\u2028b\\u2029c");
}

TEST(Printable, MarksOfTheDirectionOfWritingAreWrittenAsNumbers) {
    EXPECT_EQ(base::printable("\xe2\x80\xaa\xe2\x80\xae|\xe2\x81\xa6\xe2\x81\xa9|\xe2\x80\x8e\xe2\x80\x8f|"
                              "\xd8\x9c"),
              "\\u202a\\u202e|\\u2066\\u2069|\\u200e\\u200f|\\u061c");
    // Their neighbours are letters, spaces and dots.
    const std::string neighbours = "\xe2\x80\xa7\xe2\x80\xaf\xe2\x81\xa5\xe2\x81\xaa\xe2\x80\x8d\xe2\x80\x90";
    EXPECT_EQ(base::printable(neighbours), neighbours);
}

TEST(Printable, TextIsPrintableWhenNothingOfItIsWrittenOut) {
    EXPECT_TRUE(base::isPrintable(""));
    EXPECT_TRUE(base::isPrintable("A\xc3\xa4 1"));
    EXPECT_FALSE(base::isPrintable("A\t"));
    EXPECT_FALSE(base::isPrintable("A\xc2\x9b"));
    EXPECT_FALSE(base::isPrintable("A\xe4"));
}

TEST(Printable, QuotedTextStandsInQuotes) {
    EXPECT_EQ(base::quoted("A \xc3\xa4"), "\"A \xc3\xa4\"");
    EXPECT_EQ(base::quoted(""), "\"\"");
}

TEST(Printable, QuotedTextIsPrintable) {
    EXPECT_EQ(base::quoted("\n\0\x7f\x1b\xc2\x9b\x9b"s), "\"\\n\\x00\\x7f\\x1b\\u009b\\x9b\"");
}

TEST(Printable, OnlyTheBeginningOfALongTextIsQuoted) {
    EXPECT_EQ(base::quoted(std::string(80, 'a')), '"' + std::string(80, 'a') + '"');
    EXPECT_EQ(base::quoted(std::string(81, 'a')), '"' + std::string(80, 'a') + "\"...");
}

TEST(Printable, LongTextIsCutBetweenCharacters) {
    EXPECT_EQ(base::quoted(std::string(79, 'a') + "\xc3\xa4"), '"' + std::string(79, 'a') + "\"...");
    EXPECT_EQ(base::quoted(std::string(78, 'a') + "\xc3\xa4"), '"' + std::string(78, 'a') + "\xc3\xa4\"");
}

TEST(Printable, JsonTextIsQuoted) {
    EXPECT_EQ(base::jsonText("A 1"), "\"A 1\"");
    EXPECT_EQ(base::jsonText(""), "\"\"");
}

TEST(Printable, JsonTextHasItsSpecialCharactersEscaped) {
    EXPECT_EQ(base::jsonText("\"\\\n\0\x1f"s), "\"\\\"\\\\\\u000a\\u0000\\u001f\"");
}

TEST(Printable, JsonTextHoldsNothingThatSteersATerminal) {
    EXPECT_EQ(base::jsonText("\x1b\x7f\xc2\x9b\xe2\x80\xa8\xe2\x80\xae"),
              "\"\\u001b\\u007f\\u009b\\u2028\\u202e\"");
}

TEST(Printable, JsonTextKeepsCharactersOfTwoToFourBytes) {
    EXPECT_EQ(base::jsonText("\xc3\xa4\xe2\x82\xac\xf0\x9f\x98\x80"),
              "\"\xc3\xa4\xe2\x82\xac\xf0\x9f\x98\x80\"");
}

TEST(Printable, JsonTextReplacesBytesThatAreNoCharactersOneByOne) {
    const std::string replaced = "\xef\xbf\xbd";
    EXPECT_EQ(base::jsonText("\xe4"
                             "A"),
              '"' + replaced + "A\"");
    EXPECT_EQ(base::jsonText("\x9b"), '"' + replaced + '"');
    EXPECT_EQ(base::jsonText("\xc0\x80"), '"' + replaced + replaced + '"');
    EXPECT_EQ(base::jsonText("\xed\xa0\x80"), '"' + replaced + replaced + replaced + '"');
    EXPECT_EQ(base::jsonText("\xe2\x82"), '"' + replaced + replaced + '"');
}
