#include "DriverRoster.h"

#include <gtest/gtest.h>

namespace {

WorkplaceFile::Entry entry(const std::string& id, EInterfaceTypes type) {
    WorkplaceFile::Entry made;
    made.driverID = id;
    made.driverType = "Axis";
    made.version = "1.0";
    made.interfaceType = type;
    return made;
}

class DriverRosterTest : public testing::Test {
protected:
    DriverRoster::Driver driver(const std::string& id) {
        for (const auto& driver : m_sut.drivers()) {
            if (driver.id == id)
                return driver;
        }
        return {};
    }
    bool isStale(const std::string& key) { return m_store.find(key)->isStale(); }

    StateStore m_store;
    DriverRoster m_sut{m_store};
};

using EStatus = DriverRoster::EStatus;

}  // namespace

TEST_F(DriverRosterTest, KnowsThePanelBeforehand) {
    EXPECT_EQ("Panel", driver("PANEL").type);
    EXPECT_EQ(EInterfaceTypes::Direct, driver("PANEL").interfaceType);
    EXPECT_FALSE(m_sut.isRunning("PANEL"));
}

TEST_F(DriverRosterTest, ListsConfiguredDriversInByteOrder) {
    m_sut.configure({entry("b", EInterfaceTypes::Queue), entry("B", EInterfaceTypes::Direct)}, true);
    ASSERT_EQ(3u, m_sut.drivers().size());
    EXPECT_EQ("B", m_sut.drivers()[0].id);
    EXPECT_EQ("PANEL", m_sut.drivers()[1].id);
    EXPECT_EQ("b", m_sut.drivers()[2].id);
    EXPECT_EQ(EStatus::NotLoaded, driver("b").status);
    EXPECT_EQ("Axis", driver("b").type);
}

TEST_F(DriverRosterTest, ProcessRunsFromItsStartToItsEnd) {
    m_sut.processStarted("A", 42);
    EXPECT_TRUE(m_sut.isRunning("A"));
    EXPECT_EQ(42, driver("A").pid);
    m_store.setStateValueInt("A.X", 1);
    EXPECT_EQ(1u, m_sut.processEnded("A", 42, "exit code 3"));
    EXPECT_FALSE(m_sut.isRunning("A"));
    EXPECT_EQ("exit code 3", driver("A").cause);
    EXPECT_TRUE(isStale("A.X"));
}

TEST_F(DriverRosterTest, LateEndOfAnOldProcessLeavesTheNewOneAlone) {
    m_sut.processStarted("A", 42);
    m_sut.processStarted("A", 43);
    m_store.setStateValueInt("A.X", 1);
    EXPECT_EQ(std::nullopt, m_sut.processEnded("A", 42, "exit code 0"));
    EXPECT_TRUE(m_sut.isRunning("A"));
    EXPECT_FALSE(isStale("A.X"));
}

TEST_F(DriverRosterTest, InProcessDriverRunsFromItsConfigurationToItsDeletion) {
    m_sut.callBegins("A", "setConfiguration");
    m_sut.callEnded("A", "setConfiguration");
    EXPECT_TRUE(m_sut.isRunning("A"));
    EXPECT_EQ(0, driver("A").pid);
    m_store.setStateValueInt("A.X", 1);
    m_sut.callBegins("A", "deinitialize");
    m_sut.callEnded("A", "deinitialize");
    EXPECT_TRUE(m_sut.isRunning("A"));
    m_sut.driverDeleted("A");
    EXPECT_FALSE(m_sut.isRunning("A"));
    EXPECT_EQ("unloaded", driver("A").cause);
    EXPECT_TRUE(isStale("A.X"));
}

TEST_F(DriverRosterTest, NewInstanceMayReportAgain) {
    m_sut.processStarted("A", 42);
    m_store.setStateValueInt("A.X", 1);
    m_sut.processEnded("A", 42, "signal 9");
    m_sut.processStarted("A", 43);
    EXPECT_TRUE(isStale("A.X"));
    m_store.setStateValueInt("A.X", 1);
    EXPECT_FALSE(isStale("A.X"));
}

TEST_F(DriverRosterTest, NewInstanceBeginsWithoutTrafficAndWithoutANextTry) {
    m_sut.processStarted("A", 42);
    m_sut.setTraffic("A", 5, 7);
    m_sut.setNextTry("A", std::chrono::steady_clock::now());
    m_sut.processStarted("A", 43);
    EXPECT_EQ(0, driver("A").receivedPerSecond);
    EXPECT_EQ(0, driver("A").sentPerSecond);
    EXPECT_FALSE(driver("A").nextTry);
}

TEST_F(DriverRosterTest, DriverThatEndedHasNoTraffic) {
    m_sut.processStarted("A", 42);
    m_sut.setTraffic("A", 5, 7);
    m_sut.processEnded("A", 42, "exit code 3");
    EXPECT_EQ(0, driver("A").receivedPerSecond);
    EXPECT_EQ(0, driver("A").sentPerSecond);
}

