#include "RequestRate.h"

#include <gtest/gtest.h>

namespace {

using namespace std::chrono_literals;

constexpr RequestRate::Clock::time_point s_rateBegin{};

int takeAll(RequestRate& sut, bool isFavoured, RequestRate::Clock::time_point now) {
    int count = 0;
    while (sut.take(isFavoured, now))
        ++count;
    return count;
}

TEST(RequestRate, ThoseOfASecondMayComeAtOnce) {
    RequestRate sut(100, s_rateBegin);
    EXPECT_EQ(takeAll(sut, true, s_rateBegin), 100);
}

TEST(RequestRate, LastFifthIsForTheFavoured) {
    RequestRate sut(100, s_rateBegin);
    EXPECT_EQ(takeAll(sut, false, s_rateBegin), 80);
    EXPECT_EQ(takeAll(sut, true, s_rateBegin), 20);
}

TEST(RequestRate, ComesBackWithTime) {
    RequestRate sut(100, s_rateBegin);
    takeAll(sut, true, s_rateBegin);
    EXPECT_EQ(takeAll(sut, true, s_rateBegin + 500ms), 50);
    EXPECT_EQ(takeAll(sut, true, s_rateBegin + 600s), 100);
}

TEST(RequestRate, SteadyOnesAtItsNumberAreAllTaken) {
    RequestRate sut(1000, s_rateBegin);
    int refused = 0;
    for (int i = 0; i < 20'000; ++i)
        refused += !sut.take(false, s_rateBegin + i * 1ms);
    EXPECT_EQ(refused, 0);
}

TEST(RequestRate, FavouredAreTakenBesideOneThatAsksWithoutEnd) {
    RequestRate sut(1000, s_rateBegin);
    int refused = 0;
    for (int i = 0; i < 10'000; ++i) {
        const auto now = s_rateBegin + i * 1ms;
        takeAll(sut, false, now);
        if (i % 10 == 0)
            refused += !sut.take(true, now);
    }
    EXPECT_EQ(refused, 0);
}

}  // namespace
