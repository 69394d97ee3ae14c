#include "MacroSystem.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>
#include <sstream>

#include "CallLog.h"
#include "InterfaceIds.h"
#include "TemporaryDirectory.h"

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using namespace std::chrono_literals;

namespace {

/// Notes everything ("send A.B x=1", "idle", "event MACRO.PLAYED m", "log 3 text").
class MacroHost final : public IMacroHost {
public:
    CallLog calls;
    std::function<void(const std::string& fid)> onSend;
    std::function<void()> onLog;
    bool sendResult = true;

    bool sendMacroFid(const std::string& fid, const FIDParameterList& parameters) override {
        std::ostringstream text;
        text << "send " << fid;
        if (!parameters.empty())
            text << ' ' << parameters;
        calls.add(text.str());
        if (onSend)
            onSend(fid);
        return sendResult;
    }
    void showMacroState(const MacroState& state, const std::optional<MacroState>&) override {
        static constexpr const char* words[] = {"idle", "recording", "playing"};
        calls.add(std::string(words[static_cast<std::size_t>(state.activity)]) + " \"" + state.name + "\" " +
                  std::to_string(state.names.size()) + " macros" + (state.unsaved ? " unsaved" : ""));
    }
    void macroEvent(const std::string& eventID, const std::string& name) override {
        calls.add("event " + eventID + " " + name);
    }
    void macroLog(sal::LogOutput::ELevel level, const std::string& text) override {
        calls.add("log " + std::to_string(level) + " " + text);
        if (onLog)
            onLog();
    }
};

class MacroSystemTest : public testing::Test {
protected:
    MacroSystemTest() { EXPECT_TRUE(sut.start("PANEL", directory.path())); }

    void dispatch(const std::string& fid, const std::string& name = {}, const std::string& value = {}) {
        FIDParameterList parameters;
        if (!name.empty())
            parameters.add(name, value);
        sut.fidDispatched(fid, parameters);
    }

    void record(const std::string& name, const std::vector<std::string>& fids) {
        ASSERT_TRUE(sut.startRecording(name));
        for (const std::string& fid : fids)
            dispatch(fid);
        ASSERT_TRUE(sut.stopRecording());
    }

    std::vector<std::string> recordedFids(const std::string& name) const {
        std::vector<std::string> fids;
        for (const MacroStep& step : sut.macroSteps(name))
            fids.push_back(step.fid);
        return fids;
    }

