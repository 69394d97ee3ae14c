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

TEST(Table, CutsTheWidestCellsToTheWidthOfTheTerminal) {
    Table sut({"ID", "cause", "since"});
    sut.addRow({"A", "signal 11 in a long place", "12:00"});
    std::ostringstream text;
    sut.print(text, {.width = 21});
    EXPECT_EQ(
        "ID  cause       since\n"
        "A   signal 11\xe2\x80\xa6  12:00\n",
        text.str());
}

TEST(Table, CutsBetweenCharacters) {
    Table sut({"value"});
    sut.addRow({"\xc3\xa4\xc3\xa4\xc3\xa4\xc3\xa4\xc3\xa4\xc3\xa4\xc3\xa4\xc3\xa4\xc3\xa4"});
    std::ostringstream text;
    sut.print(text, {.width = 8});
    EXPECT_EQ("value\n\xc3\xa4\xc3\xa4\xc3\xa4\xc3\xa4\xc3\xa4\xc3\xa4\xc3\xa4\xe2\x80\xa6\n", text.str());
}

TEST(Table, CutsNothingThatFits) {
    Table sut({"ID", "value"});
    sut.addRow({"LONGER-THAN-OTHERS", "1"});
    std::ostringstream text;
    sut.print(text, {.width = 25});
    EXPECT_EQ("ID                  value\nLONGER-THAN-OTHERS  1\n", text.str());
}

TEST(Table, ColumnKeepsEightCharactersWhereNothingFits) {
    Table sut({"ID", "value"});
    sut.addRow({"0123456789", "0123456789"});
    std::ostringstream text;
    sut.print(text, {.width = 5});
    EXPECT_EQ("ID        value\n0123456\xe2\x80\xa6  0123456\xe2\x80\xa6\n", text.str());
}

TEST(Table, RowHasItsColourOnlyWhereColourIsWanted) {
    Table sut({"ID"});
    sut.addRow({"A"}, Table::EColour::Red);
    sut.addRow({"B"});
    std::ostringstream plain;
    sut.print(plain);
    EXPECT_EQ("ID\nA\nB\n", plain.str());
    std::ostringstream coloured;
    sut.print(coloured, {.isColoured = true});
    EXPECT_EQ("ID\n\x1b[31mA\x1b[0m\nB\n", coloured.str());
}
