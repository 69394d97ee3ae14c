#include "AnewBudget.h"

#include <gtest/gtest.h>

namespace {

using namespace std::chrono_literals;

}  // namespace

TEST(AnewBudget, ThreeAtOnceAndThenOneInHalfAMinute) {
    AnewBudget sut;
    const AnewBudget::Time begin = AnewBudget::Time() + 1h;
    EXPECT_TRUE(sut.take(begin));
    EXPECT_TRUE(sut.take(begin + 1s));
    EXPECT_TRUE(sut.take(begin + 2s));
    EXPECT_FALSE(sut.take(begin + 3s));
    EXPECT_FALSE(sut.take(begin + 29s));
    EXPECT_TRUE(sut.take(begin + 30s));
    EXPECT_FALSE(sut.take(begin + 59s));
    EXPECT_TRUE(sut.take(begin + 60s));
}

TEST(AnewBudget, AfterAQuietMinuteAndAHalfItIsWholeAgain) {
    AnewBudget sut;
    const AnewBudget::Time begin = AnewBudget::Time() + 1h;
    for (const auto quiet : {0s, 90s}) {
        for (int i = 0; i < 3; ++i)
            EXPECT_TRUE(sut.take(begin + quiet)) << i;
        EXPECT_FALSE(sut.take(begin + quiet));
    }
}