    TemporaryDirectory directory;
    MacroHost host;
    /// The time of recordings; a playback runs in real time.
    MacroSystem::Clock::time_point now{};
    MacroSystem sut{host, [this] { return now; }};
};

TEST_F(MacroSystemTest, AnswersItsOwnIdentifierAlone) {
    EXPECT_EQ(sut.queryInterface(1107), static_cast<IInterface*>(&sut));
    EXPECT_EQ(sut.queryInterface(1100), nullptr);
}

TEST_F(MacroSystemTest, RecordsFidsWithParametersAndTimes) {
    ASSERT_TRUE(sut.startRecording("m"));
    now += 20ms;
    dispatch("AXIS1.MOVE", "x", "10");
    now += 230ms;
    dispatch("PUMP.ON");
    ASSERT_TRUE(sut.stopRecording());

    const std::vector<MacroStep> steps = sut.macroSteps("m");
    ASSERT_EQ(steps.size(), 2u);
    EXPECT_EQ(steps[0].offset, 20ms);
    EXPECT_EQ(steps[0].fid, "AXIS1.MOVE");
    EXPECT_EQ(steps[0].parameters.value("x"), "10");
    EXPECT_EQ(steps[1].offset, 250ms);
    EXPECT_EQ(steps[1].fid, "PUMP.ON");
}

TEST_F(MacroSystemTest, RecordsNothingUntilTold) {
    dispatch("A.EARLY");
    record("m", {"A.B"});
    dispatch("A.LATE");
    EXPECT_THAT(recordedFids("m"), ElementsAre("A.B"));
}

TEST_F(MacroSystemTest, DoesNotRecordWhatControlsMacros) {
    record("m", {"PANEL.MACRO.STOP", "PANEL.ALARM", "OTHER.MACRO.STOP"});
    EXPECT_THAT(recordedFids("m"), ElementsAre("PANEL.ALARM", "OTHER.MACRO.STOP"));
}

TEST_F(MacroSystemTest, DoesNotRecordWhatGoesNowhere) {
    record("m", {"NODOT"});
    EXPECT_THAT(recordedFids("m"), IsEmpty());
}

TEST_F(MacroSystemTest, DoesNotRecordTheFidsItPlays) {
    record("m", {"A.B"});
    host.onSend = [this](const std::string& fid) {
        EXPECT_FALSE(sut.startRecording("second"));
        dispatch(fid);
    };
    ASSERT_TRUE(sut.play("m"));
    ASSERT_TRUE(host.calls.waitFor("event MACRO.PLAYED m"));
    EXPECT_THAT(sut.macroNames(), ElementsAre("m"));
}

TEST_F(MacroSystemTest, CancelledRecordingIsGone) {
    ASSERT_TRUE(sut.startRecording("m"));
    EXPECT_TRUE(sut.cancelRecording());
    EXPECT_FALSE(sut.isRecording());
    EXPECT_THAT(sut.macroNames(), IsEmpty());
}

TEST_F(MacroSystemTest, CancelledRecordingLeavesTheMacroThatWasThere) {
    record("m", {"A.OLD"});
    ASSERT_TRUE(sut.startRecording("m"));
    dispatch("A.NEW");
    ASSERT_TRUE(sut.cancelRecording());
    EXPECT_THAT(recordedFids("m"), ElementsAre("A.OLD"));
}

TEST_F(MacroSystemTest, RecordingAgainReplacesTheMacro) {
    record("m", {"A.OLD"});
    record("m", {"A.NEW"});
    EXPECT_THAT(recordedFids("m"), ElementsAre("A.NEW"));
}

TEST_F(MacroSystemTest, FullRecordingTakesNoMoreAndSaysSoOnce) {
    ASSERT_TRUE(sut.startRecording("m"));
    for (int i = 0; i < 10002; ++i)
        dispatch("A.B");
    ASSERT_TRUE(sut.stopRecording());
    EXPECT_EQ(sut.macroSteps("m").size(), 10000u);
    EXPECT_EQ(host.calls.count("log 3 macro \"m\" is full with 10000 FIDs; further ones are not recorded"),
              1);
}

TEST_F(MacroSystemTest, RefusesASecondRecording) {
    ASSERT_TRUE(sut.startRecording("m"));
    EXPECT_FALSE(sut.startRecording("n"));
    EXPECT_EQ(host.calls.count("log 3 cannot record macro \"n\": macro \"m\" is being recorded"), 1);
}

TEST_F(MacroSystemTest, RefusesARecordingWithoutName) {
    EXPECT_FALSE(sut.startRecording(""));
    EXPECT_EQ(host.calls.count(
                  "log 3 cannot record macro \"\": a name has 1 to 80 bytes and no control characters"),
              1);
}

TEST_F(MacroSystemTest, RefusesToKeepWhatIsNotRecorded) {
    EXPECT_FALSE(sut.stopRecording());
    EXPECT_FALSE(sut.cancelRecording());
}

TEST_F(MacroSystemTest, PlaysTheFidsInOrderWithTheirParameters) {
    ASSERT_TRUE(sut.startRecording("m"));
    dispatch("A.FIRST", "x", "1");
    dispatch("B.SECOND");
    ASSERT_TRUE(sut.stopRecording());
    ASSERT_TRUE(sut.play("m"));
    ASSERT_TRUE(host.calls.waitFor("event MACRO.PLAYED m"));
    EXPECT_THAT(host.calls.linesOf("send"), ElementsAre("send A.FIRST x=1", "send B.SECOND"));
}

TEST_F(MacroSystemTest, PlaysNoFidBeforeItsTime) {
    ASSERT_TRUE(sut.startRecording("m"));
    now += 300ms;
    dispatch("A.B");
    ASSERT_TRUE(sut.stopRecording());
    const auto began = MacroSystem::Clock::now();
    ASSERT_TRUE(sut.play("m"));
    ASSERT_TRUE(host.calls.waitFor("send A.B"));
    EXPECT_GE(MacroSystem::Clock::now() - began, 300ms);
}

TEST_F(MacroSystemTest, PlaysAnEmptyMacroToItsEnd) {
    record("m", {});
    ASSERT_TRUE(sut.play("m"));
    EXPECT_TRUE(host.calls.waitFor("event MACRO.PLAYED m"));
}

TEST_F(MacroSystemTest, PlaysTwiceInARow) {
    record("m", {"A.B"});
    ASSERT_TRUE(sut.play("m"));
    ASSERT_TRUE(host.calls.waitFor("event MACRO.PLAYED m"));
    ASSERT_TRUE(sut.play("m"));
    EXPECT_TRUE(host.calls.waitFor("event MACRO.PLAYED m", 2));
    EXPECT_EQ(host.calls.count("send A.B"), 2);
}

TEST_F(MacroSystemTest, RefusesToPlayAnUnknownMacro) {
    EXPECT_FALSE(sut.play("m"));
    EXPECT_EQ(host.calls.count("log 3 cannot play macro \"m\": there is none of that name"), 1);
}

TEST_F(MacroSystemTest, RefusesToPlayWhileItRecords) {
    record("m", {"A.B"});
    ASSERT_TRUE(sut.startRecording("n"));
    EXPECT_FALSE(sut.play("m"));
    EXPECT_EQ(host.calls.count("log 3 cannot play macro \"m\": macro \"n\" is being recorded"), 1);
}

/// Plays a macro whose second FID is an hour away.
class MacroSystemLongPlayback : public MacroSystemTest {
protected:
    MacroSystemLongPlayback() {
        EXPECT_TRUE(sut.startRecording("long"));
        dispatch("A.NOW");
        now += 1h;
        dispatch("A.LATER");
        EXPECT_TRUE(sut.stopRecording());
        EXPECT_TRUE(sut.play("long"));
        EXPECT_TRUE(host.calls.waitFor("send A.NOW"));
    }
};

TEST_F(MacroSystemLongPlayback, IsPlayingUntilStopped) {
    EXPECT_TRUE(sut.isPlaying());
    EXPECT_TRUE(sut.stopPlaying());
    EXPECT_FALSE(sut.isPlaying());
}

TEST_F(MacroSystemLongPlayback, StoppedPlaybackSendsNoMore) {
    ASSERT_TRUE(sut.stopPlaying());
    EXPECT_TRUE(host.calls.waitFor("event MACRO.STOPPED long"));
    EXPECT_THAT(host.calls.linesOf("send"), ElementsAre("send A.NOW"));
    EXPECT_EQ(host.calls.count("log 4 macro \"long\" stopped after 1 of 2 FIDs"), 1);
}

TEST_F(MacroSystemLongPlayback, RecordingIsPossibleAsSoonAsItIsStopped) {
    ASSERT_TRUE(sut.stopPlaying());
    EXPECT_TRUE(sut.startRecording("n"));
}

TEST_F(MacroSystemLongPlayback, RefusesASecondPlayback) {
    EXPECT_FALSE(sut.play("long"));
    EXPECT_EQ(host.calls.count("log 3 cannot play macro \"long\": macro \"long\" is being played"), 1);
}

TEST_F(MacroSystemLongPlayback, DeletingThePlayedMacroDoesNotDisturbIt) {
    ASSERT_TRUE(sut.remove("long"));
    EXPECT_TRUE(sut.isPlaying());
}

TEST_F(MacroSystemLongPlayback, StopEndsThePlayback) {
    sut.stop();
    EXPECT_FALSE(sut.isPlaying());
    EXPECT_THAT(host.calls.linesOf("send"), ElementsAre("send A.NOW"));
}

TEST_F(MacroSystemLongPlayback, IsShown) {
    EXPECT_TRUE(host.calls.waitFor("playing \"long\" 1 macros unsaved"));
    ASSERT_TRUE(sut.stopPlaying());
    EXPECT_TRUE(host.calls.waitFor("event MACRO.STOPPED long"));
    EXPECT_EQ(host.calls.linesOf("idle").back(), "idle \"\" 1 macros unsaved");
}

TEST_F(MacroSystemTest, PlayedFidMayStopThePlayback) {
    record("m", {"A.STOP", "A.NEVER"});
    host.onSend = [this](const std::string&) { EXPECT_TRUE(sut.stopPlaying()); };
    ASSERT_TRUE(sut.play("m"));
    EXPECT_TRUE(host.calls.waitFor("event MACRO.STOPPED m"));
    EXPECT_THAT(host.calls.linesOf("send"), ElementsAre("send A.STOP"));
}

TEST_F(MacroSystemTest, NothingIsLockedDuringASend) {
    record("m", {"A.B"});
    host.onSend = [this](const std::string&) {
        // From another thread, as a driver's answer would come.
        std::async(std::launch::async, [this] {
            sut.fidDispatched("B.ANSWER", {});
            EXPECT_TRUE(sut.isPlaying());
            EXPECT_TRUE(sut.save());
        }).get();
    };
    ASSERT_TRUE(sut.play("m"));
    EXPECT_TRUE(host.calls.waitFor("event MACRO.PLAYED m"));
}

TEST_F(MacroSystemTest, TellsHowManyFidsCouldNotBeSent) {
    record("m", {"A.B", "A.C"});
    host.sendResult = false;
    ASSERT_TRUE(sut.play("m"));
    EXPECT_TRUE(host.calls.waitFor("log 2 macro \"m\" played, but 2 FIDs could not be sent"));
}

TEST_F(MacroSystemTest, CountsTheUnsentFidsOfEachPlaybackAnew) {
    record("m", {"A.B"});
    host.sendResult = false;
    ASSERT_TRUE(sut.play("m"));
    ASSERT_TRUE(host.calls.waitFor("event MACRO.PLAYED m"));
    ASSERT_TRUE(sut.play("m"));
    EXPECT_TRUE(host.calls.waitFor("log 2 macro \"m\" played, but 1 FIDs could not be sent", 2));
}

TEST_F(MacroSystemTest, RefusesToStopWhatIsNotPlayed) {
    EXPECT_FALSE(sut.stopPlaying());
}

TEST_F(MacroSystemTest, NamesAreInByteOrder) {
    record("b", {});
    record("a", {});
    record("B", {});
    EXPECT_THAT(sut.macroNames(), ElementsAre("B", "a", "b"));
}

TEST_F(MacroSystemTest, UnknownMacroHasNoSteps) {
    EXPECT_THAT(sut.macroSteps("m"), IsEmpty());
}

TEST_F(MacroSystemTest, RemovesAMacro) {
    record("m", {});
    EXPECT_TRUE(sut.remove("m"));
    EXPECT_THAT(sut.macroNames(), IsEmpty());
    EXPECT_FALSE(sut.remove("m"));
}

TEST_F(MacroSystemTest, RenamesAMacro) {
    record("m", {"A.B"});
    EXPECT_TRUE(sut.rename("m", "n"));
    EXPECT_THAT(sut.macroNames(), ElementsAre("n"));
    EXPECT_THAT(recordedFids("n"), ElementsAre("A.B"));
}

TEST_F(MacroSystemTest, RefusesToRenameOverAMacro) {
    record("m", {});
    record("n", {});
    EXPECT_FALSE(sut.rename("m", "n"));
    EXPECT_EQ(host.calls.count("log 3 cannot rename macro \"m\" to \"n\": there is one of that name already"),
              1);
}

TEST_F(MacroSystemTest, RefusesToRenameAnUnknownMacro) {
    EXPECT_FALSE(sut.rename("m", "n"));
}

TEST_F(MacroSystemTest, RefusesAnEmptyNewName) {
    record("m", {});
    EXPECT_FALSE(sut.rename("m", ""));
    EXPECT_THAT(sut.macroNames(), ElementsAre("m"));
}

TEST_F(MacroSystemTest, LoadDropsWhatWasNotSaved) {
    record("kept", {"A.B"});
    ASSERT_TRUE(sut.save());
    record("lost", {});
    ASSERT_TRUE(sut.remove("kept"));
    ASSERT_TRUE(sut.load());
    EXPECT_THAT(sut.macroNames(), ElementsAre("kept"));
}

TEST_F(MacroSystemTest, SaveRemovesTheFilesOfDeletedAndRenamedMacros) {
    record("deleted", {});
    record("old", {});
    ASSERT_TRUE(sut.save());
    ASSERT_TRUE(sut.remove("deleted"));
    ASSERT_TRUE(sut.rename("old", "new"));
    ASSERT_TRUE(sut.save());
    EXPECT_FALSE(directory.contains("deleted.macro"));
    EXPECT_FALSE(directory.contains("old.macro"));
    EXPECT_TRUE(directory.contains("new.macro"));
}

TEST_F(MacroSystemTest, SaveKeepsAMacroThatWasDeletedAndRecordedAgain) {
    record("m", {});
    ASSERT_TRUE(sut.save());
    ASSERT_TRUE(sut.remove("m"));
    record("m", {"A.B"});
    ASSERT_TRUE(sut.save());
    EXPECT_EQ(directory.read("m.macro"), "macro 1\n0 A.B\nend\n");
}

TEST_F(MacroSystemTest, SaveLeavesBrokenFilesAlone) {
    directory.write("broken.macro", "?");
    ASSERT_TRUE(sut.load());
    record("m", {});
    ASSERT_TRUE(sut.save());
    EXPECT_EQ(directory.read("broken.macro"), "?");
}

TEST_F(MacroSystemTest, FailedSaveLeavesTheMacroUnsaved) {
    std::filesystem::create_directory(directory.path(".m.macro.tmp"));
    record("m", {});
    EXPECT_FALSE(sut.save());
    EXPECT_TRUE(sut.state().unsaved);
    std::filesystem::remove(directory.path(".m.macro.tmp"));
    EXPECT_TRUE(sut.save());
    EXPECT_FALSE(sut.state().unsaved);
}

TEST_F(MacroSystemTest, RecordedAgainDuringASaveStaysUnsaved) {
    record("early", {"A.OLD"});
    record("late", {});
    // The save of "late" fails and so logs, after "early" was written.
    std::filesystem::create_directory(directory.path(".late.macro.tmp"));
    bool recording = false;
    host.onLog = [&] {
        if (!std::exchange(recording, true))
            record("early", {"A.NEW"});
    };
    EXPECT_FALSE(sut.save());
    std::filesystem::remove(directory.path(".late.macro.tmp"));
    EXPECT_TRUE(sut.save());
    EXPECT_EQ(directory.read("early.macro"), "macro 1\n0 A.NEW\nend\n");
}

TEST_F(MacroSystemTest, FailedLoadKeepsWhatIsThere) {
    record("m", {});
    std::filesystem::remove_all(directory.path());
    EXPECT_FALSE(sut.load());
    EXPECT_THAT(sut.macroNames(), ElementsAre("m"));
}

TEST_F(MacroSystemTest, StopSaves) {
    record("m", {"A.B"});
    sut.stop();
    EXPECT_EQ(directory.read("m.macro"), "macro 1\n0 A.B\nend\n");
}

TEST_F(MacroSystemTest, StopDropsARecordingAndSaysSo) {
    ASSERT_TRUE(sut.startRecording("m"));
    sut.stop();
    EXPECT_FALSE(sut.isRecording());
    EXPECT_EQ(host.calls.count("log 3 recording of macro \"m\" dropped, the driver stops"), 1);
    EXPECT_FALSE(directory.contains("m.macro"));
}

TEST_F(MacroSystemTest, StoppedSystemRefusesToPlayAndRecord) {
    record("m", {});
    sut.stop();
    EXPECT_FALSE(sut.play("m"));
    EXPECT_FALSE(sut.startRecording("n"));
}

TEST_F(MacroSystemTest, StartsAgainWithWhatItSaved) {
    record("m", {"A.B"});
    sut.stop();
    ASSERT_TRUE(sut.start("PANEL", directory.path()));
    EXPECT_THAT(sut.macroNames(), ElementsAre("m"));
    ASSERT_TRUE(sut.play("m"));
    EXPECT_TRUE(host.calls.waitFor("send A.B"));
}

TEST_F(MacroSystemTest, ShowsItsStateAgainWhenStartedAgain) {
    ASSERT_TRUE(host.calls.waitFor("idle \"\" 0 macros"));
    sut.stop();
    ASSERT_TRUE(sut.start("PANEL", directory.path()));
    EXPECT_TRUE(host.calls.waitFor("idle \"\" 0 macros", 2));
}

TEST_F(MacroSystemTest, ShowsItsStateOnceStarted) {
    EXPECT_TRUE(host.calls.waitFor("idle \"\" 0 macros"));
}

TEST_F(MacroSystemTest, ShowsARecordingAndItsEnd) {
    ASSERT_TRUE(sut.startRecording("m"));
    EXPECT_TRUE(host.calls.waitFor("recording \"m\" 0 macros"));
    ASSERT_TRUE(sut.stopRecording());
    EXPECT_TRUE(host.calls.waitFor("idle \"\" 1 macros unsaved"));
    EXPECT_TRUE(host.calls.waitFor("event MACRO.RECORDED m"));
    ASSERT_TRUE(sut.save());
    EXPECT_TRUE(host.calls.waitFor("idle \"\" 1 macros"));
}

TEST_F(MacroSystemTest, ReportsNothingAfterStop) {
    sut.stop();
    const auto before = host.calls.lines();
    sut.fidDispatched("A.B", {});
    EXPECT_EQ(host.calls.lines(), before);
}

TEST_F(MacroSystemTest, FidsFromManyThreadsAreAllRecorded) {
    ASSERT_TRUE(sut.startRecording("m"));
    {
        std::vector<std::future<void>> senders;
        for (int sender = 0; sender < 4; ++sender) {
            senders.push_back(std::async(std::launch::async, [this] {
                for (int i = 0; i < 500; ++i)
                    dispatch("A.B");
            }));
        }
    }
    ASSERT_TRUE(sut.stopRecording());
    EXPECT_EQ(sut.macroSteps("m").size(), 2000u);
}

TEST(MacroSystem, RefusesEverythingBeforeItsStart) {
    MacroHost host;
    MacroSystem sut(host);
    EXPECT_FALSE(sut.startRecording("m"));
    EXPECT_FALSE(sut.play("m"));
    EXPECT_FALSE(sut.load());
    EXPECT_FALSE(sut.save());
    EXPECT_THAT(host.calls.lines(), Contains("log 3 cannot play macro \"m\": the driver is not running"));
}

TEST(MacroSystem, StartsWithoutItsDirectoryAndSaysSo) {
    MacroHost host;
    MacroSystem sut(host);
    EXPECT_TRUE(sut.start("PANEL", "/nonexistent"));
    EXPECT_EQ(host.calls.count("log 2 cannot read the macro directory \"/nonexistent\": No such file or "
                               "directory"),
              1);
}

}  // namespace
