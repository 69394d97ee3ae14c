#include "Table.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

using base::Table;

TEST(Table, AlignsColumns) {
    Table sut({"ID", "value"});
    sut.addRow({"LONGER", "1"});
    sut.addRow({"A", "22"});
    std::ostringstream text;
    sut.print(text);
    EXPECT_EQ("ID      value\nLONGER  1\nA       22\n", text.str());
}

TEST(Table, LeavesNoBlanksAtLineEnds) {
    Table sut({"ID", "value"});
    sut.addRow({"A", ""});
    std::ostringstream text;
    sut.print(text);
    EXPECT_EQ("ID  value\nA\n", text.str());
}

TEST(Table, CountsCharactersNotBytes) {
    Table sut({"ID", "v"});
    sut.addRow({"\xc3\xa4\xc3\xb6", "1"});
    std::ostringstream text;
    sut.print(text);
    EXPECT_EQ("ID  v\n\xc3\xa4\xc3\xb6  1\n", text.str());
}

TEST(Table, CellsAreMadePrintable) {
    Table sut({"ID", "value"});
    sut.addRow({"a\nb\tc\x1b[2J\x7f",
                "\xc2\x9b"
                "2J\x9b|\xe2\x80\xae"});
    std::ostringstream text;
    sut.print(text);
    EXPECT_EQ(
        "ID                  value\n"
        "a\\nb\\tc\\x1b[2J\\x7f  \\u009b2J\\x9b|\\u202e\n",
        text.str());
}

TEST(Table, IsEmptyWithoutRows) {
    Table sut({"ID"});
    EXPECT_TRUE(sut.empty());
    sut.addRow({"A"});
    EXPECT_FALSE(sut.empty());
}

namespace {

std::string printed(const Table& table, const Table::Look& look) {
    std::ostringstream text;
    table.print(text, look);
    return text.str();
}

}  // namespace

TEST(Table, ShortensTheWidestColumns) {
    Table sut({"ID", "cause", "since"});
    sut.addRow({"A", "signal 11 in a long place", "12:00"});
    EXPECT_EQ("ID  cause         since\nA   signal 11...  12:00\n", printed(sut, {.width = 23}));
}

TEST(Table, ShortensNothingThatFits) {
    Table sut({"ID", "value"});
    sut.addRow({"LONGER-THAN-OTHERS", "1"});
    EXPECT_EQ(25u, sut.width());
    EXPECT_EQ("ID                  value\nLONGER-THAN-OTHERS  1\n", printed(sut, {.width = 25}));
}

TEST(Table, ShortensTheWidestOfTheColumnsThatMayGiveWay) {
    Table sut({"ID", "value", "cause"});
    sut.addRow({"SYS", "0123456789abcdef", "a cause of twenty ch"});
    sut.shorten({1, 2});
    EXPECT_EQ(43u, sut.width());
    EXPECT_EQ("ID   value             cause\nSYS  0123456789abcdef  a cause of twenty ch\n",
              printed(sut, {.width = 43}));
    EXPECT_EQ("ID   value             cause\nSYS  0123456789abcdef  a cause of t...\n",
              printed(sut, {.width = 38}));
    EXPECT_EQ("ID   value       cause\nSYS  0123456...  a cause...\n", printed(sut, {.width = 27}));
}

TEST(Table, OtherColumnsStayWhole) {
    Table sut({"ID", "value"});
    sut.addRow({"AN_ID_OF_SOME_LENGTH", "0123456789abcdef"});
    sut.shorten({1});
    EXPECT_EQ("ID                    value\nAN_ID_OF_SOME_LENGTH  01234...\n", printed(sut, {.width = 10}));
}

TEST(Table, ColumnKeepsItsHeadingAndEightCharactersWhereNothingFits) {
    Table sut({"ID", "last cause"});
    sut.addRow({"0123456789", "0123456789abcdef"});
    EXPECT_EQ("ID        last cause\n01234...  0123456...\n", printed(sut, {.width = 5}));
}

TEST(Table, ShortensBetweenCharactersNotBytes) {
    Table sut({"v"});
    sut.addRow({"\xc3\xa4\xc3\xb6\xc3\xbc\xc3\xa4\xc3\xb6\xc3\xbc\xc3\xa4\xc3\xb6\xc3\xbc"});
    EXPECT_EQ("v\n\xc3\xa4\xc3\xb6\xc3\xbc\xc3\xa4\xc3\xb6...\n", printed(sut, {.width = 8}));
}

TEST(Table, ColoursAreShownWhereTheyAreAskedForAndTakeNoRoom) {
    Table sut({"ID", "status", "n"});
    sut.addRow({"A", {"ended", Table::EColour::Bad}, "1"});
    sut.addRow({"B", "running", "2"});
    EXPECT_EQ("ID  status   n\nA   ended    1\nB   running  2\n", printed(sut, {}));
    EXPECT_EQ("ID  status   n\nA   \x1b[31mended\x1b[0m    1\nB   running  2\n",
              printed(sut, {.isColoured = true}));
}

TEST(Table, EachColourHasItsSequence) {
    EXPECT_EQ("x", Table::coloured("x", Table::EColour::None));
    EXPECT_EQ("\x1b[32mx\x1b[0m", Table::coloured("x", Table::EColour::Good));
    EXPECT_EQ("\x1b[33mx\x1b[0m", Table::coloured("x", Table::EColour::Warning));
    EXPECT_EQ("\x1b[31mx\x1b[0m", Table::coloured("x", Table::EColour::Bad));
    EXPECT_EQ("\x1b[2mx\x1b[0m", Table::coloured("x", Table::EColour::Faint));
    EXPECT_EQ("", Table::coloured("", Table::EColour::Bad));
}
