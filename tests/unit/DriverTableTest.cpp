#include "DriverTable.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "ConfiguredDriver.h"
#include "FIDParameterList.h"
#include "HangGuard.h"
#include "LogCapture.h"

namespace {

class DriverTableTest : public testing::Test {
protected:
    DriverTable::Driver driver(const std::string& id) {
        for (const auto& driver : m_sut.drivers()) {
            if (driver.id == id)
                return driver;
        }
        return {};
    }
    /// What is remembered of its life, without the times.
    static std::vector<std::string> life(const DriverTable& sut, const std::string& id) {
        std::vector<std::string> steps;
        for (const LifeStep& step : sut.life(id))
            steps.push_back(std::string(inWords(step.step)) +
                            (step.pid > 0 ? " " + std::to_string(step.pid) : "") +
                            (step.text.empty() ? "" : ": " + step.text));
        return steps;
    }
    bool isStale(const std::string& key) { return m_store.find(key)->isStale(); }

    StateStore m_store;
    DriverTable m_sut{m_store};
};

}  // namespace

TEST_F(DriverTableTest, KnowsThePanelBeforehand) {
    EXPECT_EQ("Panel", driver("PANEL").type);
    EXPECT_EQ(EInterfaceTypes::Direct, driver("PANEL").interfaceType);
    EXPECT_FALSE(m_sut.isRunning("PANEL"));
}

TEST_F(DriverTableTest, ListsConfiguredDriversInByteOrder) {
    m_sut.configure(
        {configuredDriver("b", EInterfaceTypes::Queue), configuredDriver("B", EInterfaceTypes::Direct)},
        true);
    ASSERT_EQ(3u, m_sut.drivers().size());
    EXPECT_EQ("B", m_sut.drivers()[0].id);
    EXPECT_EQ("PANEL", m_sut.drivers()[1].id);
    EXPECT_EQ("b", m_sut.drivers()[2].id);
    EXPECT_EQ(EDriverState::NotLoaded, driver("b").state);
    EXPECT_EQ("Axis", driver("b").type);
}

TEST_F(DriverTableTest, ProcessRunsFromItsStartToItsEnd) {
    m_sut.processStarted("A", 42);
    EXPECT_TRUE(m_sut.isRunning("A"));
    EXPECT_EQ(42, driver("A").pid);
    m_store.setStateValueInt("A.X", 1);
    EXPECT_EQ(1u, m_sut.processEnded("A", 42, "exit code 3", {}, false)->staleValues);
    EXPECT_FALSE(m_sut.isRunning("A"));
    EXPECT_EQ("exit code 3", driver("A").cause);
    EXPECT_TRUE(isStale("A.X"));
}

TEST_F(DriverTableTest, LateEndOfAnOldProcessLeavesTheNewOneAlone) {
    m_sut.processStarted("A", 42);
    m_sut.processStarted("A", 43);
    m_store.setStateValueInt("A.X", 1);
    EXPECT_FALSE(m_sut.processEnded("A", 42, "exit code 0", {}, false));
    EXPECT_TRUE(m_sut.isRunning("A"));
    EXPECT_FALSE(isStale("A.X"));
}

