#include "sal/CmdParameters.h"

#include <gtest/gtest.h>

namespace {

TEST(CmdParameters, CountsItsArguments) {
    EXPECT_EQ(sal::CmdParameters({"a", "b"}).argumentCount(), 2u);
}

TEST(CmdParameters, ArgumentsCountFromZero) {
    const sal::CmdParameters sut({"a", "b"});
    EXPECT_EQ(sut.argument(0), "a");
    EXPECT_EQ(sut.argument(1), "b");
}

TEST(CmdParameters, ArgumentBeyondTheEndIsEmpty) {
    const sal::CmdParameters sut({"a"});
    EXPECT_EQ(sut.argument(1), "");
    EXPECT_EQ(sut.argument(4'000'000'000u), "");
}

}  // namespace
