#include "MonitorCommand.h"

#include "ControlError.h"
#include "HangGuard.h"
#include "HostProcess.h"
#include "RecordingFixture.h"

namespace {

using testing::HasSubstr;

class MonitorCommandTest : public RecordingFixture {
protected:
    EExit run(const MonitorCommand::Choice& choice = {}) {
        return MonitorCommand(screen()).run(ringPath(), choice);
    }
    HostProcess monitor(std::vector<std::string> options) const {
        options.insert(options.begin(), {"monitor", "--ring", ringPath()});
        return HostProcess({MFD_MFCTL, std::move(options), {{"TZ", "UTC"}}, m_directory.path()});
    }
    std::string lastLine() const {
        return "mfctl: no host writes " + ringPath() + " any more; this was all of it\n";
    }
};

}  // namespace

TEST_F(MonitorCommandTest, DeadHostsRecordsArePrintedToTheirEnd) {
    m_pWriter->valueFloat(at(0), key("AXIS1", "AXIS1.POSITION"), 12.5f);
    fid(at(7), "AXIS1", "LAMP", "LAMP.ON");
    fid(at(8), "LAMP", "AXIS1", "AXIS1.MOVE", stream::EFidOutcome::QueueFull);
    m_pWriter->exit(at(9), driver("LAMP"), 9, "signal 9");
    die();
    EXPECT_EQ(EExit::Done, run());
    EXPECT_EQ(
        "14:03:22.181123 AXIS1 value AXIS1.POSITION = 12.5\n"
        "14:03:22.181130 AXIS1 fid LAMP.ON x=5 to LAMP: written\n"
        "14:03:22.181131 LAMP fid AXIS1.MOVE x=5 to AXIS1: queue full\n"
        "14:03:22.181132 LAMP exit signal 9\n",
        out());
    EXPECT_EQ(lastLine(), err());
}

TEST_F(MonitorCommandTest, JsonHasThePlaceToGoOnFrom) {
    m_pWriter->exit(at(0), driver("LAMP"), 9, "signal 9");
    m_pWriter->exit(at(1), driver("LAMP"), 9, "again");
    die();
    EXPECT_EQ(EExit::Done, run({.count = 1, .asJson = true}));
    EXPECT_EQ(R"({"number":2,"time":"2026-11-22T14:03:22.181123Z","kind":"exit","driver":"LAMP","status":9,)"
              R"("text":"signal 9","cursor":"i1:both:3"})"
              "\n",
              out());
    EXPECT_EQ(EExit::Done, run({.from = "i1:both:3", .withDate = true}));
    EXPECT_THAT(out(), HasSubstr("}\n2026-11-22 14:03:22.181124 LAMP exit again\n"));
}

TEST_F(MonitorCommandTest, OnlyWhatIsWantedIsPrintedAndCounted) {
    m_pWriter->exit(at(0), driver("LAMP"), 9, "signal 9");
    m_pWriter->valueInt(at(1), key("AXIS1", "AXIS1.POSITION"), 1);
    m_pWriter->valueInt(at(2), key("AXIS1", "AXIS1.SPEED"), 2);
    m_pWriter->valueInt(at(3), key("AXIS1", "AXIS1.SPEED"), 3);
    m_pWriter->valueInt(at(4), key("AXIS2", "AXIS2.SPEED"), 4);
    die();
    EXPECT_EQ(EExit::Done, run({.what = {{"AX*"}, {"value", "exit"}, "*.SPEED"}, .count = 2}));
    EXPECT_EQ(
        "14:03:22.181125 AXIS1 value AXIS1.SPEED = 2\n"
        "14:03:22.181126 AXIS1 value AXIS1.SPEED = 3\n",
        out());
    EXPECT_EQ("", err());
}

TEST_F(MonitorCommandTest, GapsAreLines) {
    for (int i = 0; i < 5000; ++i)
        m_pWriter->valueInt(at(i), key("AXIS1", "AXIS1.POSITION"), i);
    die();
    EXPECT_EQ(EExit::Done, run({.what = {}, .from = "i1:both:1", .count = 1}));
    EXPECT_EQ(EExit::Done, run({.what = {}, .from = "i1:both:1", .count = 1, .asJson = true}));
    EXPECT_THAT(out(), testing::ContainsRegex("gap: [0-9]+ records overwritten before they were read"));
    EXPECT_THAT(out(), HasSubstr("{\"kind\":\"gap\",\"reason\":\"lapped\",\"first\":3,"));
}

