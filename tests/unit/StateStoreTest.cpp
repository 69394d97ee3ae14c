#include "StateStore.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "InterfaceIds.h"
#include "LogCapture.h"

namespace {

/// Writes down what it is told.
class Recording : public StateStore::Listener {
public:
    void valueChanged(const StateStore::Entry& entry) override {
        lines.push_back(entry.key + "=" + entry.value.text() + (entry.isStale() ? " stale" : ""));
    }
    void valueUnset(const std::string& key) override { lines.push_back(key + " unset"); }
    void eventTriggered(const StateStore::Event& event) override {
        lines.push_back("event " + event.id + " " + event.value);
    }
    void valuesStale(const std::string& driverID, const std::string& cause,
                     const std::vector<std::string>& keys) override {
        lines.push_back(driverID + " " + cause + " " + std::to_string(keys.size()));
    }

    std::vector<std::string> lines;
};

using Lines = std::vector<std::string>;

}  // namespace

TEST(StateStore, KeepsEachTypeAsReported) {
    StateStore sut;
    sut.setStateValue("A.TEXT", "on");
    sut.setStateValueFloat("A.FLOAT", 1.5F);
    sut.setStateValueInt("A.INT", -3);
    sut.setStateValueBool("A.BOOL", true);
    EXPECT_TRUE(sut.find("A.TEXT")->value == StateValue(std::string("on")));
    EXPECT_TRUE(sut.find("A.FLOAT")->value == StateValue(1.5F));
    EXPECT_TRUE(sut.find("A.INT")->value == StateValue(-3));
    EXPECT_TRUE(sut.find("A.BOOL")->value == StateValue(true));
}

TEST(StateStore, OwnerIsTheTextBeforeTheFirstDot) {
    StateStore sut;
    sut.setStateValueInt("AXIS1.PART.POS", 1);
    EXPECT_EQ("AXIS1", sut.find("AXIS1.PART.POS")->owner.text());
}

TEST(StateStore, CatalogueBelongsToTheHost) {
    StateStore sut;
    sut.setStateValue("PANEL.MFDDEF0.TYPE", "Axis");
    sut.setStateValueInt("PANEL.MFDDEF.COUNT", 1);
    sut.setStateValueInt("PANEL.LAMP", 1);
    EXPECT_EQ("host", sut.find("PANEL.MFDDEF0.TYPE")->owner.text());
    EXPECT_EQ("host", sut.find("PANEL.MFDDEF.COUNT")->owner.text());
    EXPECT_EQ("PANEL", sut.find("PANEL.LAMP")->owner.text());
}

TEST(StateStore, WhatACommandSetsBelongsToTheConsole) {
    StateStore sut;
    {
        const StateStore::ConsoleMark mark;
        sut.setStateValue("AXIS1.POS", "7");
    }
    sut.setStateValue("AXIS1.SPEED", "1");
    EXPECT_EQ("console", sut.find("AXIS1.POS")->owner.text());
    EXPECT_EQ("AXIS1", sut.find("AXIS1.SPEED")->owner.text());
}

TEST(StateStore, ConsoleMarkHoldsForItsThreadOnly) {
    StateStore sut;
    const StateStore::ConsoleMark mark;
    std::thread([&] { sut.setStateValue("AXIS1.POS", "7"); }).join();
    EXPECT_EQ("AXIS1", sut.find("AXIS1.POS")->owner.text());
}

TEST(StateStore, EndOfADriverMakesItsValuesStale) {
    StateStore sut;
    sut.setStateValueInt("AXIS1.POS", 1);
    EXPECT_EQ(1u, sut.driverEnded("AXIS1", "signal 9"));
    EXPECT_EQ("signal 9", sut.find("AXIS1.POS")->staleCause);
    EXPECT_TRUE(sut.find("AXIS1.POS")->value == StateValue(1));
}

TEST(StateStore, EndOfADriverLeavesOthersAlone) {
    StateStore sut;
    sut.setStateValueInt("AXIS1.POS", 1);
    sut.setStateValueInt("AXIS10.POS", 1);
    sut.driverEnded("AXIS1", "signal 9");
    EXPECT_FALSE(sut.find("AXIS10.POS")->isStale());
}

TEST(StateStore, EndOfADriverLeavesTheConsolesValuesAlone) {
    StateStore sut;
    {
        const StateStore::ConsoleMark mark;
        sut.setStateValue("AXIS1.POS", "7");
    }
    sut.driverEnded("AXIS1", "signal 9");
    EXPECT_FALSE(sut.find("AXIS1.POS")->isStale());
}

