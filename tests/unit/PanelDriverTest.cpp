#include "PanelDriver.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "DriverHost.h"
#include "HangGuard.h"
#include "LogFile.h"
#include "ParameterPairs.h"
#include "TemporaryDirectory.h"

using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

class PanelDriverTest : public testing::Test {
protected:
    PanelDriverTest() { start(sut); }
    ~PanelDriverTest() override { sut.deinitialize(); }

    void start(PanelDriver& driver) {
        driver.setPanelStateInterface(&host);
        driver.setSystemInterface(&host);
        driver.setConfiguration(0, "PANEL", "data/PANEL", "", "", "", nvram.path());
        EXPECT_TRUE(driver.initializationCompleted());
    }

    IMacroSystem& macros() { return dynamic_cast<IMacroSystem&>(*sut.queryInterface(1107)); }

    /// Records as the distributor would make it: each FID is told before it is routed.
    void record(const std::string& name, const std::vector<std::string>& fids) {
        ASSERT_TRUE(sut.sendFID("MACRO.RECORD", parameters({{"name", name}})));
        for (const std::string& fid : fids)
            macros().fidDispatched(fid, {});
        ASSERT_TRUE(sut.sendFID("MACRO.STOP", {}));
    }

    LogFile log;
    TemporaryDirectory nvram;
    DriverHost host;
    PanelDriver sut;
};

TEST_F(PanelDriverTest, AnswersTheDriverInterfacesAndTheMacroSystem) {
    EXPECT_NE(dynamic_cast<IFunctionID*>(sut.queryInterface(1100)), nullptr);
    EXPECT_NE(dynamic_cast<IMFDConfiguration*>(sut.queryInterface(1201)), nullptr);
    EXPECT_NE(dynamic_cast<IMacroSystem*>(sut.queryInterface(1107)), nullptr);
}

TEST_F(PanelDriverTest, AnswersNeitherSettingsNorAFace) {
    EXPECT_EQ(sut.queryInterface(1012), nullptr);
    EXPECT_EQ(sut.queryInterface(1109), nullptr);
}

TEST_F(PanelDriverTest, ShowsAnIdleMacroSystemAtFirst) {
    EXPECT_TRUE(host.calls.waitFor("MACRO.STATE string idle"));
    EXPECT_EQ(host.calls.count("MACRO.NAME string "), 1);
    EXPECT_EQ(host.calls.count("MACRO.STEPS int 0"), 1);
    EXPECT_EQ(host.calls.count("MACRO.COUNT int 0"), 1);
    EXPECT_EQ(host.calls.count("MACRO.NAMES string "), 1);
    EXPECT_EQ(host.calls.count("MACRO.UNSAVED bool false"), 1);
}

TEST_F(PanelDriverTest, ShowsARecording) {
    ASSERT_TRUE(sut.sendFID("MACRO.RECORD", parameters({{"name", "fill"}})));
    EXPECT_TRUE(host.calls.waitFor("MACRO.STATE string recording"));
    EXPECT_EQ(host.calls.count("MACRO.NAME string fill"), 1);
    macros().fidDispatched("A.B", {});
    EXPECT_TRUE(host.calls.waitFor("MACRO.STEPS int 1"));
}

TEST_F(PanelDriverTest, StopKeepsARecording) {
    record("fill", {"A.B", "A.C"});
    EXPECT_EQ(macros().macroSteps("fill").size(), 2u);
    EXPECT_TRUE(host.calls.waitFor("MACRO.NAMES string fill"));
    EXPECT_TRUE(host.calls.waitFor("MACRO.UNSAVED bool true"));
    EXPECT_TRUE(host.calls.waitFor("event MACRO.RECORDED fill"));
}

TEST_F(PanelDriverTest, PlaySendsThroughTheHost) {
    record("fill", {"A.B"});
    ASSERT_TRUE(sut.sendFID("MACRO.PLAY", parameters({{"name", "fill"}})));
    EXPECT_TRUE(host.calls.waitFor("send A.B "));
    EXPECT_TRUE(host.calls.waitFor("event MACRO.PLAYED fill"));
}

TEST_F(PanelDriverTest, PlayedFidMayBeForThePanelItself) {
    host.onSend = [this](const std::string& fid) {
        EXPECT_EQ(fid, "PANEL.ALARM");
        EXPECT_TRUE(sut.sendFID("ALARM", parameters({{"source", "X"}, {"text", "y"}})));
    };
    record("m", {"PANEL.ALARM"});
    ASSERT_TRUE(sut.sendFID("MACRO.PLAY", parameters({{"name", "m"}})));
    EXPECT_TRUE(host.calls.waitFor("ALARM string X: y"));
    EXPECT_TRUE(host.calls.waitFor("event MACRO.PLAYED m"));
}

