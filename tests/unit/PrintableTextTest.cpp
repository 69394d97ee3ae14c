#include "PrintableText.h"

#include <gtest/gtest.h>

namespace {

using namespace std::string_literals;

TEST(PrintableText, OrdinaryTextStays) {
    EXPECT_EQ(sal::printable("a b\tc = \"d\\e\""), "a b\tc = \"d\\e\"");
}

TEST(PrintableText, LineEndsAreWrittenOut) {
    EXPECT_EQ(sal::printable("a\nb\r"), "a\\nb\\r");
}

TEST(PrintableText, ControlCharactersAreWrittenInHex) {
    EXPECT_EQ(sal::printable("\033[2J\x7f\0"s), "\\x1b[2J\\x7f\\x00");
}

TEST(PrintableText, LettersBeyondAsciiStay) {
    EXPECT_EQ(sal::printable("Grö\xc2\xa0\xc3\x9f"), "Grö\xc2\xa0\xc3\x9f");
}

TEST(PrintableText, ControlCharactersBeyondAsciiAreWrittenInHex) {
    EXPECT_EQ(sal::printable("\xc2\x9b"
                             "2J"),
              "\\xc2\\x9b"
              "2J");
}

TEST(PrintableText, TornLetterAtTheEndStays) {
    EXPECT_EQ(sal::printable("\xc2"), "\xc2");
}

}  // namespace