TEST(StateStore, ValueThatWasStaleBeforeTheEndOfADriverKeepsItsCauseAndTime) {
    StateStore sut;
    sut.setStateValueInt("AXIS1.OLD", 1);
    sut.setStateValueInt("AXIS1.NEW", 1);
    sut.driverEnded("AXIS1", "signal 9");
    const auto since = sut.find("AXIS1.OLD")->staleSince;
    sut.driverStarted("AXIS1");
    sut.setStateValueInt("AXIS1.NEW", 2);
    EXPECT_EQ(1u, sut.driverEnded("AXIS1", "exit code 1"));
    EXPECT_EQ("signal 9", sut.find("AXIS1.OLD")->staleCause);
    EXPECT_EQ(since, sut.find("AXIS1.OLD")->staleSince);
    EXPECT_EQ("exit code 1", sut.find("AXIS1.NEW")->staleCause);
    EXPECT_LE(sut.find("AXIS1.NEW")->reported, sut.find("AXIS1.NEW")->staleSince);
}

TEST(StateStore, StaleValueThatArrivesAgainIsStaleSinceThenForTheLastCause) {
    StateStore sut;
    sut.setStateValueInt("AXIS1.POS", 1);
    sut.driverEnded("AXIS1", "signal 9");
    sut.driverStarted("AXIS1");
    sut.driverEnded("AXIS1", "exit code 1");
    ASSERT_EQ("signal 9", sut.find("AXIS1.POS")->staleCause);
    sut.setStateValueInt("AXIS1.POS", 2);
    EXPECT_EQ("exit code 1", sut.find("AXIS1.POS")->staleCause);
    EXPECT_EQ(sut.find("AXIS1.POS")->reported, sut.find("AXIS1.POS")->staleSince);
}

TEST(StateStore, ValueOfAnEndedDriverArrivesStale) {
    StateStore sut;
    sut.driverEnded("AXIS1", "exit code 1");
    sut.setStateValueInt("AXIS1.POS", 2);
    EXPECT_EQ("exit code 1", sut.find("AXIS1.POS")->staleCause);
}

TEST(StateStore, ValueStaysStaleUntilTheNewInstanceReportsIt) {
    StateStore sut;
    sut.setStateValueInt("AXIS1.POS", 1);
    sut.driverEnded("AXIS1", "unloaded");
    sut.driverStarted("AXIS1");
    EXPECT_TRUE(sut.find("AXIS1.POS")->isStale());
    sut.setStateValueInt("AXIS1.POS", 1);
    EXPECT_FALSE(sut.find("AXIS1.POS")->isStale());
}

TEST(StateStore, UnsetForgetsTheValue) {
    StateStore sut;
    sut.setStateValueInt("AXIS1.POS", 1);
    sut.unsetStateValue("AXIS1.POS");
    EXPECT_FALSE(sut.find("AXIS1.POS"));
}

TEST(StateStore, ListsInByteOrderWhatMatches) {
    StateStore sut;
    for (const char* key : {"SYS.LOAD", "AXIS.POS", "SYS.HOST", "sys.x"})
        sut.setStateValueInt(key, 1);
    Lines keys;
    for (const auto& entry : sut.entries("SYS.*"))
        keys.push_back(entry.key);
    EXPECT_EQ((Lines{"SYS.HOST", "SYS.LOAD"}), keys);
    EXPECT_EQ(4u, sut.entries("").size());
}

TEST(StateStore, CompletesKeysByPrefix) {
    StateStore sut;
    for (const char* key : {"SYS.LOAD", "AXIS.POS", "SYS.HOST"})
        sut.setStateValueInt(key, 1);
    EXPECT_EQ((Lines{"SYS.HOST", "SYS.LOAD"}), sut.keys("SY"));
}

TEST(StateStore, TellsListenersOfChangesOnly) {
    StateStore sut;
    Recording recording;
    sut.addListener(&recording);
    sut.setStateValueInt("A.X", 1);
    sut.setStateValueInt("A.X", 1);
    sut.setStateValueInt("A.X", 2);
    sut.setStateValueBool("A.X", true);
    sut.unsetStateValue("A.X");
    sut.unsetStateValue("A.X");
    EXPECT_EQ((Lines{"A.X=1", "A.X=2", "A.X=true", "A.X unset"}), recording.lines);
}

TEST(StateStore, TellsListenersWhenAValueHoldsNoLongerAndAgain) {
    StateStore sut;
    Recording recording;
    sut.setStateValueInt("A.X", 1);
    sut.setStateValueInt("A.Y", 1);
    sut.addListener(&recording);
    sut.driverEnded("A", "gone");
    sut.driverEnded("A", "gone");
    sut.driverStarted("A");
    sut.setStateValueInt("A.X", 1);
    EXPECT_EQ((Lines{"A gone 2", "A.X=1"}), recording.lines);
}

