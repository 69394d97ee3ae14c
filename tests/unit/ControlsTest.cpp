#include "Controls.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <set>
#include <string>
#include <vector>

#include "LogCapture.h"

namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class ControlsTest : public testing::Test {
protected:
    static ApiCaller session(const std::string& name, std::uint64_t number, ERole role = ERole::Operate) {
        return {.role = role,
                .name = name,
                .uid = 1000,
                .place = "web session " + std::to_string(number) + " from 192.0.2.7",
                .webSession = number};
    }
    /// On the control socket, each time by another connection.
    ApiCaller local(const std::string& name, unsigned uid) {
        return {.role = ERole::Operate, .name = name, .uid = uid, .session = ++m_connections};
    }
    /// Who has them and from where; empty for nobody.
    std::string holder() {
        const auto found = m_sut.holder();
        return found ? found->caller.name + ", " + found->from() : std::string();
    }

    /// Anna has them; her only page is closed and comes back.
    void closeAndOpenAfter(std::chrono::seconds time) {
        m_sut.pageCame(4);
        m_sut.take(session("anna", 4), false);
        m_sut.pageWent(4);
        m_now += time;
        m_sut.pageCame(4);
    }

    LogCapture m_log;
    std::set<std::uint64_t> m_open{3, 4};
    std::vector<std::chrono::milliseconds> m_looks;
    Controls::Clock::time_point m_now = Controls::Clock::now();
    std::uint64_t m_connections = 0;
    Controls m_sut{{.isOpen = [this](std::uint64_t number) { return m_open.contains(number); },
                    .lookAfter = [this](std::chrono::milliseconds time) { m_looks.push_back(time); },
                    .now = [this] { return m_now; }}};
};

}  // namespace

TEST_F(ControlsTest, NobodyHasThemAtTheBeginning) {
    EXPECT_EQ("", holder());
    const auto change = m_sut.giveBack(session("anna", 4));
    EXPECT_TRUE(change.isDone);
    EXPECT_FALSE(change.former);
}

TEST_F(ControlsTest, WhoTakesThemHasThemUntilTheyAreGivenBack) {
    m_sut.pageCame(4);
    const auto before = std::chrono::system_clock::now();
    EXPECT_TRUE(m_sut.take(session("anna", 4), false).isDone);
    EXPECT_EQ("anna, web session 4 from 192.0.2.7", holder());
    EXPECT_GE(m_sut.holder()->since, before);
    EXPECT_TRUE(m_sut.giveBack(session("anna", 4)).isDone);
    EXPECT_EQ("", holder());
}

TEST_F(ControlsTest, WhoHasThemAlreadyKeepsTheFirstTime) {
    m_sut.take(session("anna", 4), false);
    const auto since = m_sut.holder()->since;
    const auto change = m_sut.take(session("anna", 4), true);
    EXPECT_TRUE(change.isDone);
    EXPECT_TRUE(Controls::isSame(change.former->caller, session("anna", 4)));
    EXPECT_EQ(since, m_sut.holder()->since);
}

TEST_F(ControlsTest, AnotherTakesThemOverAndIsToldFromWhom) {
    m_sut.take(session("otto", 3), false);
    const auto change = m_sut.take(session("anna", 4), false);
    EXPECT_TRUE(change.isDone);
    EXPECT_EQ("otto (web session 3 from 192.0.2.7)", change.former->caller.who());
    EXPECT_EQ("anna, web session 4 from 192.0.2.7", holder());
}

TEST_F(ControlsTest, WhoWantsThemOnlyIfTheyAreFreeDoesNotTakeThemFromAnother) {
    m_sut.take(session("otto", 3), true);
    const auto change = m_sut.take(session("anna", 4), true);
    EXPECT_FALSE(change.isDone);
    EXPECT_EQ("otto", change.former->caller.name);
    EXPECT_EQ("otto, web session 3 from 192.0.2.7", holder());
}

TEST_F(ControlsTest, OnlyTheHolderOrAnAdminGivesThemBack) {
    m_sut.take(session("otto", 3), false);
    EXPECT_FALSE(m_sut.giveBack(session("anna", 4)).isDone);
    EXPECT_EQ("otto, web session 3 from 192.0.2.7", holder());
    EXPECT_TRUE(m_sut.giveBack(session("anna", 4, ERole::Admin)).isDone);
    EXPECT_EQ("", holder());
}

TEST_F(ControlsTest, CallerOnTheControlSocketIsKnownByItsUser) {
    m_sut.take(local("otto", 1001), false);
    EXPECT_EQ("otto, the control socket", holder());
    EXPECT_FALSE(m_sut.giveBack(local("anna", 1000)).isDone);
    EXPECT_FALSE(m_sut.giveBack(session("anna", 4)).isDone);
    m_now += 24h;
    EXPECT_EQ("otto, the control socket", holder()) << "it has no page that could be gone";
    EXPECT_TRUE(m_sut.giveBack(local("otto", 1001)).isDone);
    EXPECT_EQ("", holder());
}

TEST_F(ControlsTest, SessionThatHasEndedHasThemNoLonger) {
    m_sut.pageCame(4);
    m_sut.take(session("anna", 4), false);
    m_open.erase(4);
    EXPECT_EQ("", holder());
    EXPECT_THAT(m_log.text(), HasSubstr("anna (web session 4 from 192.0.2.7) has the controls no longer: its "
                                        "session has ended\n"));
}

TEST_F(ControlsTest, AMinuteAfterTheLastPageHasGoneTheyAreFree) {
    m_sut.pageCame(4);
    m_sut.pageCame(4);
    m_sut.take(session("anna", 4), false);
    EXPECT_THAT(m_looks, IsEmpty());
    m_sut.pageWent(4);
    m_now += 24h;
    EXPECT_EQ("anna, web session 4 from 192.0.2.7", holder()) << "the other page is open";
    EXPECT_THAT(m_looks, IsEmpty());
    m_sut.pageWent(4);
    m_now += 59s;
    EXPECT_EQ("anna, web session 4 from 192.0.2.7", holder());
    m_now += 1s;
    EXPECT_EQ("", holder());
    EXPECT_THAT(m_looks, ElementsAre(60'100ms)) << "the log is told then, whoever asks";
    EXPECT_THAT(m_log.text(), HasSubstr("anna (web session 4 from 192.0.2.7) has the controls no longer: no "
                                        "page of it was open for a minute\n"));
}

TEST_F(ControlsTest, PageThatComesBackWithinTheMinuteKeepsThem) {
    closeAndOpenAfter(59s);
    m_now += 24h;
    EXPECT_EQ("anna, web session 4 from 192.0.2.7", holder());
}

TEST_F(ControlsTest, PageThatComesBackLaterFindsThemFree) {
    closeAndOpenAfter(60s);
    EXPECT_EQ("", holder());
}

TEST_F(ControlsTest, SessionWithoutAPageHasThemForAMinute) {
    m_sut.take(session("script", 3), false);
    EXPECT_THAT(m_looks, ElementsAre(60'100ms));
    m_now += 60s;
    EXPECT_EQ("", holder());
}

TEST_F(ControlsTest, PagesOfOthersDoNotKeepThem) {
    m_sut.pageCame(3);
    m_sut.take(session("anna", 4), false);
    m_sut.pageWent(3);
    EXPECT_THAT(m_looks, ElementsAre(60'100ms));
    m_now += 60s;
    EXPECT_EQ("", holder());
}
