#include "RecordingCommands.h"

#include "HostProcess.h"
#include "RecordingFixture.h"

namespace {

using testing::HasSubstr;

class RecordingCommandsTest : public RecordingFixture {
protected:
    RecordingCommandsTest() {
        m_pWriter->valueInt(at(0), key("AXIS1", "AXIS1.POSITION"), 1);
        m_pWriter->valueInt(at(1), key("AXIS1", "AXIS1.POSITION"), 2);
        m_pWriter->exit(at(2), driver("LAMP"), 9, "signal 9");
    }
    RecordingFiles files() const { return RecordingFiles::at(ringPath()); }
    RecordingCommands sut() { return RecordingCommands(screen()); }
    /// What the program prints, and how it ends.
    std::pair<int, std::string> program(std::vector<std::string> words) const {
        words.insert(words.begin(), "recording");
        HostProcess process({MFD_MFCTL, std::move(words), {{"TZ", "UTC"}}, m_directory.path()});
        const int exit = process.waitForEnd().value_or(-1);
        return {exit, process.output() + process.log()};
    }
};

}  // namespace

TEST_F(RecordingCommandsTest, ShowPrintsWhatIsWantedWithTheDate) {
    EXPECT_EQ(EExit::Done, sut().show(files(), {.what = {{"AXIS*"}}}));
    EXPECT_EQ(
        "2026-11-22 14:03:22.181123 AXIS1 value AXIS1.POSITION = 1\n"
        "2026-11-22 14:03:22.181124 AXIS1 value AXIS1.POSITION = 2\n",
        out());
}

TEST_F(RecordingCommandsTest, ShowKeepsToTimesAndCount) {
    EXPECT_EQ(EExit::Done, sut().show(files(), {.from = "2026-11-22 14:03:22.181124", .count = 1}));
    EXPECT_EQ(EExit::Done, sut().show(files(), {.to = "2026-11-22 14:03:22.181123"}));
    EXPECT_EQ(
        "2026-11-22 14:03:22.181124 AXIS1 value AXIS1.POSITION = 2\n"
        "2026-11-22 14:03:22.181123 AXIS1 value AXIS1.POSITION = 1\n",
        out());
}

TEST_F(RecordingCommandsTest, SegmentThatIsNoRecordingIsNamed) {
    keep("00000001.seg", 1, 9);
    m_directory.write("recording/00000002.seg", "nothing");
    EXPECT_EQ(EExit::Done, sut().show(RecordingFiles::at(m_directory.path("recording")), {.count = 9}));
    EXPECT_THAT(out(), HasSubstr("LAMP exit signal 9\n"));
    EXPECT_EQ("mfctl: \"" + m_directory.path("recording/00000002.seg") + "\": no recording is in it\n",
              err());
}

TEST_F(RecordingCommandsTest, EndBeforeTheBeginningIsWrongUsage) {
    EXPECT_EQ(std::pair(EExit::WrongUsage, std::string("the end, 2h, is before the beginning, 1h")),
              errorOf([&] { sut().show(files(), {.from = "1h", .to = "2h"}); }));
}

TEST_F(RecordingCommandsTest, StatsCount) {
    EXPECT_EQ(EExit::Done, sut().stats(files(), {.what = {{}, {"value"}}}));
    EXPECT_EQ(
        "driver  kind   records\n"
        "AXIS1   value  2\n"
        "2 records, 2026-11-22 14:03:22 to 2026-11-22 14:03:22 (0 s)\n",
        out());
    EXPECT_EQ(EExit::Done, sut().stats(files(), {.asJson = true}));
    EXPECT_THAT(out(), HasSubstr("\n{\"counts\":[{\"driver\":\"AXIS1\",\"kind\":\"value\",\"records\":2},"));
}

TEST_F(RecordingCommandsTest, DiffIsBetweenTwoMoments) {
    const RecordingCommands::Choice choice{.from = "2026-11-22 14:03:22.181123",
                                           .to = "2026-11-22 14:03:22.181124"};
    EXPECT_EQ(EExit::Done, sut().diff(files(), choice));
    EXPECT_EQ(
        "driver  value           before  after  changes\n"
        "AXIS1   AXIS1.POSITION  1       2      1\n",
        out());
    EXPECT_EQ("", err());
    EXPECT_EQ(EExit::Done, sut().diff(files(), {.from = "2026-11-22 14:00", .asJson = true}));
    EXPECT_EQ("mfctl: the recording begins later than 2026-11-22 14:00: what was then is not known\n", err());
    EXPECT_THAT(out(), HasSubstr("\n[{\"after\":\"2\",\"before\":\"-\",\"changes\":2,"));
}

TEST_F(RecordingCommandsTest, ListHasJsonToo) {
    EXPECT_EQ(EExit::Done, sut().list({ringPath(), ""}, false));
    EXPECT_THAT(out(), testing::ContainsRegex("^what +from +to +records +size +path\nring "));
    EXPECT_EQ(EExit::Done, sut().list({ringPath(), ""}, true));
    EXPECT_THAT(out(), HasSubstr("\n[{\"bytes\":"));
}

TEST_F(RecordingCommandsTest, ProgramReadsWhatADeadHostLeft) {
    die();
    EXPECT_EQ(std::pair(0, std::string("2026-11-22 14:03:22.181125 LAMP exit signal 9\n")),
              program({"show", "--kind", "exit", ringPath()}));
    EXPECT_EQ(std::pair(0, std::string("2026-11-22 14:03:22.181125 LAMP exit signal 9\n")),
              program({"show", "--ring", ringPath(), "--driver", "LAMP", "--from", "2026-11-22"}));
    EXPECT_THAT(program({"stats", ringPath()}).second, HasSubstr("3 records, "));
    EXPECT_EQ(std::pair(0, "3 records in " + m_directory.path("kept.seg") + "\n"),
              program({"keep", "--ring", ringPath(), "--output", m_directory.path("kept.seg")}));
    EXPECT_EQ(std::pair(0, std::string("driver  value           before  after  changes\n"
                                       "AXIS1   AXIS1.POSITION  1       2      1\n")),
              program({"diff", m_directory.path("kept.seg"), "--driver", "AXIS1", "--from",
                       "2026-11-22 14:03:22.181123"}));
    EXPECT_THAT(
        program({"export", "--to", "csv", "--until", "2026-11-22 14:03:22.181123", ringPath()}).second,
        testing::EndsWith(",AXIS1.POSITION = 1\r\n"));
    EXPECT_THAT(program({"list", "--ring", ringPath()}).second, HasSubstr("ring of a host that has ended  "));
}

TEST_F(RecordingCommandsTest, ProgramTellsWhatIsWrong) {
    EXPECT_EQ(std::pair(2, std::string("mfctl: there is no command \"shwo\"; did you mean \"show\"?\n")),
              program({"shwo"}));
    EXPECT_EQ(
        std::pair(2, std::string("mfctl: there is no option \"--driwer\"; did you mean \"--driver\"?\n")),
        program({"show", "--driwer", "LAMP"}));
    EXPECT_EQ(2, program({}).first);
    EXPECT_EQ(2, program({"show", "--from", "noon"}).first);
    EXPECT_EQ(1, program({"show", m_directory.path("absent")}).first);
}