TEST_F(DriverTableTest, InProcessDriverRunsFromItsConfigurationToItsDeletion) {
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

TEST_F(DriverTableTest, NewInstanceMayReportAgain) {
    m_sut.processStarted("A", 42);
    m_store.setStateValueInt("A.X", 1);
    m_sut.processEnded("A", 42, "signal 9", {}, false);
    m_sut.processStarted("A", 43);
    EXPECT_TRUE(isStale("A.X"));
    m_store.setStateValueInt("A.X", 1);
    EXPECT_FALSE(isStale("A.X"));
}

TEST_F(DriverTableTest, RestartsAreCountedByTheEndBefore) {
    const auto restart = [this] {
        m_sut.addRestart("A");
        m_sut.processStarted("A", 42);
    };
    m_sut.processStarted("A", 42);
    m_sut.processEnded("A", 42, "exit code 3", {}, false, DriverTable::EEnd::Exit);
    restart();
    m_sut.processEnded("A", 42, "signal 11", {}, false, DriverTable::EEnd::Signal);
    restart();
    m_sut.processHung("A", 42, "hung for 10 s");
    m_sut.processEnded("A", 42, "hung for 10 s, signal 9", {}, false, DriverTable::EEnd::Signal);
    restart();
    m_sut.processEnded("A", 42, "unknown end", {}, false);
    restart();
    m_sut.processEnded("A", 42, "exit code 3", {}, false, DriverTable::EEnd::Exit);
    m_sut.beginStart("A");
    m_sut.endProcessStart("A", "no memory", true);
    restart();
    EXPECT_EQ((std::array<unsigned int, 5>{1, 1, 1, 1, 1}), driver("A").restartsAfter);
    EXPECT_EQ(5u, driver("A").restarts);
}

TEST_F(DriverTableTest, EachProcessHangsOnce) {
    m_sut.processStarted("A", 42);
    m_sut.processHung("A", 42, "hung for 10 s");
    m_sut.processHung("A", 42, "hung for 20 s");
    EXPECT_EQ(1u, driver("A").hangs);
    m_sut.processStarted("A", 43);
    m_sut.processHung("A", 42, "hung for 30 s");
    EXPECT_EQ(1u, driver("A").hangs) << "a newer one runs";
    m_sut.processHung("A", 43, "its queue is damaged");
    EXPECT_EQ(2u, driver("A").hangs);
}

TEST(DriverTable, EndsHaveTheirWords) {
    using enum DriverTable::EEnd;
    EXPECT_STREQ("unknown", inWords(Unknown));
    EXPECT_STREQ("exit", inWords(Exit));
    EXPECT_STREQ("signal", inWords(Signal));
    EXPECT_STREQ("hang", inWords(Hang));
    EXPECT_STREQ("no-start", inWords(NoStart));
}

TEST_F(DriverTableTest, NewInstanceBeginsWithoutTraffic) {
    m_sut.processStarted("A", 42);
    m_sut.setTraffic("A", 5, 7);
    m_sut.processStarted("A", 43);
    EXPECT_EQ(0, driver("A").receivedPerSecond);
    EXPECT_EQ(0, driver("A").sentPerSecond);
}

TEST_F(DriverTableTest, DriverThatEndedHasNoTraffic) {
    m_sut.processStarted("A", 42);
    m_sut.setTraffic("A", 5, 7);
    m_sut.processEnded("A", 42, "exit code 3", {}, false);
    EXPECT_EQ(0, driver("A").receivedPerSecond);
    EXPECT_EQ(0, driver("A").sentPerSecond);
}

TEST_F(DriverTableTest, NamesTheOldestCallThatHasNotComeBack) {
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

TEST_F(DriverTableTest, FidIsACallUntilItsDriverHasReturned) {
    m_sut.fidBegins("A", "MOVE", {});
    ASSERT_EQ(1u, m_sut.innermostCalls().size());
    EXPECT_EQ("A", m_sut.innermostCalls().front().driverID);
    EXPECT_EQ("sendFID(MOVE)", m_sut.innermostCalls().front().operation);
    EXPECT_EQ(::gettid(), m_sut.innermostCalls().front().thread);
    m_sut.fidEnded("A", true, nullptr);
    EXPECT_TRUE(m_sut.innermostCalls().empty());
}

TEST_F(DriverTableTest, InnermostCallOfAThreadIsTheOneThatHasNotReturned) {
    m_sut.fidBegins("A", "ONE", {});
    m_sut.fidBegins("B", "TWO", {});
    m_sut.fidBegins("A", "THREE", {});
    const auto innermost = [this] { return m_sut.innermostCalls().front().operation; };
    EXPECT_EQ(1u, m_sut.innermostCalls().size());
    EXPECT_EQ("sendFID(THREE)", innermost());
    m_sut.fidEnded("A", true, nullptr);
    EXPECT_EQ("sendFID(TWO)", innermost());
    m_sut.fidEnded("B", true, nullptr);
    EXPECT_EQ("sendFID(ONE)", innermost());
}

TEST_F(DriverTableTest, EachThreadHasItsOwnInnermostCall) {
    m_sut.fidBegins("A", "ONE", {});
    std::thread([this] {
        m_sut.fidBegins("A", "TWO", {});
        EXPECT_EQ(2u, m_sut.innermostCalls().size());
        m_sut.fidEnded("A", true, nullptr);
    }).join();
    ASSERT_EQ(1u, m_sut.innermostCalls().size());
    EXPECT_EQ("sendFID(ONE)", m_sut.innermostCalls().front().operation);
}

TEST_F(DriverTableTest, LongFidIsCutInItsCall) {
    m_sut.fidBegins("A", std::string(8000, 'x'), {});
    EXPECT_EQ("sendFID(" + std::string(80, 'x') + ")", m_sut.innermostCalls().front().operation);
}

TEST_F(DriverTableTest, DriverThatLeftTheConfigurationIsForgottenUnlessItRuns) {
    m_sut.configure(
        {configuredDriver("A", EInterfaceTypes::Queue), configuredDriver("B", EInterfaceTypes::Queue)}, true);
    m_sut.processStarted("B", 42);
    m_sut.configure({}, true);
    ASSERT_EQ(2u, m_sut.drivers().size());
    EXPECT_EQ("B", m_sut.drivers()[0].id);
    EXPECT_EQ("PANEL", m_sut.drivers()[1].id);
}

TEST_F(DriverTableTest, DriverThatLeftTheConfigurationIsNotForgottenWhileItIsParked) {
    m_sut.configure(
        {configuredDriver("A", EInterfaceTypes::Queue), configuredDriver("B", EInterfaceTypes::Queue)}, true);
    for (const char* id : {"A", "B"}) {
        m_sut.processStarted(id, 42);
        m_sut.beginParking(id, "parked at the console");
        m_sut.processEnded(id, 42, "exit code 0", {}, true);
    }
    m_sut.endParking("A");
    m_sut.configure({}, true);
    ASSERT_EQ(3u, m_sut.drivers().size());
    EXPECT_EQ(EDriverState::Parked, driver("A").state);
    EXPECT_EQ(EDriverState::Parking, driver("B").state);
}

TEST_F(DriverTableTest, DriverThatIsToBeForgottenIsSoWhenNoInstanceIsThere) {
    m_sut.processStarted("A", 42);
    m_sut.beginParking("A", "removed");
    m_sut.endParking("A");
    m_sut.forget("A");
    EXPECT_TRUE(m_sut.find("A"));
    m_sut.processEnded("A", 42, "exit code 0", {}, true);
    EXPECT_FALSE(m_sut.find("A"));
    m_sut.callBegins("B", "setConfiguration");
    m_sut.beginParking("B", "removed");
    m_sut.driverDeleted("B");
    m_sut.endParking("B");
    m_sut.forget("B");
    EXPECT_FALSE(m_sut.find("B"));
}

TEST_F(DriverTableTest, OnlyAParkedDriverIsForgotten) {
    m_sut.processStarted("A", 42);
    m_sut.forget("A");
    m_sut.processEnded("A", 42, "exit code 0", {}, true);
    EXPECT_TRUE(m_sut.find("A"));
    m_sut.forget("NOBODY");
    EXPECT_FALSE(m_sut.find("NOBODY"));
}

TEST_F(DriverTableTest, DriverThatIsStartedAgainIsNotForgotten) {
    m_sut.processStarted("A", 42);
    m_sut.beginParking("A", "removed");
    m_sut.endParking("A");
    m_sut.forget("A");
    m_sut.beginStart("A");
    m_sut.processEnded("A", 42, "exit code 0", {}, true);
    EXPECT_TRUE(m_sut.find("A"));
}

TEST_F(DriverTableTest, ParkedDriverShowsNoProcessOnceItHasEnded) {
    m_sut.processStarted("A", 42);
    EXPECT_EQ(42, driver("A").shownPid());
    m_sut.beginParking("A", "parked");
    m_sut.endParking("A");
    EXPECT_EQ(42, driver("A").shownPid());
    m_sut.processEnded("A", 42, "exit code 0", {}, true);
    EXPECT_EQ(0, driver("A").shownPid());
}

TEST_F(DriverTableTest, StartThatBroughtNoneHasItsCause) {
    m_sut.beginStart("A");
    m_sut.endStart("A", "no adapter eth7");
    EXPECT_EQ("no adapter eth7", driver("A").cause);
    m_sut.beginStart("A");
    m_sut.callBegins("A", "setConfiguration");
    m_sut.endStart("A", "made up");
    EXPECT_EQ("no adapter eth7", driver("A").cause);
}

TEST_F(DriverTableTest, LastProcessOfADriverIsTheOneThatBeganLast) {
    m_sut.processStarted("A", 42);
    EXPECT_TRUE(m_sut.isLast("A", 42));
    m_sut.processEnded("A", 42, "exit code 0", {}, false);
    EXPECT_TRUE(m_sut.isLast("A", 42));
    m_sut.processStarted("A", 43);
    EXPECT_FALSE(m_sut.isLast("A", 42));
    EXPECT_FALSE(m_sut.isLast("NOBODY", 42));
}

TEST_F(DriverTableTest, ConfigurationThatIsNotWholeForgetsNobody) {
    m_sut.configure(
        {configuredDriver("A", EInterfaceTypes::Queue), configuredDriver("B", EInterfaceTypes::Queue)}, true);
    m_sut.processStarted("B", 42);
    m_sut.processEnded("B", 42, "exit code 3", {}, false);
    m_sut.configure({configuredDriver("A", EInterfaceTypes::Direct)}, false);
    ASSERT_EQ(3u, m_sut.drivers().size());
    EXPECT_EQ(EInterfaceTypes::Direct, driver("A").interfaceType);
    EXPECT_EQ(EInterfaceTypes::Queue, driver("B").interfaceType);
    EXPECT_EQ("exit code 3", driver("B").cause);
}

TEST_F(DriverTableTest, ValuesOfAProcessWhoseEndIsNotYetKnownAreNotTheNewOnes) {
    m_sut.processStarted("A", 42);
    m_store.setStateValueInt("A.X", 1);
    m_sut.processStarted("A", 43);
    EXPECT_TRUE(isStale("A.X"));
    EXPECT_EQ("unloaded", m_store.find("A.X")->staleCause);
    m_store.setStateValueInt("A.X", 1);
    EXPECT_FALSE(isStale("A.X"));
}

TEST_F(DriverTableTest, ValuesOfAHungProcessAreStale) {
    m_sut.processStarted("A", 42);
    m_store.setStateValueInt("A.X", 1);
    EXPECT_EQ(1u, m_sut.processHung("A", 42, "hung for 10 s"));
    EXPECT_EQ(EDriverState::Hung, driver("A").state);
    EXPECT_FALSE(m_sut.isRunning("A"));
    EXPECT_EQ("hung for 10 s", m_store.find("A.X")->staleCause);
}

TEST_F(DriverTableTest, OldProcessThatHangsLeavesTheNewOneAlone) {
    m_sut.processStarted("A", 43);
    EXPECT_EQ(std::nullopt, m_sut.processHung("A", 42, "hung for 10 s"));
    EXPECT_TRUE(m_sut.isRunning("A"));
}

TEST_F(DriverTableTest, LastCauseStaysWhenTheDriverRunsAgain) {
    m_sut.processStarted("A", 42);
    m_sut.processEnded("A", 42, "exit code 3", {}, false);
    m_sut.processStarted("A", 43);
    EXPECT_EQ("exit code 3", driver("A").cause);
}

TEST_F(DriverTableTest, DriverWithoutAProcessHasEndedWithItsCause) {
    m_sut.beginStart("A");
    EXPECT_TRUE(m_sut.endProcessStart("A", "never started", true));
    EXPECT_EQ(EDriverState::Ended, driver("A").state);
    EXPECT_EQ("never started", driver("A").cause);
    EXPECT_EQ(0, driver("A").pid);
}

TEST_F(DriverTableTest, HungDriverThatLeftTheConfigurationIsKept) {
    m_sut.processStarted("B", 42);
    m_sut.processHung("B", 42, "hung for 10 s");
    m_sut.configure({}, true);
    EXPECT_EQ("B", m_sut.drivers()[0].id);
}

TEST_F(DriverTableTest, WhatIsToldOfADriverThatNobodyKnowsMakesNoRow) {
    m_sut.processEnded("GONE", 42, "exit code 0", {}, true);
    m_sut.processHung("GONE", 42, "hung for 10 s");
    m_sut.setTraffic("GONE", 1, 2);
    m_sut.driverDeleted("GONE");
    ASSERT_EQ(1u, m_sut.drivers().size());
    EXPECT_EQ("PANEL", m_sut.drivers()[0].id);
}

TEST_F(DriverTableTest, DriverThatWasByHandIsNotOnceItRunsInTheHost) {
    m_sut.processStarted("A", 42, true);
    m_sut.processEnded("A", 42, "unloaded", {}, false);
    m_sut.callBegins("A", "setConfiguration");
    EXPECT_TRUE(m_sut.isRunning("A"));
    EXPECT_FALSE(driver("A").isByHand);
}

TEST_F(DriverTableTest, ProcessOfAParkedDriverLeavesItAsItWas) {
    LogCapture log;
    m_sut.configure({configuredDriver("A", EInterfaceTypes::Direct)}, true);
    m_sut.beginParking("A", "parked");
    m_sut.endParking("A");
    EXPECT_FALSE(m_sut.processStarted("A", 42, true));
    EXPECT_EQ(EDriverState::Parked, driver("A").state);
    EXPECT_EQ(EInterfaceTypes::Direct, driver("A").interfaceType);
    EXPECT_FALSE(driver("A").isByHand);
    EXPECT_EQ(0, driver("A").pid);
    EXPECT_NE(std::string::npos,
              log.text().find("HOST: A: \"an instance begins\" is ignored: the driver is parked\n"));
}

TEST_F(DriverTableTest, HungProcessOfAReloadThatBroughtNoneStillHangs) {
    m_sut.processStarted("A", 42);
    m_sut.processHung("A", 42, "hung for 10 s");
    m_sut.beginStart("A");
    m_sut.endStart("A");
    EXPECT_EQ(EDriverState::Hung, driver("A").state);
    m_sut.beginStart("A");
    m_sut.processStarted("A", 43);
    m_sut.endStart("A");
    EXPECT_EQ(EDriverState::Running, driver("A").state);
}

TEST_F(DriverTableTest, FollowerSeesTheInstanceThatRunsAndTheCauseOfTheParking) {
    std::vector<DriverTable::Driver> seen;
    m_sut.setFollower([&](const DriverTable::Driver& driver) { seen.push_back(driver); });
    m_sut.processStarted("A", 42);
    ASSERT_EQ(1u, seen.size());
    EXPECT_TRUE(seen[0].isAlive);
    EXPECT_EQ(42, seen[0].pid);
    EXPECT_EQ(1u, seen[0].start);
    m_sut.beginParking("A", "parked");
    m_sut.endParking("A");
    ASSERT_EQ(3u, seen.size());
    EXPECT_EQ(EDriverState::Parked, seen[2].state);
    EXPECT_EQ("parked", seen[2].cause);
}

// Ends and next tries.

namespace {

class DriverTableThatRestarts : public DriverTableTest {
protected:
    using Milliseconds = std::chrono::milliseconds;

    /// Ends a process of the driver that ran that long.
    DriverTable::End end(const std::string& id, Milliseconds ran = {}) {
        m_restarting.processStarted(id, ++m_pid);
        return m_restarting.processEnded(id, m_pid, "exit code 3", ran, true).value();
    }
    EDriverState state(const std::string& id) { return m_restarting.find(id)->state; }
    /// Brings it from Waiting to Starting.
    void beginRestart(const std::string& id) {
        m_restarting.takeDue(DriverTable::Clock::now() + std::chrono::hours(1));
        ASSERT_TRUE(m_restarting.beginRestart(id));
    }

    int m_pid = 100;
    DriverTable m_restarting{
        m_store,
        RestartPlan::Settings{.firstDelay = Milliseconds(100), .limit = 2, .random = [] { return 0.5; }}};
};

}  // namespace

TEST_F(DriverTableThatRestarts, DriverThatEndsWaitsUntilItIsDueOnce) {
    EXPECT_EQ(Milliseconds(100), end("A").next.delay);
    EXPECT_EQ(EDriverState::Waiting, state("A"));
    const auto next = m_restarting.find("A")->nextTry.value();
    EXPECT_EQ(next, m_restarting.nextDue());
    EXPECT_TRUE(m_restarting.takeDue(next - Milliseconds(1)).empty());
    EXPECT_EQ(std::vector<std::string>{"A"}, m_restarting.takeDue(next));
    EXPECT_EQ(EDriverState::Due, state("A"));
    EXPECT_TRUE(m_restarting.takeDue(next).empty());
    EXPECT_EQ(std::nullopt, m_restarting.nextDue());
}

TEST_F(DriverTableThatRestarts, NextDueIsTheEarliest) {
    end("A");
    end("B");
    EXPECT_EQ(std::min(*m_restarting.find("A")->nextTry, *m_restarting.find("B")->nextTry),
              m_restarting.nextDue());
}

TEST_F(DriverTableThatRestarts, OnlyADueDriverIsStartedAgain) {
    EXPECT_FALSE(m_restarting.beginRestart("A"));
    end("A");
    EXPECT_FALSE(m_restarting.beginRestart("A"));
    m_restarting.takeDue(DriverTable::Clock::now() + std::chrono::hours(1));
    EXPECT_TRUE(m_restarting.beginRestart("A"));
    EXPECT_FALSE(m_restarting.beginRestart("A"));
}

TEST_F(DriverTableThatRestarts, CommandOvertakesADueDriver) {
    end("A");
    m_restarting.takeDue(DriverTable::Clock::now() + std::chrono::hours(1));
    m_restarting.beginStart("A");
    EXPECT_FALSE(m_restarting.beginRestart("A"));
    EXPECT_FALSE(m_restarting.find("A")->nextTry);
}

TEST_F(DriverTableThatRestarts, StaysEndedAtTheLimitUntilACommandStartsIt) {
    end("A");
    end("A");
    const auto last = end("A");
    EXPECT_EQ(std::nullopt, last.next.delay);
    EXPECT_EQ(2u, last.next.limit);
    EXPECT_EQ(EDriverState::Ended, state("A"));
    EXPECT_FALSE(m_restarting.find("A")->nextTry);
    m_restarting.beginStart("A");
    EXPECT_EQ(Milliseconds(100), end("A").next.delay);
}

TEST_F(DriverTableThatRestarts, EachDriverHasAPlanOfItsOwn) {
    end("A");
    EXPECT_EQ(Milliseconds(200), end("A").next.delay);
    EXPECT_EQ(Milliseconds(100), end("B").next.delay);
}

TEST_F(DriverTableThatRestarts, StartThatIsNotTriedCountsTowardsNoLimit) {
    end("A");
    for (int i = 0; i < 5; ++i) {
        beginRestart("A");
        const auto missing = m_restarting.endProcessStart("A", "no room", false);
        ASSERT_TRUE(missing);
        EXPECT_TRUE(missing->next.delay);
        EXPECT_EQ(i == 0, missing->isNews);
    }
}

TEST_F(DriverTableThatRestarts, ProcessThatEndsWhileItStartsIsPlannedOnce) {
    end("A");
    beginRestart("A");
    end("A");
    EXPECT_FALSE(m_restarting.endProcessStart("A", "never started", true));
    EXPECT_EQ(EDriverState::Waiting, state("A"));
}

TEST_F(DriverTableThatRestarts, InstanceTellsWhetherTheHostItselfHasStartedIt) {
    EXPECT_FALSE(m_restarting.processStarted("A", 1));
    m_restarting.processEnded("A", 1, "exit code 3", {}, true);
    beginRestart("A");
    EXPECT_TRUE(m_restarting.processStarted("A", 2));
    m_restarting.processEnded("A", 2, "exit code 3", {}, true);
    beginRestart("A");
    m_restarting.beginStart("A");
    EXPECT_FALSE(m_restarting.processStarted("A", 3));
}

TEST_F(DriverTableThatRestarts, DriverThatIsGivenUpIsNotDue) {
    end("A");
    beginRestart("A");
    m_restarting.giveUp("A");
    EXPECT_EQ(EDriverState::Ended, state("A"));
    EXPECT_TRUE(m_restarting.takeDue(DriverTable::Clock::now() + std::chrono::hours(1)).empty());
}

TEST_F(DriverTableThatRestarts, EndThatACommandAskedForIsNotPlanned) {
    m_restarting.processStarted("A", 1);
    m_restarting.beginStart("A");
    const auto end = m_restarting.processEnded("A", 1, "exit code 0", {}, true);
    ASSERT_TRUE(end);
    EXPECT_TRUE(end->wasAsked);
    EXPECT_EQ(std::nullopt, end->next.delay);
    EXPECT_EQ(EDriverState::Starting, state("A"));
}

TEST_F(DriverTableThatRestarts, FormerProcessOfAReloadThatBroughtNoneIsStillPlanned) {
    m_restarting.processStarted("A", 1);
    m_restarting.beginStart("A");
    EXPECT_FALSE(m_restarting.endProcessStart("A", "never started", true));
    EXPECT_EQ(EDriverState::Running, state("A"));
    EXPECT_TRUE(m_restarting.processEnded("A", 1, "exit code 0", {}, true)->next.delay);
}

// Parking.

TEST_F(DriverTableThatRestarts, ParkedDriverIsNotPlannedAndItsValuesSaySo) {
    m_restarting.processStarted("A", 1);
    m_store.setStateValueInt("A.X", 1);
    m_restarting.beginParking("A", "parked");
    EXPECT_TRUE(m_restarting.processEnded("A", 1, "signal 9", {}, true)->wasAsked);
    m_restarting.endParking("A");
    EXPECT_EQ(EDriverState::Parked, state("A"));
    EXPECT_EQ("parked", m_restarting.find("A")->cause);
    EXPECT_EQ("parked", m_store.find("A.X")->staleCause);
    EXPECT_EQ(std::nullopt, m_restarting.nextDue());
}

TEST_F(DriverTableThatRestarts, ValuesOfACrashedDriverSayThatItIsParked) {
    m_restarting.processStarted("A", 1);
    m_store.setStateValueInt("A.X", 1);
    m_restarting.processEnded("A", 1, "signal 9", {}, true);
    m_restarting.beginParking("A", "parked");
    m_restarting.endParking("A");
    EXPECT_EQ("parked", m_store.find("A.X")->staleCause);
}

TEST_F(DriverTableThatRestarts, ProcessThatEndsAfterItsParkingChangesNothing) {
    m_restarting.processStarted("A", 1);
    m_restarting.beginParking("A", "parked");
    m_restarting.endParking("A");
    EXPECT_TRUE(m_restarting.processEnded("A", 1, "exit code 0", {}, true)->wasAsked);
    EXPECT_EQ(EDriverState::Parked, state("A"));
    m_restarting.beginStart("A");
    EXPECT_EQ(EDriverState::Starting, state("A"));
}

TEST_F(DriverTableThatRestarts, EventThatMustNotHappenIsRefusedWithALine) {
    LogCapture log;
    m_restarting.processStarted("A", 1);
    m_restarting.giveUp("A");
    EXPECT_EQ(EDriverState::Running, state("A"));
    EXPECT_NE(std::string::npos,
              log.text().find("HOST: A: \"it is given up\" is ignored: the driver is running\n"))
        << log.text();
}

TEST_F(DriverTableThatRestarts, FollowerLearnsOfEachChange) {
    std::vector<EDriverState> states;
    m_restarting.setFollower([&](const DriverTable::Driver& driver) { states.push_back(driver.state); });
    end("A");
    beginRestart("A");
    m_restarting.endProcessStart("A", "never started", true);
    EXPECT_EQ((std::vector{EDriverState::Running, EDriverState::Waiting, EDriverState::Due,
                           EDriverState::Starting, EDriverState::Waiting}),
              states);
}

// Whatever the table is asked while another thread changes it has to wait for that.
TEST_F(DriverTableTest, NoThreadIsInsideWhileAnotherChangesIt) {
    const LogCapture log;
    const FIDParameterList none;
    const std::vector<std::function<void()>> operations{
        [&] { m_sut.configure({}, true); },
        [&] { m_sut.beginStart("B"); },
        [&] { m_sut.beginRestart("B"); },
        [&] { m_sut.endStart("B"); },
        [&] { m_sut.endProcessStart("B", "never started", true); },
        [&] { m_sut.giveUp("B"); },
        [&] { m_sut.addRestart("B"); },
        [&] { m_sut.beginParking("B", "parked"); },
        [&] { m_sut.endParking("B"); },
        [&] { m_sut.forget("B"); },
        [&] { m_sut.processStarted("B", 43); },
        [&] { m_sut.processEnded("B", 43, "exit code 0", {}, false); },
        [&] { m_sut.processHung("B", 43, "hung for 10 s"); },
        [&] { m_sut.setTraffic("B", 1, 1); },
        [&] { m_sut.callBegins("B", "setConfiguration"); },
        [&] { m_sut.callEnded("B", "setConfiguration"); },
        [&] { m_sut.driverDeleted("B"); },
        [&] { m_sut.fidBegins("B", "GO", none); },
        [&] { m_sut.fidEnded("B", true, nullptr); },
        [&] { m_sut.takeDue(DriverTable::Clock::now()); },
        [&] { m_sut.nextDue(); },
        [&] { m_sut.drivers(); },
        [&] { m_sut.find("B"); },
        [&] { m_sut.isRunning("B"); },
        [&] { m_sut.hasProcess("B"); },
        [&] { m_sut.isLast("B", 43); },
        [&] { m_sut.oldestCall(); },
        [&] { m_sut.innermostCalls(); },
    };
    std::atomic<std::size_t> begun = 0;
    std::vector<std::atomic<bool>> areDone(operations.size());
    std::vector<std::thread> threads;
    std::vector<std::size_t> early;
    bool isFirst = true;
    m_sut.setFollower([&](const DriverTable::Driver&) {
        // Under the lock, as the table says.
        if (!std::exchange(isFirst, false))
            return;
        for (std::size_t i = 0; i < operations.size(); ++i) {
            threads.emplace_back([&, i] {
                ++begun;
                operations[i]();
                areDone[i] = true;
            });
        }
        EXPECT_TRUE(eventually([&] { return begun == operations.size(); }));
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        for (std::size_t i = 0; i < operations.size(); ++i) {
            if (areDone[i])
                early.push_back(i);
        }
    });
    m_sut.processStarted("A", 42);
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(std::vector<std::size_t>(), early);
}

TEST_F(DriverTableTest, LifeOfAProcessIsRemembered) {
    using Steps = std::vector<std::string>;
    DriverTable sut(m_store, RestartPlan::Settings{});
    sut.beginStart("A");
    sut.processStarted("A", 42);
    sut.setTraffic("A", 0, 0);
    EXPECT_EQ((Steps{"start 42"}), life(sut, "A"));
    sut.setTraffic("A", 1, 0);
    sut.setTraffic("A", 2, 1);
    sut.processHung("A", 42, "does not answer");
    sut.processHung("A", 42, "does not answer");
    sut.processEnded("A", 42, "signal 9", std::chrono::hours(1), true);
    EXPECT_EQ((Steps{"start 42", "answer 42", "hang 42: does not answer", "end 42: signal 9",
                     "restart 42: at once"}),
              life(sut, "A"));
    EXPECT_EQ((Steps{}), life(sut, "B"));
}

TEST_F(DriverTableTest, LifeHasTheEndOfTheProcessThatAReloadReplaces) {
    m_sut.processStarted("A", 42);
    m_sut.beginStart("A");
    m_sut.processStarted("A", 43);
    m_sut.processEnded("A", 42, "exit code 0", {}, false);
    EXPECT_EQ((std::vector<std::string>{"start 42", "end 42: unloaded", "start 43"}), life(m_sut, "A"));
}

TEST_F(DriverTableTest, LifeTellsParkingAndStartsThatFail) {
    m_sut.processStarted("A", 42);
    m_sut.beginParking("A", "parked by anna");
    m_sut.processEnded("A", 42, "exit code 0", {}, false);
    m_sut.endParking("A");
    m_sut.beginStart("A");
    m_sut.endProcessStart("A", "the module is missing", true);
    EXPECT_EQ((std::vector<std::string>{"start 42", "end 42: parked by anna", "parked 42: parked by anna",
                                        "unparked 42", "failed: the module is missing"}),
              life(m_sut, "A"));
}

TEST_F(DriverTableTest, DriverInTheHostsProcessAnswersWhenItsStartIsOver) {
    m_sut.beginStart("A");
    m_sut.callBegins("A", "setConfiguration");
    EXPECT_EQ((std::vector<std::string>{"start"}), life(m_sut, "A"));
    m_sut.callEnded("A", "setConfiguration");
    m_sut.endStart("A");
    m_sut.driverDeleted("A");
    EXPECT_EQ((std::vector<std::string>{"start", "answer", "end: unloaded"}), life(m_sut, "A"));
}

TEST_F(DriverTableTest, OnlyTheLastStepsAreRemembered) {
    for (int i = 1; i <= 150; ++i) {
        m_sut.processStarted("A", i);
        m_sut.processEnded("A", i, "signal 9", {}, false);
    }
    const auto steps = life(m_sut, "A");
    ASSERT_EQ(DriverTable::s_mostSteps, steps.size());
    EXPECT_EQ("start 51", steps.front());
    EXPECT_EQ("end 150: signal 9", steps.back());
}
