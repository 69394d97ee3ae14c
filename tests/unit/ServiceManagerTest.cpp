#include "ServiceManager.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "DatagramReceiver.h"
#include "LogCapture.h"
#include "StateStore.h"
#include "TemporaryDirectory.h"
#include "WorkplaceFile.h"

namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;

constexpr int s_commandThread = 1234;

/// Variables of the environment as they are to be while it lives.
class Environment {
public:
    explicit Environment(const std::map<std::string, std::string>& variables) : m_variables(variables) {
        for (const auto& [name, value] : m_variables)
            ::setenv(name.c_str(), value.c_str(), 1);
    }
    ~Environment() {
        for (const auto& [name, value] : m_variables)
            ::unsetenv(name.c_str());
    }
    Environment(const Environment&) = delete;
    Environment& operator=(const Environment&) = delete;

private:
    const std::map<std::string, std::string> m_variables;
};

class ServiceManagerTest : public testing::Test {
protected:
    ServiceManager::Settings settings(std::chrono::microseconds watchdog = 0us) const {
        return {.socket = m_manager.path(), .watchdog = watchdog, .callLimit = 60s};
    }

    /// All that has been sent by now.
    std::vector<std::string> told() const {
        std::vector<std::string> datagrams;
        while (auto datagram = m_manager.receive(0ms))
            datagrams.push_back(*datagram);
        return datagrams;
    }

    void configure(const std::vector<std::string>& driverIDs) {
        std::vector<WorkplaceFile::Entry> entries;
        for (const std::string& driverID : driverIDs)
            entries.emplace_back().driverID = driverID;
        m_drivers.configure(entries, true);
    }
    void run(const std::string& driverID) {
        m_drivers.beginStart(driverID);
        m_drivers.processStarted(driverID, 100);
    }
    /// Everything that the watching thread tells in one round after that time.
    std::vector<std::string> watch(ServiceManager& sut, std::chrono::milliseconds after,
                                   const CommandActivity& activity = {}) {
        sut.watch(activity, m_drivers, m_begin + after);
        return told();
    }

    const TemporaryDirectory m_directory;
    const DatagramReceiver m_manager{m_directory.path("notify")};
    LogCapture m_log;
    StateStore m_store;
    DriverTable m_drivers{m_store};
    const ServiceManager::Clock::time_point m_begin = ServiceManager::Clock::now();
};

TEST_F(ServiceManagerTest, TakesItsSettingsFromTheEnvironment) {
    const Environment environment({{"NOTIFY_SOCKET", "/run/notify"}, {"WATCHDOG_USEC", "30000000"}});
    const auto settings = ServiceManager::Settings::ofEnvironment(5s);
    EXPECT_EQ(settings.socket, "/run/notify");
    EXPECT_EQ(settings.watchdog, 30s);
    EXPECT_EQ(settings.callLimit, 5s);
}

TEST_F(ServiceManagerTest, WatchdogOfAnotherProcessIsNotItsOwn) {
    const Environment foreign({{"WATCHDOG_USEC", "30000000"}, {"WATCHDOG_PID", "1"}});
    EXPECT_EQ(ServiceManager::Settings::ofEnvironment(5s).watchdog, 0us);
    const Environment own({{"WATCHDOG_PID", std::to_string(::getpid())}});
    EXPECT_EQ(ServiceManager::Settings::ofEnvironment(5s).watchdog, 30s);
}

TEST_F(ServiceManagerTest, WithoutOneNothingIsTold) {
    ServiceManager sut(ServiceManager::Settings::ofEnvironment(5s));
    EXPECT_FALSE(sut.isThere());
    sut.started();
    sut.stopping();
    EXPECT_THAT(told(), IsEmpty());
    EXPECT_EQ(m_log.finish(), "");
}

TEST_F(ServiceManagerTest, TellsThatItIsStarted) {
    ServiceManager sut(settings());
    sut.started();
    EXPECT_THAT(told(), ElementsAre("READY=1\n"));
}

TEST_F(ServiceManagerTest, TellsThatChangedFilesAreTakenOver) {
    ServiceManager sut(settings());
    sut.reloadBegins();
    EXPECT_THAT(told(), ElementsAre(MatchesRegex("RELOADING=1\nMONOTONIC_USEC=[0-9]+\n")));
    sut.reloadEnded();
    EXPECT_THAT(told(), ElementsAre("READY=1\n"));
}

TEST_F(ServiceManagerTest, TellsOnceThatItStops) {
    ServiceManager sut(settings());
    sut.stopping();
    sut.stopping();
    EXPECT_THAT(told(), ElementsAre("STOPPING=1\n"));
}

TEST_F(ServiceManagerTest, OneThatStopsIsNotReadyAgain) {
    ServiceManager sut(settings());
    sut.reloadBegins();
    sut.stopping();
    told();
    sut.reloadEnded();
    EXPECT_THAT(told(), IsEmpty());
}

TEST_F(ServiceManagerTest, TellsHowManyDriversRun) {
    ServiceManager sut(settings());
    sut.started();
    told();
    configure({"A", "B"});
    run("A");
    EXPECT_THAT(watch(sut, 0s), ElementsAre("STATUS=1 of 2 drivers run; not B\n"));
    run("B");
    EXPECT_THAT(watch(sut, 1s), ElementsAre("STATUS=2 of 2 drivers run\n"));
    EXPECT_THAT(watch(sut, 2s), IsEmpty()) << "nothing has changed";
}