TEST_F(DriverRosterTest, NamesTheOldestCallThatHasNotComeBack) {
    EXPECT_FALSE(m_sut.oldestCall());
    m_sut.callBegins("A", "deinitialize");
    m_sut.callBegins("B", "initializationCompleted");
    EXPECT_EQ("A", m_sut.oldestCall()->driverID);
    m_sut.callEnded("A", "deinitialize");
    EXPECT_EQ("B", m_sut.oldestCall()->driverID);
    EXPECT_EQ("initializationCompleted", m_sut.oldestCall()->operation);
    m_sut.callEnded("B", "initializationCompleted");
    EXPECT_FALSE(m_sut.oldestCall());
}

TEST_F(DriverRosterTest, DriverThatLeftTheConfigurationIsForgottenUnlessItRuns) {
    m_sut.configure({entry("A", EInterfaceTypes::Queue), entry("B", EInterfaceTypes::Queue)}, true);
    m_sut.processStarted("B", 42);
    m_sut.configure({}, true);
    ASSERT_EQ(2u, m_sut.drivers().size());
    EXPECT_EQ("B", m_sut.drivers()[0].id);
    EXPECT_EQ("PANEL", m_sut.drivers()[1].id);
}

TEST_F(DriverRosterTest, ConfigurationThatIsNotWholeForgetsNobody) {
    m_sut.configure({entry("A", EInterfaceTypes::Queue), entry("B", EInterfaceTypes::Queue)}, true);
    m_sut.processStarted("B", 42);
    m_sut.processEnded("B", 42, "exit code 3");
    m_sut.configure({entry("A", EInterfaceTypes::Direct)}, false);
    ASSERT_EQ(3u, m_sut.drivers().size());
    EXPECT_EQ(EInterfaceTypes::Direct, driver("A").interfaceType);
    EXPECT_EQ(EInterfaceTypes::Queue, driver("B").interfaceType);
    EXPECT_EQ("exit code 3", driver("B").cause);
}

TEST_F(DriverRosterTest, ValuesOfAProcessWhoseEndIsNotYetKnownAreNotTheNewOnes) {
    m_sut.processStarted("A", 42);
    m_store.setStateValueInt("A.X", 1);
    m_sut.processStarted("A", 43);
    EXPECT_TRUE(isStale("A.X"));
    EXPECT_EQ("unloaded", m_store.find("A.X")->staleCause);
    m_store.setStateValueInt("A.X", 1);
    EXPECT_FALSE(isStale("A.X"));
}

TEST_F(DriverRosterTest, ValuesOfAHungProcessAreStale) {
    m_sut.processStarted("A", 42);
    m_store.setStateValueInt("A.X", 1);
    EXPECT_EQ(1u, m_sut.processHung("A", 42, "hung for 10 s"));
    EXPECT_EQ(EStatus::Hung, driver("A").status);
    EXPECT_FALSE(m_sut.isRunning("A"));
    EXPECT_EQ("hung for 10 s", m_store.find("A.X")->staleCause);
}

TEST_F(DriverRosterTest, OldProcessThatHangsLeavesTheNewOneAlone) {
    m_sut.processStarted("A", 43);
    EXPECT_EQ(std::nullopt, m_sut.processHung("A", 42, "hung for 10 s"));
    EXPECT_TRUE(m_sut.isRunning("A"));
}

TEST_F(DriverRosterTest, LastCauseStaysWhenTheDriverRunsAgain) {
    m_sut.processStarted("A", 42);
    m_sut.processEnded("A", 42, "exit code 3");
    m_sut.processStarted("A", 43);
    EXPECT_EQ("exit code 3", driver("A").cause);
}

TEST_F(DriverRosterTest, DriverWithoutAProcessHasEndedWithItsCause) {
    m_sut.notStarted("A", "never started");
    EXPECT_EQ(EStatus::Ended, driver("A").status);
    EXPECT_EQ("never started", driver("A").cause);
    EXPECT_EQ(0, driver("A").pid);
}

TEST_F(DriverRosterTest, HungDriverThatLeftTheConfigurationIsKept) {
    m_sut.processStarted("B", 42);
    m_sut.processHung("B", 42, "hung for 10 s");
    m_sut.configure({}, true);
    EXPECT_EQ("B", m_sut.drivers()[0].id);
}

TEST_F(DriverRosterTest, LooksAfterTheEndedBeforeItLists) {
    m_sut.processStarted("A", 42);
    m_store.setRefresh([&](const std::string&) { m_sut.processEnded("A", 42, "exit code 3"); });
    EXPECT_EQ(EStatus::Ended, driver("A").status);
}
