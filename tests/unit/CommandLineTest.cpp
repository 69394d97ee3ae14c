#include "CommandLine.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(CommandLine, BlanksSeparateWords) {
    EXPECT_THAT(sal::CommandLine::split(" a  b\tc\r\n").words, ElementsAre("a", "b", "c"));
}

TEST(CommandLine, EmptyLineHasNoWords) {
    EXPECT_THAT(sal::CommandLine::split("").words, IsEmpty());
}

TEST(CommandLine, RightLineHasNoError) {
    EXPECT_EQ(sal::CommandLine::split("a 'b' \"c\" \\d").error, "");
}

TEST(CommandLine, OpenQuoteIsAnError) {
    EXPECT_EQ(sal::CommandLine::split("a 'b \"c\"").error, "the ' in column 3 is not closed");
}

TEST(CommandLine, OtherQuoteInsideQuotesIsText) {
    EXPECT_THAT(sal::CommandLine::split(R"("it's" 'say "x"')").words, ElementsAre("it's", "say \"x\""));
}

TEST(CommandLine, EscapedQuoteOpensNothing) {
    const auto line = sal::CommandLine::split(R"(it\'s)");
    EXPECT_THAT(line.words, ElementsAre("it's"));
    EXPECT_EQ(line.error, "");
}

TEST(CommandLine, BackslashAtTheEndOfOpenQuotesIsAnOpenQuote) {
    EXPECT_EQ(sal::CommandLine::split("\"a\\").error, "the \" in column 1 is not closed");
}

}  // namespace