TEST_F(MonitorCommandTest, WrongWordsAreWrongUsage) {
    EXPECT_EQ(std::pair(EExit::WrongUsage,
                        std::string("\"i2:both:1\" is a place in another stream than this one, which is i1")),
              errorOf([&] { run({.what = {}, .from = "i2:both:1"}); }));
    EXPECT_THAT(errorOf([&] { run({.what = {}, .from = "yesterday"}); }).second,
                HasSubstr("\"yesterday\" is no place in a stream"));
    EXPECT_THAT(errorOf([&] {
                    run({.what = {{}, {"exits"}, ""}});
                }).second,
                HasSubstr("\"exits\" is no kind of record; there are value, event, fid,"));
    EXPECT_EQ(std::pair(EExit::Failed,
                        std::string("there are no rings to read; mfctl recording show reads what was kept")),
              errorOf([&] { MonitorCommand(screen()).run("", {}); }));
}

TEST_F(MonitorCommandTest, ProgramPrintsWhatComesAndEndsWithTheHost) {
    m_pWriter->exit(at(0), driver("LAMP"), 9, "before");
    const HostProcess program = monitor({"--from", "i1:both:3"});
    m_pWriter->exit(at(1), driver("LAMP"), 9, "first");
    ASSERT_TRUE(program.waitForOutput("14:03:22.181124 LAMP exit first\n")) << program.log();
    m_pWriter->exit(at(2), driver("LAMP"), 9, "last");
    die();
    EXPECT_TRUE(program.waitForLog(lastLine())) << program.log();
    EXPECT_EQ("14:03:22.181124 LAMP exit first\n14:03:22.181125 LAMP exit last\n", program.output());
}

TEST_F(MonitorCommandTest, ProgramBeginsWithWhatIsNewWhileTheHostLives) {
    m_pWriter->exit(at(0), driver("LAMP"), 9, "before");
    HostProcess program = monitor({"--count", "1"});
    // It has opened the rings by the time that one of these is printed.
    const bool hasCome = eventually([&] {
        m_pWriter->exit(at(1), driver("LAMP"), 9, "new");
        return !program.output().empty();
    });
    EXPECT_TRUE(hasCome) << program.log();
    EXPECT_EQ(0, program.waitForEnd());
    EXPECT_EQ("14:03:22.181124 LAMP exit new\n", program.output());
}

TEST_F(MonitorCommandTest, HasTheHostRecordMessagesAgainAndAgain) {
    int asked = 0;
    const auto ask = [&] {
        // What the host records from the first time on is printed.
        if (++asked == 3)
            m_pWriter->wire(at(0), driver("LAMP"), true, true, "UNSVAL\1N");
    };
    EXPECT_EQ(
        EExit::Done,
        run({.what = {{"LAMP"}, {"wire"}, ""}, .count = 1, .ask = ask, .askEach = std::chrono::seconds(0)}));
    EXPECT_EQ("14:03:22.181123 LAMP wire from driver UNSVAL \"N\"\n", out());
}

TEST_F(MonitorCommandTest, HostThatDoesNotAnswerLaterOnIsToldAndReadOn) {
    int asked = 0;
    const auto ask = [&] {
        if (++asked == 2)
            throw ControlError(EExit::NotFinished, "it does not answer");
        if (asked == 3)
            m_pWriter->wire(at(0), driver("LAMP"), true, true, "UNSVAL\1N");
    };
    EXPECT_EQ(EExit::Done, run({.count = 1, .ask = ask, .askEach = std::chrono::seconds(0)}));
    EXPECT_EQ("mfctl: it does not answer\n", err());
}

TEST_F(MonitorCommandTest, MessagesAreOfOneDriverWithoutAnyOtherChoice) {
    const HostProcess program = monitor({"--wire", "LAMP", "--kind", "fid"});
    EXPECT_TRUE(program.waitForLog("--kind excludes --wire")) << program.log();
}
