#include "CommandWords.h"

#include <gtest/gtest.h>

using Words = std::vector<std::string>;

TEST(CommandWords, BlanksSeparate) {
    EXPECT_EQ((Words{"reloadDriver", "SYS"}), CommandWords::split("  reloadDriver\t SYS \r"));
}

TEST(CommandWords, QuotesHoldBlanks) {
    EXPECT_EQ((Words{"a b", "c d"}), CommandWords::split("'a b' \"c d\""));
}

TEST(CommandWords, QuotesInsideAWordHideNothing) {
    EXPECT_EQ((Words{"reloadDriver", "SYS"}), CommandWords::split("relo\"adDri\"ver S'Y'S"));
    EXPECT_EQ((Words{"reloadDriver"}), CommandWords::split("relo\\adDriver"));
}

TEST(CommandWords, EmptyQuotesAreAWord) {
    EXPECT_EQ((Words{"a", ""}), CommandWords::split("a ''"));
}

TEST(CommandWords, BackslashInDoubleQuotesKeepsQuotesAndBackslashes) {
    EXPECT_EQ((Words{"a\"b\\c\\d"}), CommandWords::split("\"a\\\"b\\\\c\\d\""));
}

TEST(CommandWords, OpenQuoteGivesNothing) {
    EXPECT_EQ(Words{}, CommandWords::split("a 'b"));
    EXPECT_EQ(Words{}, CommandWords::split("a \"b"));
    EXPECT_EQ(Words{}, CommandWords::split("a \\"));
}

TEST(CommandWords, CommentGivesNothing) {
    EXPECT_EQ(Words{}, CommandWords::split("  # reloadDriver SYS"));
    EXPECT_EQ((Words{"a", "#b"}), CommandWords::split("a #b"));
}
