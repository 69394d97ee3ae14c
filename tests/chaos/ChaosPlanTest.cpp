#include "ChaosPlan.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>
#include <string>

using EKind = ChaosPlan::EKind;

namespace {

std::string text(const ChaosPlan::Step& step) {
    return std::string(ChaosPlan::name(step.kind)) + " " + step.target + " " + std::to_string(step.value) +
           "\n";
}

/// What a run would do.
std::string sequence(std::uint32_t seed) {
    ChaosPlan sut(seed);
    std::string all;
    for (int i = 0; i < 60; ++i)
        all += text(sut.next());
    for (int i = 0; i < 60; ++i)
        for (const auto& step : sut.nextSeveral())
            all += text(step);
    return all;
}

}  // namespace

TEST(ChaosPlan, SameSeedIsTheSameSequence) {
    EXPECT_EQ(sequence(7), sequence(7));
    EXPECT_NE(sequence(7), sequence(8));
}

TEST(ChaosPlan, EveryKindComesInItsTurn) {
    ChaosPlan sut(1);
    std::map<EKind, int> counts;
    const auto kinds = ChaosPlan::kinds();
    for (std::size_t i = 0; i < 50 * kinds.size(); ++i)
        ++counts[sut.next().kind];
    for (const EKind kind : kinds)
        // A driver that has ended too often is reloaded instead.
        EXPECT_GE(counts[kind], 20) << ChaosPlan::name(kind);
}

TEST(ChaosPlan, DriverThatWouldBeStartedEverLaterIsReloaded) {
    ChaosPlan sut(1);
    std::map<std::string, int> ends;
    const std::set<EKind> ending = {EKind::Crash, EKind::Abort,        EKind::Exit,
                                    EKind::Kill,  EKind::KillStarting, EKind::Stop,
                                    EKind::Sleep, EKind::Busy,         EKind::SlowStart};
    for (int i = 0; i < 2000; ++i) {
        const auto step = sut.next();
        if (step.kind == EKind::KillHost)
            ends.clear();
        else if (ending.contains(step.kind))
            ++ends[step.target];
        else if (step.kind == EKind::Reload)
            ends[step.target] = 0;
        ASSERT_LE(ends[step.target], 8) << text(step);
    }
}

TEST(ChaosPlan, SeveralFaultsAreAtDriversOfTheirOwn) {
    ChaosPlan sut(3);
    for (int i = 0; i < 500; ++i) {
        std::set<std::string> targets;
        const auto steps = sut.nextSeveral();
        for (const auto& step : steps)
            targets.insert(step.target);
        ASSERT_EQ(steps.size(), targets.size());
        ASSERT_GE(steps.size(), 1u);
        ASSERT_LE(steps.size(), 5u);
    }
}

TEST(ChaosPlan, NobodyReloadsBesideABrokenFile) {
    ChaosPlan sut(3);
    const std::set<EKind> reloading = {EKind::Reload,        EKind::Module,        EKind::Edit,
                                       EKind::EditMode,      EKind::KillProbe,     EKind::KillStarting,
                                       EKind::DeathInDeinit, EKind::IgnoredDeinit, EKind::EditBroken};
    for (int i = 0; i < 500; ++i) {
        const auto steps = sut.nextSeveral();
        const auto count = [&](auto isMeant) { return std::count_if(steps.begin(), steps.end(), isMeant); };
        if (count([](const auto& step) { return step.kind == EKind::EditBroken; }) > 0) {
            ASSERT_EQ(count([&](const auto& step) { return reloading.contains(step.kind); }), 1);
        }
    }
}
