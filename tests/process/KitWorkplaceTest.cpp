// The test kit of drivers with a driver of the kit, in both modes: what it promises to the authors of
// drivers.
#include "mfd/testing/Workplace.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace {

using mfd::testing::EMode;
using mfd::testing::Workplace;
using testing::HasSubstr;
using namespace std::chrono_literals;

class KitWorkplaceModes : public testing::TestWithParam<EMode> {
protected:
    Workplace sut{GetParam(), "LAMP1"};
};

INSTANTIATE_TEST_SUITE_P(Kit, KitWorkplaceModes, mfd::testing::bothModes(), mfd::testing::modeName);

TEST_P(KitWorkplaceModes, ShowsWhatADriverReports) {
    ASSERT_TRUE(sut.start());
    EXPECT_TRUE(sut.waitForState("LIT", "false"));
    EXPECT_TRUE(sut.waitForState("BRIGHTNESS", "50"));
    EXPECT_TRUE(sut.waitForState("LEVEL", "2.5"));
    EXPECT_TRUE(sut.send("NAME", {{"name", "main hall"}}));
    EXPECT_TRUE(sut.waitForState("NAME", "main hall"));
    EXPECT_TRUE(sut.send("LOSE"));
    EXPECT_TRUE(sut.waitForUnset("BRIGHTNESS"));
    EXPECT_EQ(sut.state("BRIGHTNESS"), std::nullopt);
    EXPECT_TRUE(sut.stop());
    EXPECT_FALSE(sut.isRunning());
}

TEST_P(KitWorkplaceModes, ModeIsPrintedByItsName) {
    EXPECT_EQ(testing::PrintToString(GetParam()),
              GetParam() == EMode::OwnProcess ? "OwnProcess" : "InProcess");
}

TEST_P(KitWorkplaceModes, ShowsWhatADriverLogs) {
    ASSERT_TRUE(sut.start());
    EXPECT_EQ(sut.send("BRIGHTNESS", {{"percent", "140"}}), GetParam() == EMode::OwnProcess);
    EXPECT_TRUE(
        sut.waitForLog("LAMP1: BRIGHTNESS ignored, percent=\"140\" is not a whole number from 0 to 100"));
    sut.send("DIM");
    EXPECT_TRUE(
        sut.waitForLog("unknown FID \"DIM\"; known are BRIGHTNESS, BLINK, STEADY, ALARM, LOSE, NAME, CRASH, "
                       "AGAIN, FORWARD"));
    // A process of its own may have logged before its first report has come.
    EXPECT_TRUE(sut.waitForState("BRIGHTNESS", "50"));
}

TEST_P(KitWorkplaceModes, ShowsWhatADriverSendsToOthers) {
    ASSERT_TRUE(sut.start());
    EXPECT_TRUE(sut.send("ALARM", {{"text", "hot"}}));
    EXPECT_TRUE(sut.waitForFid("PANEL.ALARM text=hot"));
    EXPECT_TRUE(sut.waitForEvent("FAULT", "sent"));
}

TEST_P(KitWorkplaceModes, ShowsWhatIsReportedAgainThoughItHasNotChanged) {
    ASSERT_TRUE(sut.start());
    ASSERT_TRUE(sut.waitForState("LEVEL", "2.5"));
    ASSERT_TRUE(sut.send("AGAIN"));
    ASSERT_TRUE(sut.settle());
    EXPECT_EQ(sut.count("state LEVEL = 2.5"), 2u);
    EXPECT_EQ(sut.count("state BRIGHTNESS = 50"), 2u);
    ASSERT_TRUE(sut.send("AGAIN", {{"unset", "true"}}));
    ASSERT_TRUE(sut.waitForUnset("LEVEL"));
}

TEST_P(KitWorkplaceModes, ShowsFurtherParametersInTheirOrder) {
    ASSERT_TRUE(sut.start());
    ASSERT_TRUE(
        sut.send("FORWARD", {{"b", ""}, {"fid", "PANEL.SHOW"}, {"a", "1"}, {"fid", "A.B"}, {"a", ""}}));
    EXPECT_TRUE(sut.waitForFid("PANEL.SHOW b=, fid=PANEL.SHOW, a=1, fid=A.B, a="));
}

TEST_P(KitWorkplaceModes, ShowsWhatAHandlerHasRefused) {
    const bool isAnswered = GetParam() == EMode::InProcess;
    ASSERT_TRUE(sut.start());
    EXPECT_EQ(sut.send("FORWARD"), !isAnswered);
    EXPECT_TRUE(sut.waitForLog("LAMP1: FORWARD ignored, it needs the parameter \"fid\""));
    ASSERT_TRUE(sut.send("BLINK"));
    ASSERT_TRUE(sut.advance(1s));
    ASSERT_EQ(sut.state("LIT"), "true");
    EXPECT_EQ(sut.send("FORWARD", {{"fid", "PANEL.SHOW"}}), !isAnswered);
    EXPECT_TRUE(sut.waitForLog("LAMP1: FORWARD ignored, the lamp is lit"));
    ASSERT_TRUE(sut.advance(1s));
    EXPECT_EQ(sut.send("FORWARD", {{"fid", "PANEL"}}), !isAnswered);
    EXPECT_TRUE(sut.waitForLog("LAMP1: FORWARD failed, it could not be sent"));
    EXPECT_EQ(sut.count("send PANEL.SHOW fid=PANEL.SHOW"), 0u);
}

