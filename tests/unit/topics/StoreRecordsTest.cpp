#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "../RecordedLines.h"
#include "../StreamFixture.h"
#include "DriverTable.h"
#include "LogCapture.h"
#include "StateStore.h"

using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

namespace {

/// What the store and the table of drivers record.
class StoreRecords : public StreamFixture {
protected:
    void SetUp() override {
        m_store.setObservation(&m_observation);
        m_drivers.setObservation(&m_observation);
    }
    std::vector<std::string> recorded() const { return recordedLines(*m_pRing); }

    LogCapture m_log;
    std::unique_ptr<stream::StreamRing> m_pRing = ringOf(small());
    Observation m_observation{*m_pRing};
    StateStore m_store;
    DriverTable m_drivers{m_store,
                          RestartPlan::Settings{.firstDelay = std::chrono::milliseconds(1500), .limit = 1}};
};

}  // namespace

TEST_F(StoreRecords, EachTypeOfValueAndWhatIsUnset) {
    m_store.setStateValue("A.TEXT", "two words");
    m_store.setStateValueInt("A.INT", -7);
    m_store.setStateValueFloat("A.FLOAT", 2.5f);
    m_store.setStateValueBool("A.BOOL", true);
    m_store.unsetStateValue("A.INT");
    m_store.triggerEvent("A.DONE", "7");
    EXPECT_THAT(recorded(),
                ElementsAre("A value A.TEXT = \"two words\"", "A value A.INT = -7", "A value A.FLOAT = 2.5",
                            "A value A.BOOL = true", "A value A.INT unset", "A event A.DONE 7"));
}

TEST_F(StoreRecords, ReportThatChangesNothingIsNone) {
    m_store.setStateValueInt("A.X", 1);
    m_store.setStateValueInt("A.X", 1);
    EXPECT_THAT(recorded(), ElementsAre("A value A.X = 1"));
}

TEST_F(StoreRecords, OfAFloodTheFirstAndTheLastAreThere) {
    // All within 10 ms, on a machine that is not busy; on another one there are some more between.
    for (int i = 1; i <= 200; ++i)
        m_store.setStateValueInt("A.X", i);
    m_store.setStateValueInt("A.Y", 1);
    EXPECT_LT(recorded().size(), 100u);
    m_store.recordHeldBack();
    EXPECT_EQ(recorded().front(), "A value A.X = 1");
    EXPECT_THAT(recorded(), testing::Contains("A value A.X = 200"));
    const auto before = recorded();
    m_store.recordHeldBack();
    m_store.recordHeldBack("A");
    EXPECT_EQ(recorded(), before);
}

TEST_F(StoreRecords, HeldBackValuesAreRecordedInTheirOrder) {
    for (int i = 1; i <= 2; ++i) {
        for (const char* pKey : {"A.X", "A.Y", "A.Z"})
            m_store.setStateValueInt(pKey, i);
    }
    m_store.recordHeldBack("A");
    auto lines = recorded();
    lines.erase(lines.begin(), lines.begin() + 3);
    EXPECT_THAT(lines, ElementsAre("A value A.X = 2", "A value A.Y = 2", "A value A.Z = 2"));
}

TEST_F(StoreRecords, EventComesAfterWhatWasHeldBack) {
    m_store.setStateValueInt("A.X", 1);
    m_store.setStateValueInt("A.X", 2);
    m_store.triggerEvent("A.DONE", "");
    EXPECT_THAT(recorded(), ElementsAre("A value A.X = 1", "A value A.X = 2", "A event A.DONE"));
}

TEST_F(StoreRecords, UnsetValueIsHeldBackNoMore) {
    m_store.setStateValueInt("A.X", 1);
    m_store.setStateValueInt("A.X", 2);
    m_store.unsetStateValue("A.X");
    m_store.recordHeldBack();
    EXPECT_THAT(recorded(), ElementsAre("A value A.X = 1", "A value A.X unset"));
}

TEST_F(StoreRecords, ValueOfTheConsoleBecomesItsDriversWhenThatComes) {
    {
        const StateStore::ConsoleMark mark;
        m_store.setStateValueInt("NEW.X", 1);
        m_store.setStateValueInt("NEW.X", 2);
    }
    m_store.setStateValueInt("NEW.Y", 1);
    m_store.recordHeldBack();
    EXPECT_THAT(recorded(),
                ElementsAre("host value NEW.X = 1", "NEW value NEW.Y = 1", "NEW value NEW.X = 2"));
}

TEST_F(StoreRecords, LifeOfADriverProcess) {
    m_drivers.processStarted("A", 42);
    m_store.setStateValueInt("A.X", 1);
    m_drivers.processEnded("A", 42, "signal 9 (Killed)", {}, true, DriverTable::EEnd::Signal, 9);
    EXPECT_THAT(recorded(), ElementsAre("A start process 42", "A value A.X = 1", "A exit signal 9 (Killed)",
                                        MatchesRegex("A restart in 1[0-9]{3} ms"),
                                        "A stale 1 values: signal 9 (Killed)"));
    ASSERT_EQ(m_observation.takeIncidents().size(), 1u);
}

TEST_F(StoreRecords, HangIsOneIncidentWithItsEnd) {
    m_drivers.processStarted("A", 42);
    m_drivers.processHung("A", 42, "hung for 10 s");
    m_drivers.processEnded("A", 42, "hung for 10 s, signal 15 (Terminated)", {}, true,
                           DriverTable::EEnd::Signal, 15);
    EXPECT_THAT(recorded(), ElementsAre("A start process 42", "A hang hung for 10 s",
                                        "A exit hung for 10 s, signal 15 (Terminated)",
                                        MatchesRegex("A restart in 1[0-9]{3} ms")));
    EXPECT_EQ(m_observation.takeIncidents().size(), 1u);
}

TEST_F(StoreRecords, DriverOfTheHostsProcessStartsAndEnds) {
    m_drivers.callBegins("A", "setConfiguration");
    m_drivers.callEnded("A", "setConfiguration");
    m_drivers.driverDeleted("A");
    EXPECT_THAT(recorded(), ElementsAre("A start in the host's process", "A exit unloaded"));
    EXPECT_THAT(m_observation.takeIncidents(), IsEmpty());
}

TEST_F(StoreRecords, EndThatWasAskedForIsNoIncident) {
    m_drivers.processStarted("A", 42);
    m_drivers.beginStart("A");
    m_drivers.processEnded("A", 42, "exit code 0", {}, true);
    m_drivers.processEnded("A", 42, "exit code 0", {}, true);
    EXPECT_THAT(m_observation.takeIncidents(), IsEmpty());
}
