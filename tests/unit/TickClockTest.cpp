#include "TickClock.h"

#include <gtest/gtest.h>

#include <chrono>
#include <optional>

namespace {

using namespace std::chrono_literals;
using linkpayload::Tick;

const TickClock::Time s_tickBegin = TickClock::Time() + 1h;

TEST(TickClock, TicksAreNumberedFromOne) {
    TickClock sut("0a1b");
    EXPECT_EQ(sut.next(s_tickBegin), (Tick{"0a1b", 1}));
    EXPECT_EQ(sut.next(s_tickBegin + 1s), (Tick{"0a1b", 2}));
}

TEST(TickClock, AgeIsThatSinceTheTickWasTold) {
    TickClock sut("0a1b");
    sut.next(s_tickBegin);
    sut.next(s_tickBegin + 1s);
    EXPECT_EQ(sut.age({"0a1b", 1}, s_tickBegin + 3s), 3s);
    EXPECT_EQ(sut.age({"0a1b", 2}, s_tickBegin + 3s), 2s);
}

TEST(TickClock, TickThatWasNotOursOrNeverToldHasNoAge) {
    TickClock sut("0a1b");
    EXPECT_EQ(sut.age({"0a1b", 0}, s_tickBegin), std::nullopt);
    sut.next(s_tickBegin);
    EXPECT_EQ(sut.age({"0a1b", 0}, s_tickBegin), std::nullopt);
    EXPECT_EQ(sut.age({"0a1b", 2}, s_tickBegin), std::nullopt);
    EXPECT_EQ(sut.age({"0a1c", 1}, s_tickBegin), std::nullopt);
}

TEST(TickClock, ForgetsTicksOfMoreThanAnHourAndAQuarterAgo) {
    TickClock sut("0a1b");
    for (int i = 0; i < 4500; ++i)
        sut.next(s_tickBegin + std::chrono::seconds(i));
    EXPECT_EQ(sut.age({"0a1b", 1}, s_tickBegin + 4500s), 4500s);
    sut.next(s_tickBegin + 4500s);
    EXPECT_EQ(sut.age({"0a1b", 1}, s_tickBegin + 4500s), std::nullopt);
    EXPECT_EQ(sut.age({"0a1b", 2}, s_tickBegin + 4500s), 4499s);
}

}  // namespace
