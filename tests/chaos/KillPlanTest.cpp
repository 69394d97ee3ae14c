#include "KillPlan.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>
#include <string>

namespace {

KillPlan plan(std::uint32_t seed) {
    return {seed, {"T1", "F1"}, "F7", {"T1", "F1", "T6", "F7"}};
}

std::string text(const KillPlan::Strike& strike) {
    std::string wishes;
    for (const auto& wish : strike.wishes)
        wishes += wish.name() + " " + wish.target + " ";
    return wishes + strike.name() + " " + strike.target + " " + std::to_string(strike.delayMs) + " " +
           std::to_string(strike.durationMs) + "\n";
}

std::string lives(std::uint32_t seed) {
    KillPlan sut = plan(seed);
    std::string all;
    for (int i = 0; i < 50; ++i) {
        const auto life = sut.next();
        all += life.isFileMeddledAtStart ? "meddled\n" : "whole\n";
        for (const auto& strike : life.strikes)
            all += text(strike);
    }
    return all;
}

}  // namespace

TEST(KillPlan, SameSeedIsTheSameSequence) {
    EXPECT_EQ(lives(7), lives(7));
    EXPECT_NE(lives(7), lives(8));
}

TEST(KillPlan, EachOfThemComesAmongFiveHundred) {
    KillPlan sut = plan(1);
    std::map<std::string, int> counts;
    for (int count = 0; count < 500;)
        for (const auto& strike : sut.next().strikes) {
            ++counts[strike.name()];
            ++count;
        }
    for (const char* name :
         {"host killed at the start",    "host stopped at the start",  "host killed in the run",
          "host stopped in the run",     "host killed at a reload",    "host stopped at a reload",
          "host killed at the end",      "host stopped at the end",    "driver killed at the start",
          "driver stopped at the start", "driver killed in the run",   "driver stopped in the run",
          "driver killed at a reload",   "driver stopped at a reload", "driver killed at the end",
          "driver stopped at the end",   "trial killed at the start",  "trial stopped at the start",
          "trial killed at a reload",    "trial stopped at a reload"})
        EXPECT_GE(counts[name], 1) << name;
    EXPECT_EQ(counts.size(), 20u);
}

TEST(KillPlan, NothingComesAfterTheDeathOfAHost) {
    KillPlan sut = plan(2);
    for (int i = 0; i < 200; ++i) {
        const auto life = sut.next();
        const auto death = std::find_if(life.strikes.begin(), life.strikes.end(),
                                        [](const auto& strike) { return strike.endsLife(); });
        ASSERT_TRUE(death == life.strikes.end() || death == life.strikes.end() - 1);
    }
}

TEST(KillPlan, OnlyDriversMayStayStopped) {
    KillPlan sut = plan(2);
    bool isAny = false;
    for (int i = 0; i < 200; ++i)
        for (const auto& strike : sut.next().strikes) {
            isAny = isAny || strike.durationMs == 0;
            ASSERT_TRUE(strike.durationMs > 0 || strike.what == KillPlan::EWhat::Driver);
        }
    EXPECT_TRUE(isAny);
}

TEST(KillPlan, EachWishComesAmongFiveHundredStrikes) {
    KillPlan sut = plan(1);
    std::map<std::string, int> counts;
    for (int count = 0; count < 500;)
        for (const auto& strike : sut.next().strikes) {
            ++count;
            for (const auto& wish : strike.wishes)
                ++counts[wish.name() + " " + wish.target];
        }
    for (const char* wish : {"driver parked", "driver taken back from parking", "driver reloaded",
                             "driver taken out of the file", "driver put into the file again"})
        for (const char* target : {" T1", " F1", " T6"})
            EXPECT_GE(counts[std::string(wish) + target], 1) << wish << target;
    EXPECT_EQ(counts.size(), 15u);
}

// Each one undoes the one before; two are parked and one is out of the file at most.
TEST(KillPlan, WishesLeaveSomebodyToBeStruck) {
    KillPlan sut = plan(2);
    std::set<std::string> parked;
    std::set<std::string> takenOut;
    for (int i = 0; i < 200; ++i)
        for (const auto& strike : sut.next().strikes)
            for (const auto& wish : strike.wishes) {
                using enum KillPlan::EWish;
                ASSERT_TRUE(wish.what != Park || parked.insert(wish.target).second);
                ASSERT_TRUE(wish.what != Unpark || parked.erase(wish.target) == 1);
                ASSERT_TRUE(wish.what != TakeOut || takenOut.insert(wish.target).second);
                ASSERT_TRUE(wish.what != PutIn || takenOut.erase(wish.target) == 1);
                ASSERT_LE(parked.size(), 2u);
                ASSERT_LE(takenOut.size(), 1u);
            }
}
