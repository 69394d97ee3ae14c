#include "WorkplacePlan.h"

#include <gtest/gtest.h>

using EAction = WorkplacePlan::EAction;

TEST(WorkplacePlan, OnlyWhatAnApplyWouldDoMakesItOne) {
    WorkplacePlan sut;
    EXPECT_TRUE(sut.isEmpty());
    sut.changes.push_back({EAction::RestartHost, {}, "a descriptor has changed"});
    EXPECT_TRUE(sut.isEmpty());
    sut.changes.push_back({EAction::Reload, "A", "module changed"});
    EXPECT_FALSE(sut.isEmpty());
}

TEST(WorkplacePlan, ActionsHaveWords) {
    EXPECT_STREQ("reload", inWords(EAction::Reload));
    EXPECT_STREQ("load", inWords(EAction::Load));
    EXPECT_STREQ("remove", inWords(EAction::Remove));
    EXPECT_STREQ("rescan", inWords(EAction::Rescan));
    EXPECT_STREQ("restart-host", inWords(EAction::RestartHost));
    EXPECT_STREQ("none", inWords(EAction::None));
}

TEST(WorkplacePlan, OutcomeCountsWhatWasDone) {
    Applied sut;
    EXPECT_EQ("no changes", sut.outcome());
    sut.changes.push_back({{EAction::Reload, "A", "module changed"}, true, {}});
    EXPECT_EQ("1 of 1 change done", sut.outcome());
    sut.changes.push_back({{EAction::Load, "B", "entry is new"}, false, "no adapter eth7"});
    EXPECT_EQ("1 of 2 changes done", sut.outcome());
}