TEST_P(KitWorkplaceModes, MovesTheTimeOfTheTimers) {
    ASSERT_TRUE(sut.start());
    ASSERT_TRUE(sut.send("BLINK"));
    ASSERT_TRUE(sut.advance(999ms));
    EXPECT_EQ(sut.state("LIT"), "false");
    ASSERT_TRUE(sut.advance(1ms));
    EXPECT_EQ(sut.state("LIT"), "true");
    ASSERT_TRUE(sut.advance(3s));
    EXPECT_EQ(sut.count("state LIT = true"), 2u);
    EXPECT_EQ(sut.count("state LIT = false"), 3u);
    ASSERT_TRUE(sut.send("STEADY"));
    ASSERT_TRUE(sut.advance(1h));
    EXPECT_EQ(sut.count("state LIT = true"), 2u);
}

TEST_P(KitWorkplaceModes, KeepsWhatADriverRemembers) {
    ASSERT_TRUE(sut.start());
    ASSERT_TRUE(sut.send("BRIGHTNESS", {{"percent", "70"}}));
    ASSERT_TRUE(sut.settle());
    ASSERT_TRUE(sut.stop());
    ASSERT_TRUE(sut.start());
    EXPECT_TRUE(sut.waitForState("BRIGHTNESS", "70"));
    EXPECT_TRUE(std::filesystem::exists(sut.nvramDirectory() + "/settings.txt"));
}

TEST_P(KitWorkplaceModes, ShowsWhatADriverSaysOfABrokenFile) {
    std::ofstream(sut.nvramDirectory() + "/settings.txt") << "abc\n";
    ASSERT_TRUE(sut.start());
    EXPECT_TRUE(
        sut.waitForLog("settings.txt: line 1: \"abc\" is not \"mfd-settings\" and a version; it is kept as "
                       "settings.txt.broken, and nothing is remembered"));
    EXPECT_TRUE(sut.waitForState("BRIGHTNESS", "50"));
}

TEST_P(KitWorkplaceModes, StartsAndStopsAgainAndAgain) {
    for (std::size_t times = 1; times <= 5; ++times) {
        ASSERT_TRUE(sut.start());
        ASSERT_TRUE(sut.send("ALARM", {{"text", "hot"}}));
        ASSERT_TRUE(sut.waitForEvent("FAULT", "sent", times));
        ASSERT_TRUE(sut.stop());
    }
}

TEST_P(KitWorkplaceModes, RefusesASecondStart) {
    ASSERT_TRUE(sut.start());
    EXPECT_THAT(sut.start().message(), HasSubstr("the driver runs already"));
}

TEST_P(KitWorkplaceModes, IsTheOnlyOne) {
    EXPECT_THROW((Workplace{GetParam(), "LAMP2"}), std::logic_error);
}

class KitWorkplaceOfADriverWithoutTheKit : public testing::TestWithParam<EMode> {};

INSTANTIATE_TEST_SUITE_P(Kit, KitWorkplaceOfADriverWithoutTheKit, mfd::testing::bothModes(),
                         mfd::testing::modeName);

TEST_P(KitWorkplaceOfADriverWithoutTheKit, RunsItLikeAnyOther) {
    Workplace sut{Workplace::Settings{GetParam(), MFD_INTERFACES_ALONE_MODULE, MFD_TESTING_WRAPPER, "LAMP1"}};
    ASSERT_TRUE(sut.start());
    ASSERT_TRUE(sut.waitForState("LIT", "false"));
    EXPECT_TRUE(sut.send("ON"));
    EXPECT_TRUE(sut.waitForState("LIT", "true"));
    EXPECT_EQ(sut.send("DIM"), GetParam() == EMode::OwnProcess);
    EXPECT_TRUE(sut.stop());
}

class KitWorkplaceInProcess : public testing::Test {
protected:
    Workplace sut{EMode::InProcess, "LAMP1"};
};

TEST_F(KitWorkplaceInProcess, RefusesFidsThatTheDriverSends) {
    ASSERT_TRUE(sut.start());
    ASSERT_TRUE(sut.refuseFids());
    EXPECT_TRUE(sut.send("ALARM", {{"text", "hot"}}));
    EXPECT_TRUE(sut.waitForEvent("FAULT", "not sent"));
    EXPECT_TRUE(sut.waitForLog("LAMP1: PANEL.ALARM not sent, the host does not take it"));
    EXPECT_EQ(sut.count("refused PANEL.ALARM text=hot"), 1u);
}