TEST_F(PanelDriverTest, StopEndsAPlayback) {
    nvram.write("long.macro", "macro 1\n3600000 A.B\nend\n");
    ASSERT_TRUE(sut.sendFID("MACRO.LOAD", {}));
    ASSERT_TRUE(sut.sendFID("MACRO.PLAY", parameters({{"name", "long"}})));
    EXPECT_TRUE(sut.sendFID("MACRO.STOP", {}));
    EXPECT_FALSE(macros().isPlaying());
}

TEST_F(PanelDriverTest, FidWhileTheDriverStopsIsRefused) {
    const auto alarm = [this] { return sut.sendFID("ALARM", parameters({{"source", "X"}, {"text", "y"}})); };
    // The stop waits for the FID that is being played.
    std::atomic<bool> isRefused = false;
    std::thread stopping;
    host.onSend = [&](const std::string&) {
        stopping = std::thread([this] { sut.deinitialize(); });
        isRefused = eventually([&] { return !alarm(); });
    };
    ASSERT_TRUE(alarm());
    record("m", {"A.B"});
    ASSERT_TRUE(sut.sendFID("MACRO.PLAY", parameters({{"name", "m"}})));
    ASSERT_TRUE(host.calls.waitFor("send A.B "));
    EXPECT_TRUE(eventually([&] { return isRefused.load(); }));
    host.onSend = {};
    stopping.join();
    EXPECT_FALSE(alarm());
}

TEST_F(PanelDriverTest, StopSaysWhenThereIsNothingToStop) {
    EXPECT_FALSE(sut.sendFID("MACRO.STOP", {}));
    EXPECT_THAT(log.text(), HasSubstr("PANEL: MACRO.STOP ignored, no macro is being recorded or played"));
}

TEST_F(PanelDriverTest, CancelDropsARecording) {
    ASSERT_TRUE(sut.sendFID("MACRO.RECORD", parameters({{"name", "fill"}})));
    EXPECT_TRUE(sut.sendFID("MACRO.CANCEL", {}));
    EXPECT_THAT(macros().macroNames(), IsEmpty());
}

TEST_F(PanelDriverTest, SaveAndLoadKeepMacrosInTheDriversOwnDirectory) {
    record("fill", {"A.B"});
    ASSERT_TRUE(sut.sendFID("MACRO.SAVE", {}));
    EXPECT_EQ(nvram.read("fill.macro").substr(0, 8), "macro 1\n");
    ASSERT_TRUE(sut.sendFID("MACRO.DELETE", parameters({{"name", "fill"}})));
    ASSERT_TRUE(sut.sendFID("MACRO.LOAD", {}));
    EXPECT_THAT(macros().macroNames(), testing::ElementsAre("fill"));
}

TEST_F(PanelDriverTest, RenameGivesTheMacroItsNewName) {
    record("fill", {});
    ASSERT_TRUE(sut.sendFID("MACRO.RENAME", parameters({{"from", "fill"}, {"to", "drain"}})));
    EXPECT_THAT(macros().macroNames(), testing::ElementsAre("drain"));
}

TEST_F(PanelDriverTest, MissingParameterIsNamedInTheLog) {
    EXPECT_FALSE(sut.sendFID("MACRO.RENAME", parameters({{"from", "fill"}})));
    EXPECT_THAT(log.text(), HasSubstr("PANEL: MACRO.RENAME ignored, it needs the parameter \"to\""));
}

TEST_F(PanelDriverTest, UnknownFidIsLoggedWithThoseThatAreKnown) {
    EXPECT_FALSE(sut.sendFID("DANCE", {}));
    EXPECT_THAT(log.text(),
                HasSubstr("PANEL: unknown FID \"DANCE\"; known are ALARM, ALARM.CLEAR, DRIVER, MACRO.CANCEL, "
                          "MACRO.DELETE, MACRO.LOAD, MACRO.PLAY, MACRO.RECORD, MACRO.RENAME, MACRO.SAVE, "
                          "MACRO.STOP"));
}

TEST_F(PanelDriverTest, BrokenMacroFileIsLoggedWithItsLineAndTheOthersLoad) {
    nvram.write("bad.macro", "macro 1\nsoon A.B\nend\n");
    nvram.write("good.macro", "macro 1\n0 A.B\nend\n");
    ASSERT_TRUE(sut.sendFID("MACRO.LOAD", {}));
    EXPECT_THAT(macros().macroNames(), testing::ElementsAre("good"));
    EXPECT_THAT(log.text(), HasSubstr("PANEL: " + nvram.path("bad.macro") + ":2: left out, expected a time"));
}

