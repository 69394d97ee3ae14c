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
    Completion m_sut{m_drivers, m_store};
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

TEST_F(CompletionTest, OtherCommandsTakeNothing) {
    begin();
    EXPECT_EQ(Words{}, m_sut.words({"queues"}, ""));
    EXPECT_EQ(Words{}, m_sut.words({"quit"}, "S"));
}
