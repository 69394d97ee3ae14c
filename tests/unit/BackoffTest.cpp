#include "Backoff.h"

#include <gtest/gtest.h>

#include <chrono>
#include <optional>

namespace {

using namespace std::chrono_literals;

/// Chance as it lengthens a pause most, and least.
Backoff::Duration all(Backoff::Duration longest) {
    return longest;
}
Backoff::Duration nothing(Backoff::Duration) {
    return 0s;
}

TEST(Backoff, PausesBeginWithHalfASecondAndDoubleUpToHalfAMinute) {
    Backoff shortest(nothing);
    Backoff longest(all);
    for (const auto pause : {500ms, 1000ms, 2000ms, 4000ms, 8000ms, 16'000ms, 30'000ms, 30'000ms}) {
        EXPECT_EQ(shortest.pause(), pause);
        EXPECT_EQ(shortest.begin(), pause / 2);
        EXPECT_EQ(longest.begin(), pause + pause / 2);
    }
}

TEST(Backoff, GoodConnectionThatIsLostIsTriedAgainWithinHalfASecondAndAsAtFirst) {
    Backoff sut(all);
    for (int i = 0; i < 10; ++i)
        sut.begin();
    EXPECT_EQ(sut.lost(10s), 500ms);
    EXPECT_EQ(sut.begin(), 750ms);
    EXPECT_EQ(sut.begin(), 1500ms);
}

TEST(Backoff, ConnectionThatWasShortChangesNothing) {
    Backoff sut(nothing);
    sut.begin();
    EXPECT_EQ(sut.lost(10s - 1ns), std::nullopt);
    EXPECT_EQ(sut.begin(), 500ms);
}

}  // namespace
