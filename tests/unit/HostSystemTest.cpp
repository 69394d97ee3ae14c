#include "HostSystem.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "InterfaceIds.h"
#include "LogCapture.h"
#include "SilentLinkHost.h"

namespace {

class HostSystemTest : public testing::Test {
protected:
    LogCapture m_log;
    std::vector<std::string> m_posted;
    bool m_hasRoom = true;
    HostSystem m_sut{{"sendFID", "quit"}, [this](const std::string& line) {
                         m_posted.push_back(line);
                         return m_hasRoom;
                     }};
};

using Lines = std::vector<std::string>;

}  // namespace

TEST_F(HostSystemTest, PostsAnAllowedCommandWithItsArguments) {
    m_sut.executeCommand("sendFID", "SYS.REPORT x=1");
    m_sut.executeCommand("quit", "");
    EXPECT_EQ((Lines{"sendFID SYS.REPORT x=1", "quit"}), m_posted);
    EXPECT_EQ("", m_log.finish());
}

TEST_F(HostSystemTest, RefusesEverythingElseByName) {
    m_sut.executeCommand("reloadDriver", "SYS");
    EXPECT_TRUE(m_posted.empty());
    EXPECT_NE(std::string::npos, m_log.finish().find("a driver's command \"reloadDriver\" is refused; "
                                                     "--allow-command reloadDriver would allow it"));
}

TEST_F(HostSystemTest, AllowedNameMustBeTheWholeCommand) {
    m_sut.executeCommand("sendFID A.B", "");
    m_sut.executeCommand("sendfid", "A.B");
    m_sut.executeCommand("", "sendFID A.B");
    EXPECT_TRUE(m_posted.empty());
}

TEST_F(HostSystemTest, ArgumentsCannotBeginASecondLine) {
    m_sut.executeCommand("sendFID", "A.B\nquit");
    EXPECT_TRUE(m_posted.empty());
    EXPECT_NE(std::string::npos, m_log.finish().find("its arguments hold control characters"));
}

TEST_F(HostSystemTest, SaysWhenThereIsNoRoom) {
    m_hasRoom = false;
    m_sut.executeCommand("quit", "");
    EXPECT_NE(std::string::npos, m_log.finish().find("a driver's command \"quit\" is dropped"));
}

TEST_F(HostSystemTest, CommandThatIsRefusedAgainAndAgainIsToldOnce) {
    m_hasRoom = false;
    for (int i = 0; i < 1000; ++i) {
        m_sut.executeCommand("reloadDriver", "SYS");
        m_sut.executeCommand("sendFID", "A.B\nquit");
        m_sut.executeCommand("quit", "");
    }
    const std::string text = m_log.finish();
    EXPECT_EQ(3, std::count(text.begin(), text.end(), '\n')) << text;
}

TEST_F(HostSystemTest, EachCommandThatIsRefusedIsTold) {
    m_sut.executeCommand("reloadDriver", "SYS");
    m_sut.executeCommand("stopDriver", "SYS");
    const std::string text = m_log.finish();
    EXPECT_NE(std::string::npos, text.find("a driver's command \"reloadDriver\" is refused"));
    EXPECT_NE(std::string::npos, text.find("a driver's command \"stopDriver\" is refused"));
}

TEST_F(HostSystemTest, CommandsOfEverNewNamesAreNotToldWithoutEnd) {
    for (int i = 0; i < 1000; ++i)
        m_sut.executeCommand("command" + std::to_string(i), "");
    const std::string text = m_log.finish();
    EXPECT_EQ(101, std::count(text.begin(), text.end(), '\n'));
}

TEST_F(HostSystemTest, HandsOutTheSender) {
    EXPECT_EQ(static_cast<IFunctionID*>(&m_sut.sender()),
              dynamic_cast<IFunctionID*>(m_sut.queryInterface(IID_IFunctionID)));
    EXPECT_EQ(nullptr, m_sut.queryInterface(IID_IPanelState));
}

TEST_F(HostSystemTest, GivesLinksToOtherWorkplacesWhatTheyAreMeantToHave) {
    SilentLinkHost links;
    EXPECT_EQ(m_sut.queryInterface(ILinkHost::s_id), nullptr);
    m_sut.setLinks(links);
    EXPECT_EQ(dynamic_cast<ILinkHost*>(m_sut.queryInterface(ILinkHost::s_id)), &links);
    EXPECT_NE(m_sut.queryInterface(IID_IFunctionID), nullptr);
}
