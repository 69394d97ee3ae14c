#include "Words.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using base::shellWord;
using base::splitWords;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(Words, BlanksSeparateWords) {
    EXPECT_THAT(splitWords(" a  b\tc\r\n").words, ElementsAre("a", "b", "c"));
}

TEST(Words, EmptyLineHasNoWords) {
    EXPECT_THAT(splitWords("").words, IsEmpty());
}

TEST(Words, RightLineHasNoError) {
    EXPECT_EQ(splitWords("a 'b' \"c\" \\d").error, "");
}

TEST(Words, OpenQuoteIsAnError) {
    EXPECT_EQ(splitWords("a 'b \"c\"").error, "the ' in column 3 is not closed");
}

TEST(Words, OtherQuoteInsideQuotesIsText) {
    EXPECT_THAT(splitWords(R"("it's" 'say "x"')").words, ElementsAre("it's", "say \"x\""));
}

TEST(Words, EscapedQuoteOpensNothing) {
    const auto line = splitWords(R"(it\'s)");
    EXPECT_THAT(line.words, ElementsAre("it's"));
    EXPECT_EQ(line.error, "");
}

TEST(Words, BackslashAtTheEndOfOpenQuotesIsAnOpenQuote) {
    EXPECT_EQ(splitWords("\"a\\").error, "the \" in column 1 is not closed");
}

TEST(Words, EmptyQuotesAreAWord) {
    EXPECT_THAT(splitWords("a ''").words, ElementsAre("a", ""));
}

TEST(Words, QuotesInsideAWordHideNothing) {
    EXPECT_THAT(splitWords("relo\"adDri\"ver S'Y'S").words, ElementsAre("reloadDriver", "SYS"));
    EXPECT_THAT(splitWords("relo\\adDriver").words, ElementsAre("reloadDriver"));
}

TEST(Words, BackslashInDoubleQuotesKeepsQuotesAndBackslashes) {
    EXPECT_THAT(splitWords(R"("a\"b\\c\d")").words, ElementsAre("a\"b\\c\\d"));
}

TEST(Words, BackslashAtTheEndIsAnError) {
    EXPECT_EQ(splitWords("a \\").error, "nothing follows the backslash at the end of the line");
}

TEST(Words, LineThatIsWrongHasNoWords) {
    EXPECT_THAT(splitWords("a 'b").words, IsEmpty());
    EXPECT_THAT(splitWords("a \"b").words, IsEmpty());
    EXPECT_THAT(splitWords("a \\").words, IsEmpty());
}

TEST(Words, CommentHasNoWordsAndNoError) {
    const auto line = splitWords("  # reloadDriver 'SYS");
    EXPECT_THAT(line.words, IsEmpty());
    EXPECT_EQ(line.error, "");
}

TEST(Words, HashLaterInALineIsText) {
    EXPECT_THAT(splitWords("a #b").words, ElementsAre("a", "#b"));
    EXPECT_THAT(splitWords("'#a' b").words, ElementsAre("#a", "b"));
}

TEST(Words, AreQuotedForAShellWhereTheyNeedIt) {
    EXPECT_EQ(shellWord("/opt/mf/lib-1.2/lamp.so"), "/opt/mf/lib-1.2/lamp.so");
    EXPECT_EQ(shellWord(""), "''");
    EXPECT_EQ(shellWord("my lamp.so"), "'my lamp.so'");
    EXPECT_EQ(shellWord("a'b;c"), "'a'\\''b;c'");
    EXPECT_EQ(shellWord("$HOME"), "'$HOME'");
}

}  // namespace
