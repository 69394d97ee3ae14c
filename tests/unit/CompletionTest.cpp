#include "Completion.h"

#include <gtest/gtest.h>

namespace {

using Words = std::vector<std::string>;

WorkplaceFile::Entry entry(const std::string& id) {
    WorkplaceFile::Entry made;
    made.driverID = id;
    made.interfaceType = EInterfaceTypes::Direct;
    return made;
}

class CompletionTest : public testing::Test {
protected:
    CompletionTest() {
        m_drivers.configure({entry("AXIS1"), entry("SYS")}, true);
        m_store.setStateValueInt("SYS.LOAD", 1);
        m_store.setStateValueInt("SYS.HOST", 1);
        m_store.setStateValueInt("AXIS1.POS", 1);
    }
    void begin() { m_sut.begin({"events", "help", "queues", "quit"}); }

    StateStore m_store;
    DriverTable m_drivers{m_store};
    FidMemory m_fids;
    AlarmList m_alarms;
    Completion m_sut{m_drivers, m_store, m_fids, m_alarms};
};

}  // namespace

TEST_F(CompletionTest, OffersNothingBeforeTheCommandsAreKnown) {
    EXPECT_EQ(Words{}, m_sut.words({}, "q"));
    EXPECT_EQ(Words{}, m_sut.words({"state"}, "SYS."));
}

TEST_F(CompletionTest, FirstWordIsACommand) {
    begin();
    EXPECT_EQ((Words{"queues", "quit"}), m_sut.words({}, "qu"));
    EXPECT_EQ(4u, m_sut.words({}, "").size());
}

TEST_F(CompletionTest, HelpTakesOneCommand) {
    begin();
    EXPECT_EQ(Words{"events"}, m_sut.words({"help"}, "e"));
    EXPECT_EQ(Words{}, m_sut.words({"help", "events"}, "q"));
}

TEST_F(CompletionTest, ReloadTakesOneDriver) {
    begin();
    EXPECT_EQ((Words{"AXIS1", "PANEL", "SYS"}), m_sut.words({"reloadDriver"}, ""));
    EXPECT_EQ(Words{"SYS"}, m_sut.words({"reloadDriver"}, "S"));
    EXPECT_EQ(Words{}, m_sut.words({"reloadDriver", "SYS"}, ""));
}

TEST_F(CompletionTest, FidBeginsWithADriverAndADot) {
    begin();
    EXPECT_EQ(Words{"AXIS1."}, m_sut.words({"sendFID"}, "AX"));
    EXPECT_EQ(Words{}, m_sut.words({"sendFID", "AXIS1.MOVE"}, ""));
}

TEST_F(CompletionTest, CommandsOfTheStateTakeAKey) {
    begin();
    for (const char* command : {"state", "setStateValue", "unsetStateValue", "triggerEvent"})
        EXPECT_EQ((Words{"SYS.HOST", "SYS.LOAD"}), m_sut.words({command}, "SYS.")) << command;
    EXPECT_EQ(Words{}, m_sut.words({"state", "SYS.HOST"}, "SYS."));
}

TEST_F(CompletionTest, FidsThatAreKnownAreOffered) {
    begin();
    m_fids.add("AXIS1.MOVE");
    m_fids.add("AXIS1.STOP");
    m_fids.add("GONE.STOP");
    EXPECT_EQ((Words{"AXIS1.", "AXIS1.MOVE", "AXIS1.STOP"}), m_sut.words({"sendFID"}, "AX"));
    EXPECT_EQ((Words{"AXIS1.MOVE", "AXIS1.STOP"}), m_sut.words({"sendFID"}, "AXIS1."));
    EXPECT_EQ(Words{"AXIS1.MOVE"}, m_sut.words({"sendFID"}, "AXIS1.M"));
    EXPECT_EQ(Words{"GONE.STOP"}, m_sut.words({"sendFID"}, "G"));
}

TEST_F(CompletionTest, MacrosAreOfferedByName) {
    begin();
    EXPECT_EQ(Words{"PANEL."}, m_sut.words({"sendFID"}, "P"));
    m_store.setStateValue("PANEL.MACRO.NAMES", "close, open, two words, ...");
    EXPECT_EQ(Words{"PANEL.MACRO.PLAY"}, m_sut.words({"sendFID"}, "PANEL.M"));
    EXPECT_EQ((Words{"name=close", "name=open"}), m_sut.words({"sendFID", "PANEL.MACRO.PLAY"}, ""));
    EXPECT_EQ(Words{"name=open"}, m_sut.words({"sendFID", "PANEL.MACRO.DELETE"}, "name=o"));
    EXPECT_EQ((Words{"from=close", "from=open"}), m_sut.words({"sendFID", "PANEL.MACRO.RENAME"}, "f"));
    EXPECT_EQ(Words{}, m_sut.words({"sendFID", "PANEL.MACRO.RECORD"}, ""));
    EXPECT_EQ(Words{}, m_sut.words({"sendFID", "PANEL.MACRO.PLAY", "name=open"}, ""));
}

TEST_F(CompletionTest, AlarmsAreOfferedByTheirKeys) {
    begin();
    m_alarms.eventTriggered({"PANEL.ALARM", "SYS: hot", {}, {}});
    EXPECT_EQ(Words{"SYS"}, m_sut.words({"acknowledge"}, ""));
    EXPECT_EQ(Words{"SYS"}, m_sut.words({"shelve"}, "S"));
}

TEST_F(CompletionTest, DriversAndFollowTakeAnIDAndAKey) {
    begin();
    EXPECT_EQ(Words{"SYS"}, m_sut.words({"drivers"}, "S"));
    EXPECT_EQ((Words{"SYS.HOST", "SYS.LOAD"}), m_sut.words({"follow"}, "SYS."));
}

TEST_F(CompletionTest, OtherCommandsTakeNothing) {
    begin();
    EXPECT_EQ(Words{}, m_sut.words({"queues"}, ""));
    EXPECT_EQ(Words{}, m_sut.words({"quit"}, "S"));
}
