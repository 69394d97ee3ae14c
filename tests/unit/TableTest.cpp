#include "Table.h"

#include <gtest/gtest.h>

#include <sstream>

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