TEST(StateStore, RemovedListenerHearsNothing) {
    StateStore sut;
    Recording recording;
    sut.addListener(&recording);
    sut.removeListener(&recording);
    sut.setStateValueInt("A.X", 1);
    EXPECT_TRUE(recording.lines.empty());
}

TEST(StateStore, EachEventIsTold) {
    StateStore sut;
    Recording recording;
    sut.addListener(&recording);
    sut.triggerEvent("A.HIGH", "1");
    sut.triggerEvent("A.HIGH", "1");
    EXPECT_EQ((Lines{"event A.HIGH 1", "event A.HIGH 1"}), recording.lines);
}

TEST(StateStore, KeepsTheLastTwoHundredEvents) {
    StateStore sut;
    for (int i = 0; i < 201; ++i)
        sut.triggerEvent("A.N", std::to_string(i));
    const auto events = sut.events();
    ASSERT_EQ(200u, events.size());
    EXPECT_EQ("1", events.front().value);
    EXPECT_EQ("200", events.back().value);
}

TEST(StateStore, ValuesBeyondTheLimitAreDroppedWithOneLine) {
    LogCapture log;
    StateStore sut;
    for (int i = 0; i < 65536 + 2; ++i)
        sut.setStateValueInt("A." + std::to_string(i), i);
    EXPECT_EQ(65536u, sut.entries("").size());
    sut.setStateValueInt("A.0", 7);
    EXPECT_TRUE(sut.find("A.0")->value == StateValue(7));
    const std::string text = log.finish();
    EXPECT_NE(std::string::npos,
              text.find("A: there are 65536 state values; \"A.65536\" and further new ones"));
    EXPECT_EQ(std::string::npos, text.find("A.65537"));
}

TEST(StateStore, AnswersPanelStateOnly) {
    StateStore sut;
    EXPECT_NE(nullptr, dynamic_cast<IPanelState*>(sut.queryInterface(IID_IPanelState)));
    EXPECT_EQ(nullptr, sut.queryInterface(IID_IFunctionID));
}

TEST(StateStore, TakesReportsFromManyThreads) {
    StateStore sut;
    std::vector<std::thread> drivers;
    for (int driver = 0; driver < 4; ++driver)
        drivers.emplace_back([&sut, driver] {
            for (int i = 0; i < 1000; ++i) {
                sut.setStateValueInt("D" + std::to_string(driver) + ".N", i);
                sut.driverEnded("D" + std::to_string((driver + 1) % 4), "x");
                sut.driverStarted("D" + std::to_string((driver + 1) % 4));
            }
        });
    for (std::thread& driver : drivers)
        driver.join();
    for (int driver = 0; driver < 4; ++driver)
        EXPECT_TRUE(sut.find("D" + std::to_string(driver) + ".N")->value == StateValue(999));
    EXPECT_EQ(4000u, sut.arrivals());
}

TEST(StateStore, LooksAfterTheDriverBeforeItTakesAValue) {
    StateStore sut;
    sut.setRefresh([&](const std::string& driverID) {
        if (driverID == "A")
            sut.driverEnded("A", "signal 9");
    });
    sut.setStateValueInt("A.X", 1);
    sut.setStateValueInt("B.X", 1);
    EXPECT_TRUE(sut.find("A.X")->isStale());
    EXPECT_FALSE(sut.find("B.X")->isStale());
}

TEST(StateStore, LooksAfterAllDriversBeforeEachReading) {
    StateStore sut;
    sut.setStateValueInt("A.X", 1);
    sut.setRefresh([&](const std::string&) { sut.driverEnded("A", "signal 9"); });
    EXPECT_TRUE(sut.find("A.X")->isStale());
    sut.driverStarted("A");
    sut.setRefresh({});
    sut.setStateValueInt("A.X", 1);
    ASSERT_FALSE(sut.find("A.X")->isStale());
    sut.setRefresh([&](const std::string&) { sut.driverEnded("A", "signal 9"); });
    EXPECT_TRUE(sut.entries("").front().isStale());
}

TEST(StateStore, FollowersOfADeadDriverAreToldStaleValues) {
    StateStore sut;
    Recording recording;
    sut.addListener(&recording);
    sut.setRefresh([&](const std::string&) { sut.driverEnded("A", "signal 9"); });
    sut.setStateValueInt("A.X", 1);
    EXPECT_EQ(Lines{"A.X=1 stale"}, recording.lines);
}