TEST_F(PanelDriverTest, AlarmIsShownAsValueAndEvent) {
    EXPECT_TRUE(sut.sendFID("ALARM", parameters({{"source", "SYS"}, {"text", "hot"}, {"load", "3"}})));
    EXPECT_EQ(host.calls.count("ALARM string SYS: hot"), 1);
    EXPECT_EQ(host.calls.count("event ALARM SYS: hot"), 1);
    EXPECT_THAT(log.text(), HasSubstr("PANEL: alarm from SYS: hot"));
}

TEST_F(PanelDriverTest, LongAlarmIsCutToWhatAValueHolds) {
    const std::string text(300, 'x');
    EXPECT_TRUE(sut.sendFID("ALARM", parameters({{"source", "SYS"}, {"text", text}})));
    EXPECT_EQ(host.calls.count("ALARM string SYS: " + std::string(250, 'x')), 1);
}

TEST_F(PanelDriverTest, ClearedAlarmIsNoLongerKnown) {
    ASSERT_TRUE(sut.sendFID("ALARM", parameters({{"source", "SYS"}, {"text", "hot"}})));
    EXPECT_TRUE(sut.sendFID("ALARM.CLEAR", {}));
    // The macro thread has a value of its own to say.
    std::vector<std::string> lines = host.calls.lines();
    std::erase_if(lines, [](const std::string& line) { return line.find("ALARM") == std::string::npos; });
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines.back(), "ALARM unset");
}

TEST_F(PanelDriverTest, NamesThatFillAValueAreAllShown) {
    const std::string three =
        std::string(80, 'a') + ", " + std::string(80, 'b') + ", " + std::string(80, 'c');
    for (const char letter : {'a', 'b', 'c'})
        record(std::string(80, letter), {});
    record(std::string(9, 'd'), {});
    EXPECT_TRUE(host.calls.waitFor("MACRO.NAMES string " + three + ", ddddddddd"));
}

TEST_F(PanelDriverTest, NamesThatDoNotFitAreLeftOutWhole) {
    const std::string three =
        std::string(80, 'a') + ", " + std::string(80, 'b') + ", " + std::string(80, 'c');
    for (const char letter : {'a', 'b', 'c'})
        record(std::string(80, letter), {});
    record(std::string(9, 'd'), {});
    record("e", {});
    EXPECT_TRUE(host.calls.waitFor("MACRO.NAMES string " + three + ", ..."));
}

TEST_F(PanelDriverTest, ShowStatePrintsOneLine) {
    record("fill", {});
    testing::internal::CaptureStdout();
    EXPECT_TRUE(sut.showState());
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "macro system idle, 1 macros, not all saved\n");
}

TEST_F(PanelDriverTest, ShowsNoMacroNameAsItIs) {
    ASSERT_TRUE(sut.sendFID("MACRO.RECORD", parameters({{"name",
                                                         "m\xc2\x9b"
                                                         "2J\x9b"}})));
    testing::internal::CaptureStdout();
    EXPECT_TRUE(sut.showState());
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "macro system recording \"m\\u009b2J\\x9b\", 0 macros\n");
}

TEST_F(PanelDriverTest, TakesAndReportsNothingAfterItsEnd) {
    sut.deinitialize();
    const auto before = host.calls.lines();
    EXPECT_FALSE(sut.sendFID("ALARM", parameters({{"source", "SYS"}, {"text", "hot"}})));
    macros().fidDispatched("A.B", {});
    EXPECT_EQ(host.calls.lines(), before);
}

TEST_F(PanelDriverTest, EndSavesWhatWasRecorded) {
    record("fill", {});
    sut.deinitialize();
    EXPECT_TRUE(nvram.contains("fill.macro"));
}

TEST(PanelDriver, TakesNoFidBeforeItsStart) {
    PanelDriver sut;
    EXPECT_FALSE(sut.sendFID("MACRO.STOP", {}));
}

TEST(PanelDriver, DoesNotStartWithoutAPanelState) {
    LogFile log;
    PanelDriver sut;
    sut.setConfiguration(0, "PANEL", "", "", "", "", "");
    EXPECT_FALSE(sut.initializationCompleted());
    EXPECT_THAT(log.text(), HasSubstr("PANEL: not started, there is nowhere to show anything"));
}

TEST(PanelDriver, EndsWithoutEverHavingStarted) {
    PanelDriver sut;
    EXPECT_TRUE(sut.deinitialize());
}

}  // namespace