TEST_F(ServiceManagerTest, LooksOnceASecond) {
    ServiceManager sut(settings());
    sut.started();
    told();
    EXPECT_EQ(sut.watch({}, m_drivers, m_begin), m_begin + 1s);
    told();
    configure({"A"});
    EXPECT_EQ(sut.watch({}, m_drivers, m_begin + 999ms), m_begin + 1s);
    EXPECT_THAT(told(), IsEmpty());
}

TEST_F(ServiceManagerTest, EachDriverGivesTheStartMoreTime) {
    ServiceManager sut(settings());
    configure({"A", "B"});
    EXPECT_THAT(watch(sut, 0s), IsEmpty()) << "no driver has begun to start";
    run("A");
    EXPECT_THAT(watch(sut, 1s),
                ElementsAre("EXTEND_TIMEOUT_USEC=60000000\nSTATUS=starting: 1 of 2 drivers run; not B\n"));
    EXPECT_THAT(watch(sut, 2s), IsEmpty()) << "a start that does not go on gets no more";
    run("B");
    EXPECT_THAT(watch(sut, 3s),
                ElementsAre("EXTEND_TIMEOUT_USEC=60000000\nSTATUS=starting: 2 of 2 drivers run\n"));
}

TEST_F(ServiceManagerTest, FeedsTheWatchdogThreeTimesInItsTime) {
    ServiceManager sut(settings(30s));
    sut.started();
    told();
    int meals = 0;
    for (auto after = 0s; after < 30s; after += 1s) {
        for (const std::string& datagram : watch(sut, after))
            meals += datagram == "WATCHDOG=1\n" ? 1 : 0;
    }
    EXPECT_EQ(meals, 3);
}

TEST_F(ServiceManagerTest, WantsToBeCalledInTimeForAShortWatchdog) {
    ServiceManager sut(settings(300ms));
    sut.started();
    EXPECT_EQ(sut.watch({}, m_drivers, m_begin), m_begin + 100ms);
}

/// The command thread is in a call of a driver in the host's process.
class ServiceManagerHeldUpTest : public ServiceManagerTest {
protected:
    ServiceManagerHeldUpTest() {
        m_activity.busy = true;
        m_activity.what = "sendFID A.MOVE";
        m_drivers.callBegins("A", "initialize");
        const auto calls = m_drivers.innermostCalls();
        m_activity.thread = calls.front().thread;
        m_since = calls.front().since;
    }
    bool isFed(ServiceManager& sut, std::chrono::milliseconds after) {
        sut.watch(m_activity, m_drivers, m_since + after);
        const auto datagrams = told();
        return std::find(datagrams.begin(), datagrams.end(), "WATCHDOG=1\n") != datagrams.end();
    }

    CommandActivity m_activity;
    ServiceManager::Clock::time_point m_since;
};

TEST_F(ServiceManagerHeldUpTest, CallThatDoesNotComeBackLetsTheWatchdogRunOut) {
    ServiceManager sut(settings(30s));
    sut.started();
    EXPECT_TRUE(isFed(sut, 59s));
    EXPECT_FALSE(isFed(sut, 70s));
    EXPECT_FALSE(isFed(sut, 80s));
    const std::string log = m_log.text();
    EXPECT_THAT(
        log,
        HasSubstr("A: initialize has held up the host for 60 s; its service manager is left to end it\n"));
    EXPECT_EQ(log.find("held up"), log.rfind("held up")) << "said once";
}

TEST_F(ServiceManagerHeldUpTest, CallThatComesBackLateFeedsItAgain) {
    ServiceManager sut(settings(30s));
    sut.started();
    EXPECT_FALSE(isFed(sut, 61s));
    m_drivers.callEnded("A", "initialize");
    EXPECT_TRUE(isFed(sut, 72s));
}

TEST_F(ServiceManagerHeldUpTest, StartMayTakeAsLongAsItNeeds) {
    ServiceManager sut(settings(30s));
    m_activity.what = "start-up";
    EXPECT_TRUE(isFed(sut, 600s));
}

TEST_F(ServiceManagerHeldUpTest, CallsOfOtherThreadsDoNotCount) {
    ServiceManager sut(settings(30s));
    sut.started();
    m_activity.thread = s_commandThread;
    EXPECT_TRUE(isFed(sut, 600s));
}

TEST_F(ServiceManagerTest, PanelIsNotCountedAndAParkedDriverIsSaid) {
    std::vector<DriverTable::Driver> drivers(4);
    drivers[0].id = "A";
    drivers[0].state = EDriverState::Running;
    drivers[1].id = "B";
    drivers[1].state = EDriverState::Hung;
    drivers[2].id = "C";
    drivers[2].state = EDriverState::Parked;
    drivers[3].id = "PANEL";
    drivers[3].state = EDriverState::Running;
    EXPECT_EQ(ServiceManager::status(drivers), "1 of 2 drivers run; not B; 1 is parked");
    EXPECT_EQ(ServiceManager::status({}), "0 of 0 drivers run");
}

TEST_F(ServiceManagerTest, NamesFiveOfThoseThatDoNotRun) {
    std::vector<DriverTable::Driver> drivers(7);
    for (std::size_t i = 0; i < drivers.size(); ++i)
        drivers[i].id = "D" + std::to_string(i);
    EXPECT_EQ(ServiceManager::status(drivers), "0 of 7 drivers run; not D0, D1, D2, D3, D4, ...");
}

TEST_F(ServiceManagerTest, OneThatIsGoneIsSaidOnce) {
    ServiceManager sut({.socket = m_directory.path("nowhere")});
    sut.started();
    sut.stopping();
    const std::string log = m_log.finish();
    EXPECT_THAT(log, HasSubstr("warning  HOST: the service manager cannot be told how the host is: "));
    EXPECT_EQ(log.find("cannot be told"), log.rfind("cannot be told"));
}

}  // namespace
