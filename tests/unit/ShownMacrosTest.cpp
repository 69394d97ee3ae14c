#include "ShownMacros.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::ElementsAre;
using testing::IsEmpty;

TEST(ShownMacros, AreThoseOfThePanelsList) {
    StateStore store;
    store.setStateValue("PANEL.MACRO.NAMES", "start of day, GREET");
    const ShownMacros sut = ShownMacros::of(store);
    EXPECT_THAT(sut.names, ElementsAre("start of day", "GREET"));
    EXPECT_TRUE(sut.isWhole);
}

TEST(ShownMacros, ListWithoutRoomForMoreIsNotWhole) {
    StateStore store;
    store.setStateValue("PANEL.MACRO.NAMES", "A, B, ...");
    const ShownMacros sut = ShownMacros::of(store);
    EXPECT_THAT(sut.names, ElementsAre("A", "B"));
    EXPECT_FALSE(sut.isWhole);
}

TEST(ShownMacros, ThereAreNoneWithoutAListThatHolds) {
    StateStore store;
    EXPECT_THAT(ShownMacros::of(store).names, IsEmpty());
    EXPECT_TRUE(ShownMacros::of(store).isWhole);
    store.setStateValue("PANEL.MACRO.NAMES", "A");
    store.driverEnded("PANEL", "unloaded");
    EXPECT_THAT(ShownMacros::of(store).names, IsEmpty());
}
