#include "LinkAccess.h"

#include <gtest/gtest.h>
#include <poll.h>

#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "ConfiguredDriver.h"
#include "FIDHelper.h"
#include "FIDParameterList.h"
#include "FidTap.h"
#include "HangGuard.h"
#include "LogCapture.h"
#include "LogMemory.h"
#include "TemporaryDirectory.h"
#include "Wakeup.h"

namespace {

/// In place of the module: A is a driver in the host's process that refuses ".FAIL" and throws at ".THROW".
class LinkAccessTest : public testing::Test, public IFunctionID {
protected:
    LinkAccessTest() {
        m_drivers.configure({configuredDriver("A", EInterfaceTypes::Direct)}, true);
        m_drivers.callBegins("A", "setConfiguration");
        m_drivers.callEnded("A", "setConfiguration");
    }
    /// The senders call this object: they end while it is whole.
    void TearDown() override { EXPECT_TRUE(m_senders.stop(c_hangGuard)); }

    IInterface* queryInterface(unsigned int) override { return nullptr; }
    bool sendFID(const std::string& fid, const FIDParameterList& parameters) const override {
        const FIDHelper parts(fid);
        m_path = m_sut.path();
        if (!m_drivers.find(parts.getDriverID()))
            return true;
        m_tap.fidBegins(parts.getDriverID(), parts.getFunction(), parameters);
        m_tap.fidEnded(parts.getDriverID(), parts.getFunction() == "MOVE",
                       parts.getFunction() == "THROW" ? "oh" : nullptr);
        return true;
    }
    bool subscribe(const std::string&) const override { return true; }
    bool showState() const override { return true; }

    /// What becomes of a FID, once the descriptor says that something has.
    std::string outcomeOf(const std::string& fid) {
        const std::uint64_t number = m_sut.send("SITE2", fid, {}, "SITE3,SITE2");
        pollfd wait{m_wakeup.fd(), POLLIN, 0};
        EXPECT_EQ(::poll(&wait, 1, c_hangGuardMs), 1);
        EXPECT_TRUE(m_wakeup.take());
        const auto outcomes = m_sut.outcomes("SITE2");
        if (outcomes.size() != 1 || outcomes[0].number != number)
            return "not one";
        const char* const words[] = {"done", "refused", "unknown"};
        return words[static_cast<int>(outcomes[0].what)] + (": " + outcomes[0].text);
    }

