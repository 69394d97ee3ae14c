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
    const auto& kinds = ChaosPlan::allKinds();
    for (std::size_t i = 0; i < 50 * kinds.size(); ++i)
        ++counts[sut.next().kind];
    for (const EKind kind : kinds)
        // A driver that has ended too often is reloaded instead.
        EXPECT_GE(counts[kind], 20) << ChaosPlan::name(kind);
}

TEST(ChaosPlan, DriverThatWouldBeStartedEverLaterIsReloaded) {
    ChaosPlan sut(1);
    std::map<std::string, int> ends;
    // They end their driver and leave it to the host to start it again.
    const std::set<EKind> ending = {EKind::Crash,
                                    EKind::Abort,
                                    EKind::Exit,
                                    EKind::Kill,
                                    EKind::KillStarting,
                                    EKind::Stop,
                                    EKind::Sleep,
                                    EKind::Busy,
                                    EKind::SlowStart,
                                    EKind::Fork,
                                    EKind::ForkAway,
                                    EKind::Exec,
                                    EKind::CloseLocks,
                                    EKind::DamageInput,
                                    EKind::DamageOutput,
                                    EKind::LeaveTicket,
                                    EKind::BlockOutput,
                                    EKind::BlockLog,
                                    EKind::StopAndContinue,
                                    EKind::IgnoreSignals,
                                    EKind::DeathInLoad};
    const std::set<EKind> reloading = {EKind::Reload,         EKind::Module,         EKind::Edit,
                                       EKind::EditMode,       EKind::DeathInDeinit,  EKind::IgnoredDeinit,
                                       EKind::FileMissing,    EKind::FileEmpty,      EKind::FileCutShort,
                                       EKind::FileIllFormed,  EKind::FileLinkLoop,   EKind::KillProbe,
                                       EKind::FillStore,      EKind::DirectoryTaken, EKind::DescriptorsOfHost,
                                       EKind::DirectoryOpened};
    for (int i = 0; i < 2000; ++i) {
        const auto step = sut.next();
        if (step.kind == EKind::KillHost)
            ends.clear();
        else if (ending.contains(step.kind))
            ends[step.target] += step.kind == EKind::DeathInLoad ? 3 : 1;
        else if (reloading.contains(step.kind))
            ends[step.target] = 0;
        ASSERT_LE(ends[step.target], 3) << text(step);
    }
}

TEST(ChaosPlan, OnlyTheKindsThatAreAskedForComeAndReloadsThatMakeRoom) {
    ChaosPlan sut(1, {EKind::Crash, EKind::Fork});
    EXPECT_EQ(sut.kinds(), (std::vector{EKind::Crash, EKind::Fork}));
    std::map<EKind, int> counts;
    for (int i = 0; i < 200; ++i)
        ++counts[sut.next().kind];
    EXPECT_GE(counts[EKind::Crash], 50);
    EXPECT_GE(counts[EKind::Fork], 50);
    EXPECT_EQ(counts[EKind::Crash] + counts[EKind::Fork] + counts[EKind::Reload], 200);
}

TEST(ChaosPlan, KindThatComesAloneComesAloneAmongSeveral) {
    ChaosPlan sut(1, {EKind::StopHost});
    const auto steps = sut.nextSeveral();
    ASSERT_EQ(steps.size(), 1u);
    EXPECT_EQ(steps.front().kind, EKind::StopHost);
}

TEST(ChaosPlan, EachKindHasAWordOfItsOwn) {
    for (const EKind kind : ChaosPlan::allKinds())
        EXPECT_EQ(ChaosPlan::kindOf(ChaosPlan::word(kind)), kind);
    EXPECT_FALSE(ChaosPlan::kindOf("crush"));
}

TEST(ChaosPlan, WhatBefallsAllComesOnceAtATime) {
    ChaosPlan sut(3);
    const std::set<EKind> ofAll = {EKind::EditBroken,       EKind::FileMissing,     EKind::FileEmpty,
                                   EKind::FileCutShort,     EKind::FileIllFormed,   EKind::FileLinkLoop,
                                   EKind::FillStore,        EKind::BlockOutput,     EKind::BlockLog,
                                   EKind::StopHost,         EKind::DirectoryOpened, EKind::DirectoryTaken,
                                   EKind::DescriptorsOfHost};
    for (int i = 0; i < 500; ++i) {
        const auto steps = sut.nextSeveral();
        ASSERT_LE(std::count_if(steps.begin(), steps.end(),
                                [&](const auto& step) { return ofAll.contains(step.kind); }),
                  1);
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

TEST(ChaosPlan, NobodyReloadsWhereReloadsAreRefused) {
    ChaosPlan sut(3);
    const std::set<EKind> reloading = {EKind::Reload,        EKind::Module,        EKind::Edit,
                                       EKind::EditMode,      EKind::KillProbe,     EKind::KillStarting,
                                       EKind::DeathInDeinit, EKind::IgnoredDeinit, EKind::FillStore};
    const std::set<EKind> refusing = {
        EKind::EditBroken,      EKind::FileMissing,    EKind::FileEmpty,
        EKind::FileCutShort,    EKind::FileIllFormed,  EKind::FileLinkLoop,
        EKind::DirectoryOpened, EKind::DirectoryTaken, EKind::DescriptorsOfHost};
    int refused = 0;
    for (int i = 0; i < 500; ++i) {
        const auto steps = sut.nextSeveral();
        const auto count = [&](const std::set<EKind>& kinds) {
            return std::count_if(steps.begin(), steps.end(),
                                 [&](const auto& step) { return kinds.contains(step.kind); });
        };
        if (count(refusing) == 0)
            continue;
        ++refused;
        ASSERT_EQ(count(refusing), 1);
        ASSERT_EQ(count(reloading), 0);
    }
    EXPECT_GT(refused, 50);
}

TEST(ChaosPlan, NobodyWhoseLastLineIsAwaitedDiesBesideABlockedLog) {
    ChaosPlan sut(4);
    const std::set<EKind> dying = {EKind::Crash, EKind::Abort, EKind::Exit, EKind::Exec, EKind::CloseLocks};
    int blocked = 0;
    for (int i = 0; i < 2000; ++i) {
        const auto steps = sut.nextSeveral();
        const auto has = [&](const auto& isMeant) {
            return std::any_of(steps.begin(), steps.end(),
                               [&](const auto& step) { return isMeant(step.kind); });
        };
        if (!has([](EKind kind) { return kind == EKind::BlockLog; }))
            continue;
        ++blocked;
        ASSERT_FALSE(has([&](EKind kind) { return dying.contains(kind); }));
    }
    EXPECT_GT(blocked, 50);
}
