#include "FunctionTable.h"

#include <gtest/gtest.h>

namespace {

struct Driver {
    bool move(const FIDParameterList& parameters) const { return parameters.contains("to"); }
    bool stop(const FIDParameterList&) const { return true; }
};

using Table = mfd::FunctionTable<Driver>;

const Table::Function s_functions[] = {
    {"MOVE", &Driver::move, {"to", "speed"}},
    {"STOP", &Driver::stop},
};

}  // namespace

TEST(FunctionTable, FindsAFunctionByItsWholeName) {
    const Table sut(s_functions);
    EXPECT_EQ(sut.find("MOVE"), &s_functions[0]);
    EXPECT_EQ(sut.find("STOP"), &s_functions[1]);
    EXPECT_EQ(sut.find("STO"), nullptr);
    EXPECT_EQ(sut.find("STOPS"), nullptr);
    EXPECT_EQ(sut.find("stop"), nullptr);
    EXPECT_EQ(sut.find(""), nullptr);
}

TEST(FunctionTable, ListsTheNamesInOrder) {
    EXPECT_EQ(Table(s_functions).names(), "MOVE, STOP");
}

TEST(FunctionTable, NeedsNoParametersUnlessItSaysSo) {
    EXPECT_EQ(s_functions[0].needed.size(), 2u);
    EXPECT_EQ(s_functions[1].needed.size(), 0u);
}