    LogCapture m_log;
    StateStore m_store;
    mutable DriverTable m_drivers{m_store};
    LogMemory m_memory{[] { return std::set<std::string>(); }};
    mutable FidTap m_tap{m_drivers, m_drivers, m_memory};
    FidSenders m_senders{m_drivers, *this};
    base::Wakeup m_wakeup{"the test"};
    base::Wakeup m_changes{"the test's changes"};
    LinkAccess m_sut{m_store, m_senders};
    mutable std::string m_path;
};

TEST_F(LinkAccessTest, AnswersItsOwnIdentifierAlone) {
    EXPECT_EQ(m_sut.queryInterface(ILinkHost::s_id), &m_sut);
    EXPECT_EQ(m_sut.queryInterface(1100), nullptr);
}

TEST_F(LinkAccessTest, ChangesAreThoseOfTheStore) {
    m_store.driverStarted("A");
    m_store.setStateValueInt("A.POS", 4);
    m_store.setStateValue("A.NAME", "x");
    const auto first = m_sut.changes(0);
    EXPECT_TRUE(first.isComplete);
    ASSERT_EQ(first.states.size(), 2U);
    EXPECT_EQ(first.states[0].key, "A.NAME");
    EXPECT_EQ(first.states[1].value, ILinkHost::Value(4));
    EXPECT_EQ(first.states[1].staleCause, "");
    m_store.unsetStateValue("A.NAME");
    m_store.driverEnded("A", "killed by SIGSEGV");
    const auto second = m_sut.changes(first.version);
    EXPECT_FALSE(second.isComplete);
    ASSERT_EQ(second.states.size(), 1U);
    EXPECT_EQ(second.states[0].staleCause, "killed by SIGSEGV");
    EXPECT_EQ(second.unset, std::vector<std::string>{"A.NAME"});
}

TEST_F(LinkAccessTest, EventsAreThoseWithHigherNumbers) {
    m_store.triggerEvent("A.FAULT", "1");
    m_store.triggerEvent("A.FAULT", "2");
    const auto all = m_sut.events(0);
    ASSERT_EQ(all.size(), 2U);
    EXPECT_EQ(all[0].id, "A.FAULT");
    const auto last = m_sut.events(all[0].number);
    ASSERT_EQ(last.size(), 1U);
    EXPECT_EQ(last[0].value, "2");
    EXPECT_TRUE(m_sut.events(last[0].number).empty());
}

TEST_F(LinkAccessTest, FarValuesAreThoseOfTheStore) {
    m_store.driverStarted("SITE2");
    const auto reported = std::chrono::steady_clock::now() - std::chrono::minutes(1);
    m_sut.setFar("SITE2.A.POS", 1.5F, "killed", reported);
    EXPECT_EQ(m_store.find("SITE2.A.POS")->reported, reported);
    EXPECT_EQ(m_store.find("SITE2.A.POS")->value, StateValue(1.5F));
    EXPECT_EQ(m_store.find("SITE2.A.POS")->staleCause, "killed");
    m_store.setStateValueBool("SITE2.A.ON", true);
    m_sut.makeStale("SITE2", {"SITE2.A.ON"}, "no broker");
    EXPECT_EQ(m_store.find("SITE2.A.ON")->staleCause, "no broker");
}

TEST_F(LinkAccessTest, EachFidHasItsOutcome) {
    m_sut.open("SITE2", m_wakeup.fd(), m_changes.fd());
    EXPECT_EQ(outcomeOf("A.MOVE"), "done: ");
    EXPECT_EQ(m_path, "SITE3,SITE2");
    EXPECT_EQ(m_sut.path(), "");
    EXPECT_EQ(outcomeOf("A.FAIL").substr(0, 9), "refused: ");
    EXPECT_EQ(outcomeOf("A.THROW").substr(0, 9), "unknown: ");
    EXPECT_EQ(outcomeOf("B.MOVE").substr(0, 9), "refused: ");
}

TEST_F(LinkAccessTest, DriverThatHasNotOpenedSendsNothing) {
    EXPECT_EQ(m_sut.send("SITE2", "A.MOVE", {}, ""), 0U);
    EXPECT_TRUE(m_sut.outcomes("SITE2").empty());
}

TEST_F(LinkAccessTest, WhoWatchesIsWokenOnceByWhatIsOfThisWorkplace) {
    m_store.driverStarted("A");
    m_store.driverStarted("SITE2");
    m_sut.open("SITE2", m_wakeup.fd(), m_changes.fd());
    m_store.setStateValueInt("A.POS", 1);
    EXPECT_FALSE(m_changes.take()) << "nobody watches yet";
    m_sut.watch("SITE2");
    m_sut.setFar("SITE2.B.POS", 1, "", std::chrono::steady_clock::now());
    m_sut.makeStale("SITE2", {"SITE2.B.POS"}, "no broker");
    m_store.setStateValueInt("A.POS", 1);
    EXPECT_FALSE(m_changes.take()) << "nothing of this workplace has changed";
    m_store.setStateValueInt("A.POS", 2);
    EXPECT_TRUE(m_changes.take());
    m_store.setStateValueInt("A.POS", 3);
    EXPECT_FALSE(m_changes.take()) << "it has not asked again";
    const auto eachWakes = [&](const auto& change) {
        m_sut.watch("SITE2");
        change();
        return m_changes.take();
    };
    EXPECT_TRUE(eachWakes([&] { m_store.triggerEvent("A.FAULT", "1"); }));
    EXPECT_TRUE(eachWakes([&] { m_store.unsetStateValue("A.POS"); }));
    m_store.setStateValueInt("A.POS", 4);
    EXPECT_TRUE(eachWakes([&] { m_store.driverEnded("A", "killed by SIGSEGV"); }));
    m_sut.watch("SITE2");
    m_sut.close("SITE2");
    m_store.triggerEvent("A.FAULT", "2");
    EXPECT_FALSE(m_changes.take()) << "it has closed";
}

TEST_F(LinkAccessTest, AfterTheCloseNothingIsKeptAndNobodyIsWoken) {
    m_sut.open("SITE2", m_wakeup.fd(), m_changes.fd());
    EXPECT_NE(m_sut.send("SITE2", "A.MOVE", {}, ""), 0U);
    m_sut.close("SITE2");
    static_cast<void>(m_wakeup.take());
    EXPECT_TRUE(m_senders.stop(c_hangGuard));
    EXPECT_FALSE(m_wakeup.take());
    EXPECT_TRUE(m_sut.outcomes("SITE2").empty());
    EXPECT_EQ(m_sut.send("SITE2", "A.MOVE", {}, ""), 0U);
}

}  // namespace
