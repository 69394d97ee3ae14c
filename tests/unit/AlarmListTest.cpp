#include "AlarmList.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "LogCapture.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class AlarmListTest : public testing::Test {
protected:
    AlarmListTest() {
        m_store.addListener(&m_sut);
        m_drivers.setFollower([this](const DriverTable::Driver& driver) { m_sut.changed(driver); });
    }
    ~AlarmListTest() override { m_store.removeListener(&m_sut); }

    /// Of each alarm the key, the text, how often it was raised and whether it is over or shelved, and by
    /// whom.
    std::vector<std::string> alarms() const {
        std::vector<std::string> found;
        for (const AlarmList::Alarm& alarm : m_sut.alarms())
            found.push_back(alarm.key + "|" + alarm.text + "|" + std::to_string(alarm.count) +
                            (alarm.isOver ? " over" : "") +
                            (alarm.shelvedUntil ? " shelved by " + alarm.shelvedBy : alarm.shelvedBy));
        return found;
    }

    LogCapture m_log;
    AlarmList::Clock::time_point m_now{};
    AlarmList m_sut{[this] { return m_now; }};
    StateStore m_store;
    DriverTable m_drivers{m_store, RestartPlan::Settings()};
};

}  // namespace

TEST_F(AlarmListTest, AlarmOfAPanelStaysUntilItIsAcknowledged) {
    m_store.triggerEvent("PANEL.ALARM", "SYS: load 3 is above 2");
    EXPECT_THAT(alarms(), ElementsAre("SYS|load 3 is above 2|1"));
    EXPECT_EQ(1u, m_sut.inSight());
    m_store.setStateValue("PANEL.ALARM", "SYS: load 3 is above 2");
    m_store.unsetStateValue("PANEL.ALARM");
    EXPECT_THAT(alarms(), ElementsAre("SYS|load 3 is above 2|1 over"));
    EXPECT_EQ(1u, m_sut.inSight());
    EXPECT_TRUE(m_sut.acknowledge("SYS"));
    EXPECT_THAT(alarms(), IsEmpty());
    EXPECT_FALSE(m_sut.acknowledge("SYS"));
}

TEST_F(AlarmListTest, OtherEventsAndValuesAreNone) {
    m_store.triggerEvent("SYS.LOADHIGH", "3");
    m_store.setStateValue("PANEL.ALARM", "SYS: load 3 is above 2");
    EXPECT_THAT(alarms(), IsEmpty());
}

TEST_F(AlarmListTest, AlarmThatIsRaisedAgainIsCounted) {
    m_store.triggerEvent("PANEL.ALARM", "SYS: one");
    m_store.triggerEvent("PANEL.ALARM", "A: other");
    m_store.triggerEvent("PANEL.ALARM", "SYS: two");
    EXPECT_THAT(alarms(), ElementsAre("SYS|two|2", "A|other|1"));
    EXPECT_EQ(2u, m_sut.acknowledgeAll());
    m_store.triggerEvent("PANEL.ALARM", "SYS: three");
    EXPECT_THAT(alarms(), ElementsAre("SYS|three|1"));
}

TEST_F(AlarmListTest, ShelvedAlarmIsOutOfSightForItsTime) {
    m_store.triggerEvent("PANEL.ALARM", "SYS: one");
    EXPECT_FALSE(m_sut.shelve("A", std::chrono::seconds(60), "anna"));
    EXPECT_TRUE(m_sut.shelve("SYS", std::chrono::seconds(60), "anna"));
    m_store.triggerEvent("PANEL.ALARM", "SYS: two");
    EXPECT_THAT(alarms(), ElementsAre("SYS|two|2 shelved by anna"));
    EXPECT_EQ(0u, m_sut.inSight());
    EXPECT_EQ(0u, m_sut.acknowledgeAll());
    m_now += std::chrono::seconds(60);
    EXPECT_EQ(1u, m_sut.inSight());
    EXPECT_THAT(alarms(), ElementsAre("SYS|two|2"));
}

TEST_F(AlarmListTest, ShelvedAlarmIsPutBackByNoTime) {
    m_store.triggerEvent("PANEL.ALARM", "SYS: one");
    m_sut.shelve("SYS", std::chrono::seconds(60), "anna");
    EXPECT_TRUE(m_sut.shelve("SYS", std::chrono::seconds(0), "ben"));
    EXPECT_EQ(1u, m_sut.inSight());
    EXPECT_THAT(alarms(), ElementsAre("SYS|one|1"));
}

TEST_F(AlarmListTest, DriverThatEndsIsAnAlarmOnceForAllItsTries) {
    m_drivers.processStarted("A", 1);
    m_drivers.processEnded("A", 1, "signal 9 (Killed)", {}, false);
    EXPECT_THAT(alarms(), ElementsAre("A.DRIVER|ended: signal 9 (Killed)|1"));
    m_drivers.beginStart("A");
    m_drivers.endProcessStart("A", "no memory", true);
    EXPECT_THAT(alarms(), ElementsAre("A.DRIVER|ended: no memory|1"));
    m_drivers.processStarted("A", 2);
    EXPECT_THAT(alarms(), ElementsAre("A.DRIVER|ended: no memory|1 over"));
    m_drivers.processHung("A", 2, "hung for 10 s");
    EXPECT_THAT(alarms(), ElementsAre("A.DRIVER|hung for 10 s|2"));
}

TEST_F(AlarmListTest, ParkedDriverHasNone) {
    m_drivers.processStarted("A", 1);
    m_drivers.processEnded("A", 1, "signal 9 (Killed)", {}, false);
    m_store.triggerEvent("PANEL.ALARM", "A: hot");
    m_store.triggerEvent("PANEL.ALARM", "B: hot");
    m_drivers.beginParking("A", "parked at the console");
    m_drivers.endParking("A");
    EXPECT_THAT(alarms(), ElementsAre("B|hot|1"));
    m_store.triggerEvent("PANEL.ALARM", "A: too late");
    EXPECT_THAT(alarms(), ElementsAre("B|hot|1"));
    m_drivers.beginStart("A");
    m_store.triggerEvent("PANEL.ALARM", "A: hot again");
    EXPECT_THAT(alarms(), ElementsAre("B|hot|1", "A|hot again|1"));
}

TEST_F(AlarmListTest, ProcessThatWasStartedByHandMayEnd) {
    m_drivers.processStarted("A", 1, true);
    m_drivers.processEnded("A", 1, "its process has ended", {}, false);
    EXPECT_THAT(alarms(), IsEmpty());
}

TEST_F(AlarmListTest, FirstOfTooManyGiveWayAndAreCounted) {
    for (int i = 0; i < 203; ++i)
        m_store.triggerEvent("PANEL.ALARM", "S" + std::to_string(i) + ": hot");
    EXPECT_EQ(200u, m_sut.alarms().size());
    EXPECT_EQ("S3", m_sut.alarms().front().key);
    EXPECT_EQ(3u, m_sut.dropped());
    EXPECT_EQ(200u, m_sut.acknowledgeAll());
    EXPECT_EQ(0u, m_sut.dropped());
}
