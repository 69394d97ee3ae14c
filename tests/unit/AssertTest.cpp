#include "sal/Assert.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <iostream>

#include "sal/LogManager.h"

namespace {

class Assert : public testing::Test {
protected:
    void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

TEST_F(Assert, TrueExpressionGoesOn) {
    SAL_ASSERT(1 + 1 == 2);
}

TEST_F(Assert, FalseExpressionAbortsWithItsOwnText) {
    EXPECT_EXIT(SAL_ASSERT(1 + 1 == 3), testing::KilledBySignal(SIGABRT), "assertion failed: 1 \\+ 1 == 3");
}

TEST_F(Assert, MessageNamesFileAndLine) {
    EXPECT_DEATH(sal::assertFailed("Some.cpp", 17, "m_pLog"), "^Some.cpp:17: assertion failed: m_pLog\n$");
}

TEST_F(Assert, StandardOutputIsFlushedFirst) {
    EXPECT_DEATH(
        {
            ::dup2(STDERR_FILENO, STDOUT_FILENO);
            std::cout << "said before\n";
            SAL_ASSERT(false);
        },
        "said before\n.*assertion failed: false");
}

TEST_F(Assert, LogIsWrittenFirst) {
    EXPECT_DEATH(
        {
            sal::LogManager log;
            log.getLogOutput("MDM")->level(2) << "logged before" << std::endl;
            SAL_ASSERT(false);
        },
        "MDM: logged before\n.*assertion failed: false");
}

TEST_F(Assert, ExpressionIsEvaluatedOnce) {
    int count = 0;
    SAL_ASSERT(++count == 1);
    EXPECT_EQ(count, 1);
}

}  // namespace