TEST_F(KitWorkplaceInProcess, HasNoProcessToKill) {
    ASSERT_TRUE(sut.start());
    EXPECT_THAT(sut.kill().message(),
                HasSubstr("a driver in the test's process has no process to be killed"));
}

TEST(KitWorkplace, FailsWhereTheCodeOfADriverStaysMapped) {
    Workplace::Settings pinned;
    pinned.module = MFD_PINNED_MODULE;
    Workplace sut(pinned);
    ASSERT_TRUE(sut.start());
    EXPECT_THAT(sut.stop().message(), HasSubstr("its code stays mapped: a reload would go on with it"));
}

class KitWorkplaceOwnProcess : public testing::Test {
protected:
    Workplace sut{EMode::OwnProcess, "LAMP1"};
};

TEST_F(KitWorkplaceOwnProcess, KillsTheProcess) {
    ASSERT_TRUE(sut.start());
    ASSERT_TRUE(sut.send("BRIGHTNESS", {{"percent", "70"}}));
    ASSERT_TRUE(sut.settle());
    ASSERT_TRUE(sut.kill());
    EXPECT_FALSE(sut.isRunning());
    EXPECT_FALSE(sut.send("LOSE"));
    EXPECT_FALSE(sut.kill());
    ASSERT_TRUE(sut.start());
    EXPECT_TRUE(sut.waitForState("BRIGHTNESS", "70"));
}

TEST_F(KitWorkplaceOwnProcess, TellsHowTheProcessEnded) {
    ASSERT_TRUE(sut.start());
    ASSERT_TRUE(sut.send("CRASH"));
    EXPECT_THAT(sut.stop().message(), HasSubstr("its process was ended by signal 11 (Segmentation fault)"));
}

TEST_F(KitWorkplaceOwnProcess, CannotRefuseFids) {
    EXPECT_THAT(
        sut.refuseFids().message(),
        HasSubstr("the queue of a driver process takes what fits; FIDs are refused in process alone"));
}

class KitWorkplaceFaults : public testing::TestWithParam<EMode> {
protected:
    static Workplace::Settings settings(const std::string& module) {
        Workplace::Settings settings;
        settings.mode = GetParam();
        settings.module = module;
        settings.wrapper = MFD_TESTING_WRAPPER;
        return settings;
    }
};

INSTANTIATE_TEST_SUITE_P(Kit, KitWorkplaceFaults, mfd::testing::bothModes(), mfd::testing::modeName);

TEST_P(KitWorkplaceFaults, ModuleThatIsNotThereIsSaid) {
    Workplace sut(settings("/nowhere/lamp.so"));
    const testing::AssertionResult started = sut.start();
    EXPECT_FALSE(started);
    EXPECT_THAT(started.message(), HasSubstr("/nowhere/lamp.so"));
    EXPECT_FALSE(sut.isRunning());
}

TEST_P(KitWorkplaceFaults, TimeThatGoesOnIsNotMoved) {
    Workplace::Settings going = settings(MFD_DRIVER_MODULE);
    going.timeStandsStill = false;
    Workplace sut(going);
    ASSERT_TRUE(sut.start());
    EXPECT_THAT(sut.advance(1s).message(),
                HasSubstr("the driver's time does not stand still: it cannot be moved"));
    ASSERT_TRUE(sut.send("BLINK"));
    EXPECT_TRUE(sut.waitForState("LIT", "true"));
}

/// In process a driver has reported its first states when it has started, so nothing is waited for.
TEST(KitWorkplace, TellsTheStoryWhereAWaitIsInVain) {
    Workplace::Settings impatient;
    impatient.module = MFD_DRIVER_MODULE;
    impatient.driverID = "LAMP1";
    impatient.patience = 10ms;
    Workplace sut(impatient);
    ASSERT_TRUE(sut.start());
    EXPECT_STREQ(sut.waitForState("LIT", "true").message(),
                 "LIT is \"false\", not \"true\"\nWhat happened:\n  start\n  state LIT = false\n"
                 "  state BRIGHTNESS = 50\n  state LEVEL = 2.5\n");
    EXPECT_THAT(sut.waitForUnset("LIT").message(), HasSubstr("LIT is \"false\", not unset\n"));
    EXPECT_THAT(sut.waitForState("NAME", "x").message(), HasSubstr("NAME is unset, not \"x\"\n"));
    EXPECT_THAT(sut.waitForEvent("FAULT", "open").message(),
                HasSubstr("\"event FAULT open\" has come 0 times, not 1\n"));
    EXPECT_THAT(sut.waitForLog("hot").message(), HasSubstr("no line of the log has \"hot\"\n"));
}

}  // namespace
