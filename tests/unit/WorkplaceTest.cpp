#include "Workplace.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <sys/stat.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "FileWatch.h"
#include "IMDMConfiguration.h"
#include "LogCapture.h"
#include "ProcessSupervisor.h"
#include "TemporaryDirectory.h"
#include "WithoutCapabilities.h"
#include "WorkplaceFile.h"
#include "XmlInput.h"

namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

/// Loads what the file that it is given says, and tells the table as the real one's drivers and processes
/// would.
class Module : public IMDMConfiguration {
public:
    explicit Module(DriverTable& drivers) : m_drivers(drivers) {}

    IInterface* queryInterface(unsigned int) override { return nullptr; }
    void searchMfDriver(const std::string& directory) override {
        calls.push_back("search " + directory);
        read.clear();
        for (const auto& file : std::filesystem::directory_iterator(directory))
            if (file.path().extension() == ".xml" && WorkplaceAdmission::acceptsDescriptor(file.path()))
                read.insert(file.path().filename());
    }
    bool startMfDriver(int, const std::string&, const std::string&, const std::string&, const std::string&,
                       const std::string&, const std::string&, EInterfaceTypes) override {
        return false;
    }
    bool startMfDrivers(const std::string& configurationPath) override {
        calls.emplace_back("start");
        m_path = configurationPath;
        begin("PANEL", EInterfaceTypes::Direct);
        for (const auto& entry : entries()) {
            started.push_back(entry.driverID);
            load(entry);
        }
        return true;
    }
    bool reloadMfDriver(const std::string& driverID) override {
        calls.push_back("reload " + driverID);
        if (!canRead)
            return false;
        if (throwsBefore)
            throw std::runtime_error("no memory");
        for (const auto& entry : entries()) {
            if (entry.driverID != driverID)
                continue;
            unload(driverID);
            if (throwsAfter)
                throw std::runtime_error("no memory");
            load(entry);
            return true;
        }
        return false;
    }
    std::string getPDLFilename(std::string&) const override { return {}; }

    std::vector<std::string> calls;
    std::vector<std::string> started;  ///< the entries that it found for the start
    std::set<std::string> loaded;
    std::set<std::string> announced{"Axis"};
    std::function<void(const std::string& driverID)> onBegin;
    std::set<std::string> unloadable;  ///< drivers that it cannot load
    bool startsProcesses = true;
    bool canRead = true;
    bool throwsBefore = false;  ///< anything is unloaded, or after it
    bool throwsAfter = false;
    bool endsProcesses = true;   ///< at once when it unloads them
    std::set<std::string> read;  ///< descriptors in the last search
    int lastPid = 4'000'000;     ///< more than the system has

private:
    std::vector<WorkplaceFile::Entry> entries() const {
        return m_path.empty() ? std::vector<WorkplaceFile::Entry>()
                              : WorkplaceFile(m_path, XmlInput::read(m_path)).entries();
    }
    void load(const WorkplaceFile::Entry& entry) {
        if (announced.contains(entry.driverType) && entry.isLoaded() && !unloadable.contains(entry.driverID))
            begin(entry.driverID, entry.interfaceType);
    }
    void begin(const std::string& driverID, EInterfaceTypes interfaceType) {
        loaded.insert(driverID);
        if (onBegin)
            onBegin(driverID);
        if (interfaceType == EInterfaceTypes::Queue) {
            if (startsProcesses)
                m_drivers.processStarted(driverID, ++lastPid);
            return;
        }
        m_drivers.callBegins(driverID, "setConfiguration");
        m_drivers.callEnded(driverID, "setConfiguration");
    }
    void unload(const std::string& driverID) {
        loaded.erase(driverID);
        const auto driver = m_drivers.find(driverID);
        if (driver && driver->pid > 0 && !endsProcesses)
            return;
        if (driver && driver->pid > 0)
            m_drivers.processEnded(driverID, driver->pid, "exit code 0", {}, true);
        else
            m_drivers.driverDeleted(driverID);
    }

    DriverTable& m_drivers;
    std::string m_path;
};

/// What a host has of it, made anew for each start of the host.
struct TestHost {
    explicit TestHost(const TemporaryDirectory& directory, std::string file, bool startsProcesses = true)
        : workplace({.file = std::move(file),
                     .driverDirectories = {directory.path("drivers")},
                     .parkMarks = directory.path("marks"),
                     .history = directory.path("history"),
                     .startsProcesses = startsProcesses},
                    drivers, supervisor,
                    {.concerns = [this](const std::string& driverID) { concerns.push_back(driverID); },
                     .tellPanel = [this] { ++panelTold; },
                     .loadFault = [this](const std::string& path) { return loadFaults[path]; }}) {
        module.startsProcesses = startsProcesses;
    }

    bool start() { return workplace.prepareStart() && workplace.start(module); }
    std::string reload(const std::string& driverID) {
        return workplace.reload(driverID, [&] { module.reloadMfDriver(driverID); });
    }
    EDriverState state(const std::string& driverID) const { return drivers.find(driverID)->state; }
    std::uint64_t startOf(const std::string& driverID) const { return drivers.find(driverID)->start; }
    /// The driver ends by itself, and its time comes.
    void crash(const std::string& driverID) {
        drivers.processEnded(driverID, drivers.find(driverID)->pid, "signal 9 (Killed)", {}, true);
        drivers.takeDue(DriverTable::Clock::now() + 1h);
    }

    StateStore store;
    DriverTable drivers{store, RestartPlan::Settings{.random = [] { return 0.5; }}};
    ProcessSupervisor supervisor{drivers,
                                 {},
                                 {.activity = [] { return CommandActivity(); },
                                  .queues = [] { return std::vector<sal::MessageQueue::Status>(); },
                                  .receiverGone = [](const std::string&, auto) {},
                                  .exitNow = [](int) {},
                                  .restart = {},
                                  .hasReader = [](const std::string&) { return false; }}};
    Module module{drivers};
    std::vector<std::string> concerns;
    int panelTold = 0;
    std::map<std::string, std::string> loadFaults;
    Workplace workplace;
};

class WorkplaceTest : public testing::Test {
protected:
    WorkplaceTest() {
        ::setenv("MFD_QUEUE_DIR", m_directory.path("queues").c_str(), 1);
        std::filesystem::create_directory(m_directory.path("queues"));
        ::chmod(m_directory.path("queues").c_str(), 0700);
        for (const char* module : {"drivers/axis.so", "drivers/panel.so"})
            m_directory.write(module, "module");
        announce("Axis");
        configure(entry("A") + entry("B") + entry("C", "direct"));
    }
    ~WorkplaceTest() override { ::unsetenv("MFD_QUEUE_DIR"); }

    void announce(const std::string& type) {
        m_directory.write("drivers/axis.xml", "<mfDriverModule><module_type name='axis.so' type='" + type +
                                                  "' version='1.0'/><module_type name='panel.so' "
                                                  "type='Panel' version='1.0'/></mfDriverModule>");
    }
    static std::string entry(const std::string& id, const std::string& interfaceType = "queue",
                             const std::string& type = "Axis") {
        return "<mainframeDriver driverID='" + id + "' driverType='" + type +
               "' version='1.0' workingDirectory='data/" + id + "' interfaceType='" + interfaceType + "'/>\n";
    }
    void configure(const std::string& entries) {
        m_directory.write("w.xml",
                          "<workplaces>\n<workplace id='0'>\n" + entries + "</workplace>\n</workplaces>\n");
    }
    std::unique_ptr<TestHost> host() { return std::make_unique<TestHost>(m_directory, path()); }
    std::unique_ptr<TestHost> startedHost() {
        auto pHost = host();
        EXPECT_TRUE(pHost->start());
        pHost->module.calls.clear();
        return pHost;
    }
    std::string path() const { return m_directory.path("w.xml"); }
    std::string marks() const {
        const std::string text = m_directory.read("marks");
        return text.substr(std::min(text.size(), text.find('\n') + 1));
    }

    TemporaryDirectory m_directory;
    LogCapture m_log;
};

}  // namespace

TEST_F(WorkplaceTest, StartLoadsTheDriversOfTheFile) {
    const auto pHost = host();
    EXPECT_TRUE(pHost->start());
    EXPECT_THAT(pHost->module.calls, ElementsAre("search " + m_directory.path("drivers"), "start"));
    for (const char* id : {"A", "B", "C", "PANEL"})
        EXPECT_EQ(EDriverState::Running, pHost->state(id)) << id;
    EXPECT_EQ(1, pHost->panelTold);
    // It is not signed, so that is all that is said.
    const std::string text = m_log.text();
    EXPECT_THAT(text, HasSubstr("info     HOST: what was checked of " + path() + " is loaded from /proc"));
    EXPECT_EQ(1, std::count(text.begin(), text.end(), '\n')) << text;
}

TEST_F(WorkplaceTest, FileThatMayNotBeStartedFromStartsNothing) {
    configure(entry("A") + entry("A"));
    const auto pHost = host();
    EXPECT_FALSE(pHost->start());
    EXPECT_THAT(pHost->module.calls, IsEmpty());
    EXPECT_THAT(m_log.text(), HasSubstr("; the workplace is not started\n"));
}

TEST_F(WorkplaceTest, DriverToBeDebuggedIsReloadedAndItsProcessAloneWaits) {
    const auto pHost = startedHost();
    std::vector<std::size_t> variables;
    pHost->module.onBegin = [&](const std::string& driverID) {
        variables.push_back(pHost->supervisor.variables({"m.so", driverID}).size());
    };
    EXPECT_EQ("", pHost->workplace.debug("A"));
    EXPECT_THAT(variables, ElementsAre(1u));
    EXPECT_EQ("", pHost->reload("A"));
    EXPECT_THAT(variables, ElementsAre(1u, 0u));
}

TEST_F(WorkplaceTest, OnlyADriverWithAProcessIsDebugged) {
    const auto pHost = startedHost();
    EXPECT_EQ(
        "it has no process of its own; a debugger takes the host's, process " + std::to_string(::getpid()),
        pHost->workplace.debug("C"));
    EXPECT_EQ("", pHost->workplace.park("A"));
    EXPECT_EQ("it is parked; start it instead", pHost->workplace.debug("A"));
    EXPECT_EQ("", pHost->workplace.unpark("A"));
    EXPECT_TRUE(pHost->supervisor.variables({"m.so", "A"}).empty());
}

TEST_F(WorkplaceTest, FileIsReadOnceForEachDecision) {
    FileWatch watch(m_directory.path());
    const auto pHost = startedHost();
    EXPECT_EQ(1, watch.opened("w.xml"));
    EXPECT_EQ("", pHost->reload("A"));
    EXPECT_EQ(1, watch.opened("w.xml"));
    pHost->crash("A");
    pHost->workplace.restart("A");
    EXPECT_EQ(EDriverState::Running, pHost->state("A"));
    EXPECT_EQ(1, watch.opened("w.xml"));
    EXPECT_EQ("", pHost->workplace.park("A"));
    EXPECT_EQ(0, watch.opened("w.xml"));
    EXPECT_EQ("", pHost->workplace.unpark("A"));
    EXPECT_EQ(1, watch.opened("w.xml"));
    pHost->workplace.plan();
    EXPECT_EQ(1, watch.opened("w.xml"));
    EXPECT_EQ("no changes", pHost->workplace.apply({}, "console").outcome());
    EXPECT_EQ(1, watch.opened("w.xml"));
    configure(entry("A", "direct") + entry("NEW"));
    watch.opened("w.xml");
    EXPECT_EQ("4 of 4 changes done", pHost->workplace.apply({}, "console").outcome());
    EXPECT_EQ(1, watch.opened("w.xml"));
    // A refusal has read it as well.
    configure(entry("B"));
    watch.opened("w.xml");
    EXPECT_NE("", pHost->reload("A"));
    EXPECT_EQ(1, watch.opened("w.xml"));
}

TEST_F(WorkplaceTest, ReloadTakesWhatTheFileSaysNow) {
    const auto pHost = startedHost();
    configure(entry("A", "direct") + entry("B"));
    EXPECT_EQ("", pHost->reload("A"));
    EXPECT_EQ(EInterfaceTypes::Direct, pHost->drivers.find("A")->interfaceType);
    EXPECT_EQ(EDriverState::Running, pHost->state("A"));
    EXPECT_EQ(2u, pHost->startOf("A"));
    EXPECT_EQ(1u, pHost->startOf("B"));
    EXPECT_THAT(pHost->concerns, ElementsAre("A", ""));
}

TEST_F(WorkplaceTest, ReloadOfThePanelTellsTheNewOne) {
    const auto pHost = startedHost();
    pHost->module.announced.insert("Panel");
    configure(entry("A") + entry("PANEL", "direct", "Panel"));
    EXPECT_EQ("", pHost->reload("PANEL"));
    EXPECT_EQ(2u, pHost->startOf("PANEL"));
    EXPECT_EQ(2, pHost->panelTold);
}

TEST_F(WorkplaceTest, ReloadIsRefusedWithoutAnythingDone) {
    const auto pHost = startedHost();
    configure(entry("B"));
    EXPECT_EQ(path() + " has no driver \"A\"", pHost->reload("A"));
    m_directory.write("w.xml", "broken");
    EXPECT_THAT(pHost->reload("B"), HasSubstr(path()));
    EXPECT_THAT(pHost->module.calls, IsEmpty());
    EXPECT_EQ(EDriverState::Running, pHost->state("A"));
    EXPECT_THAT(pHost->concerns, IsEmpty());
}

TEST_F(WorkplaceTest, ReloadThatIsBrokenOffConcernsNobodyAnyMore) {
    const auto pHost = startedHost();
    EXPECT_THROW(pHost->workplace.reload("A", [] { throw std::runtime_error("no memory"); }),
                 std::runtime_error);
    EXPECT_THAT(pHost->concerns, ElementsAre("A", ""));
    EXPECT_EQ("", pHost->reload("A"));
    EXPECT_EQ(EDriverState::Running, pHost->state("A"));
}

TEST_F(WorkplaceTest, DriverWithoutAProcessIsPlannedAgain) {
    const auto pHost = startedHost();
    pHost->module.startsProcesses = false;
    EXPECT_EQ("", pHost->reload("A"));
    EXPECT_EQ(EDriverState::Waiting, pHost->state("A"));
    EXPECT_THAT(m_log.text(),
                testing::ContainsRegex(
                    "A: no process runs: (never started|no adapter eth0); it is started again in"));
}

TEST_F(WorkplaceTest, DriverWithoutAProcessHasTheCauseThatIsSeen) {
    configure(
        "<mainframeDriver driverID='N' driverType='Axis' version='1.0' workingDirectory='data/N' "
        "networkAdapter='eth77' interfaceType='queue'/>\n");
    const auto pHost = host();
    pHost->module.announced = {"Axis"};
    pHost->module.startsProcesses = false;
    EXPECT_TRUE(pHost->start());
    EXPECT_EQ("no adapter eth77", pHost->drivers.find("N")->cause);
    EXPECT_THAT(m_log.text(), HasSubstr("N: no process runs: no adapter eth77; it is started again in"));
}

// Parking.

TEST_F(WorkplaceTest, ParkedDriverIsUnloadedAndNoOther) {
    const auto pHost = startedHost();
    pHost->store.setStateValueInt("A.X", 1);
    pHost->store.setStateValueInt("B.X", 1);
    EXPECT_EQ("", pHost->workplace.park("A"));
    EXPECT_EQ(EDriverState::Parked, pHost->state("A"));
    EXPECT_FALSE(pHost->drivers.find("A")->isAlive);
    EXPECT_EQ(1u, pHost->startOf("A"));
    EXPECT_EQ(EDriverState::Running, pHost->state("B"));
    EXPECT_EQ(1u, pHost->startOf("B"));
    EXPECT_EQ("parked at the console", pHost->store.find("A.X")->staleCause);
    EXPECT_EQ("", pHost->store.find("B.X")->staleCause);
    EXPECT_THAT(pHost->module.loaded, ElementsAre("B", "C", "PANEL"));
    EXPECT_THAT(pHost->module.calls, ElementsAre("reload A"));
    EXPECT_THAT(pHost->concerns, ElementsAre("A", ""));
    EXPECT_EQ("A\n", marks());
    EXPECT_THAT(m_log.text(), HasSubstr("info     HOST: A: is parked; startDriver A starts it\n"));
}

TEST_F(WorkplaceTest, DriverOfTheHostsProcessIsParkedAsWell) {
    const auto pHost = startedHost();
    EXPECT_EQ("", pHost->workplace.park("C"));
    EXPECT_EQ(EDriverState::Parked, pHost->state("C"));
    EXPECT_FALSE(pHost->drivers.find("C")->isAlive);
    EXPECT_EQ("", pHost->workplace.unpark("C"));
    EXPECT_EQ(EDriverState::Running, pHost->state("C"));
}

TEST_F(WorkplaceTest, NobodyIsToldToStartAProcessOfAParkedDriver) {
    EXPECT_EQ("", startedHost()->workplace.park("A"));
    TestHost host(m_directory, path(), false);
    EXPECT_TRUE(host.start());
    EXPECT_EQ(EDriverState::Parked, host.state("A"));
    EXPECT_THAT(m_log.text(), HasSubstr("B: waits for its process, to be started by hand:  " +
                                        m_directory.path("drivers/axis.so") + " B\n"));
    EXPECT_THAT(m_log.text(), Not(HasSubstr("A: waits for its process")));
}

TEST_F(WorkplaceTest, OnlyDriversInProcessesNeedQueues) {
    const auto pHost = startedHost();
    ::chmod(m_directory.path("queues").c_str(), 0777);
    EXPECT_THAT(pHost->reload("A"), HasSubstr("queue A_INQ cannot be made: "));
    EXPECT_EQ("", pHost->reload("C"));
    EXPECT_EQ(2u, pHost->startOf("C"));
}

TEST_F(WorkplaceTest, ParkedDriverIsStartedWhenItIsGivenBack) {
    const auto pHost = startedHost();
    ASSERT_EQ("", pHost->workplace.park("A"));
    EXPECT_EQ("", pHost->workplace.unpark("A"));
    EXPECT_EQ(EDriverState::Running, pHost->state("A"));
    EXPECT_EQ(2u, pHost->startOf("A"));
    EXPECT_EQ("", marks());
    EXPECT_EQ("", pHost->reload("A"));
    EXPECT_EQ(3u, pHost->startOf("A"));
}

TEST_F(WorkplaceTest, DriverInACrashLoopIsParked) {
    const auto pHost = startedHost();
    pHost->crash("A");
    EXPECT_EQ("", pHost->workplace.park("A"));
    EXPECT_EQ(EDriverState::Parked, pHost->state("A"));
    EXPECT_EQ(std::nullopt, pHost->drivers.find("A")->nextTry);
    // What was due before does not come any more.
    pHost->module.calls.clear();
    pHost->workplace.restart("A");
    EXPECT_THAT(pHost->module.calls, IsEmpty());
    EXPECT_EQ(EDriverState::Parked, pHost->state("A"));
}

TEST_F(WorkplaceTest, OthersAreReloadedWhileOneIsParked) {
    const auto pHost = startedHost();
    ASSERT_EQ("", pHost->workplace.park("A"));
    EXPECT_EQ("", pHost->reload("B"));
    EXPECT_EQ("", pHost->reload("C"));
    pHost->crash("B");
    pHost->workplace.restart("B");
    EXPECT_EQ(3u, pHost->startOf("B"));
    EXPECT_EQ(2u, pHost->startOf("C"));
    EXPECT_EQ(EDriverState::Parked, pHost->state("A"));
}

TEST_F(WorkplaceTest, SeveralAreParkedAndGivenBackOneByOne) {
    const auto pHost = startedHost();
    ASSERT_EQ("", pHost->workplace.park("B"));
    ASSERT_EQ("", pHost->workplace.park("A"));
    EXPECT_EQ("A\nB\n", marks());
    EXPECT_EQ("", pHost->workplace.unpark("B"));
    EXPECT_EQ("A\n", marks());
    EXPECT_EQ(EDriverState::Parked, pHost->state("A"));
    EXPECT_EQ(EDriverState::Running, pHost->state("B"));
}

TEST_F(WorkplaceTest, MarkSurvivesTheHostUntilItIsTakenBack) {
    {
        const auto pHost = startedHost();
        ASSERT_EQ("", pHost->workplace.park("A"));
    }
    {
        const auto pHost = startedHost();
        EXPECT_EQ(EDriverState::Parked, pHost->state("A"));
        EXPECT_EQ("parked at the console", pHost->drivers.find("A")->cause);
        EXPECT_EQ(0u, pHost->startOf("A"));
        EXPECT_FALSE(pHost->module.loaded.contains("A"));
        EXPECT_EQ(EDriverState::Running, pHost->state("B"));
        EXPECT_THAT(m_log.text(),
                    HasSubstr("info     HOST: A: is parked and not started; startDriver A starts it\n"));
        EXPECT_EQ("it is parked already", pHost->workplace.park("A"));
        EXPECT_EQ("", pHost->workplace.unpark("A"));
        EXPECT_EQ(EDriverState::Running, pHost->state("A"));
    }
    EXPECT_EQ(EDriverState::Running, startedHost()->state("A"));
}

TEST_F(WorkplaceTest, WhoHasParkedStandsInTheCauseInTheNextHostToo) {
    {
        const auto pHost = startedHost();
        ASSERT_EQ("", pHost->workplace.park("A", "anna"));
        EXPECT_EQ("parked by anna", pHost->drivers.find("A")->cause);
    }
    const auto pHost = startedHost();
    EXPECT_EQ("parked by anna", pHost->drivers.find("A")->cause);
    // A start that fails leaves the mark as it was.
    m_directory.write("w.xml", "<broken");
    EXPECT_NE("", pHost->workplace.unpark("A"));
    EXPECT_THAT(m_directory.read("marks"), HasSubstr("# parked by anna\nA\n"));
}

TEST_F(WorkplaceTest, ParkingIsRefusedWithItsReason) {
    const auto pHost = startedHost();
    EXPECT_EQ("there is no driver X; drivers lists them", pHost->workplace.park("X"));
    EXPECT_EQ("the module starts the panel driver whatever the configuration says",
              pHost->workplace.park("PANEL"));
    ASSERT_EQ("", pHost->workplace.park("A"));
    EXPECT_EQ("it is parked already", pHost->workplace.park("A"));
    EXPECT_THAT(pHost->module.calls, ElementsAre("reload A"));
    EXPECT_EQ("A\n", marks());
}

TEST_F(WorkplaceTest, WithoutAConfigurationNobodyIsParked) {
    TestHost sut(m_directory, {});
    ASSERT_TRUE(sut.start());
    sut.drivers.processStarted("A", 1);
    EXPECT_EQ("there is no configuration", sut.workplace.park("A"));
    EXPECT_EQ("there is no configuration", sut.reload("A"));
    EXPECT_EQ("", marks());
}

TEST_F(WorkplaceTest, ReloadOfAParkedDriverIsRefused) {
    const auto pHost = startedHost();
    ASSERT_EQ("", pHost->workplace.park("A"));
    pHost->module.calls.clear();
    EXPECT_EQ("it is parked; start it instead", pHost->reload("A"));
    EXPECT_THAT(pHost->module.calls, IsEmpty());
    EXPECT_EQ(EDriverState::Parked, pHost->state("A"));
}

TEST_F(WorkplaceTest, ParkingNeedsNothingOfAFileThatIsBrokenNow) {
    const auto pHost = startedHost();
    m_directory.write("w.xml", "<broken");
    EXPECT_EQ("", pHost->workplace.park("A"));
    EXPECT_EQ(EDriverState::Parked, pHost->state("A"));
    EXPECT_THAT(pHost->workplace.unpark("A"), HasSubstr(path()));
    EXPECT_EQ(EDriverState::Parked, pHost->state("A"));
    EXPECT_EQ("A\n", marks());
    std::filesystem::remove(path());
    EXPECT_EQ("", pHost->workplace.park("B"));
    configure(entry("A") + entry("B"));
    EXPECT_EQ("", pHost->workplace.unpark("A"));
    EXPECT_EQ("", pHost->workplace.unpark("B"));
    EXPECT_EQ(EDriverState::Running, pHost->state("A"));
    EXPECT_EQ(EDriverState::Running, pHost->state("B"));
}

TEST_F(WorkplaceTest, DriverThatHasLeftTheFileIsParked) {
    const auto pHost = startedHost();
    configure(entry("B"));
    ASSERT_EQ("", pHost->reload("B"));
    EXPECT_EQ(EDriverState::Running, pHost->state("A"));
    EXPECT_EQ("", pHost->workplace.park("A"));
    EXPECT_EQ(EDriverState::Parked, pHost->state("A"));
    EXPECT_FALSE(pHost->drivers.find("A")->isAlive);
    // A file that may not be used says nothing of it.
    m_directory.write("w.xml", "<broken");
    EXPECT_THAT(pHost->workplace.unpark("A"), HasSubstr(path() + " line 1"));
    EXPECT_EQ("A\n", marks());
    // Whoever puts it back finds it parked.
    configure(entry("A") + entry("B"));
    EXPECT_EQ("", pHost->workplace.unpark("A"));
    EXPECT_EQ(EDriverState::Running, pHost->state("A"));
}

TEST_F(WorkplaceTest, MarkOfADriverThatIsInNoFileIsTakenBack) {
    m_directory.write("marks", "GONE\n");
    const auto pHost = startedHost();
    ASSERT_EQ(EDriverState::Parked, pHost->state("GONE"));
    EXPECT_EQ("its mark is taken back, and " + path() + " has no driver \"GONE\"",
              pHost->workplace.unpark("GONE"));
    EXPECT_EQ("", marks());
    EXPECT_FALSE(pHost->drivers.find("GONE"));
    EXPECT_THAT(pHost->module.calls, IsEmpty());
    EXPECT_EQ("there is no driver GONE; drivers lists them", pHost->workplace.unpark("GONE"));
    configure(entry("A") + entry("GONE"));
    EXPECT_EQ("", pHost->workplace.unpark("GONE"));
    EXPECT_EQ(EDriverState::Running, pHost->state("GONE"));
}

TEST_F(WorkplaceTest, ParkingThatIsBrokenOffBeforeTheDriverIsUnloadedLeavesItRunning) {
    const auto pHost = startedHost();
    for (const char* id : {"A", "C"}) {
        pHost->module.throwsBefore = true;
        EXPECT_EQ("its unloading was broken off: no memory", pHost->workplace.park(id));
        EXPECT_EQ(EDriverState::Running, pHost->state(id));
        EXPECT_EQ("", marks());
        pHost->module.throwsBefore = false;
        EXPECT_EQ("", pHost->reload(id));
    }
    EXPECT_THAT(pHost->concerns, ElementsAre("A", "", "A", "", "C", "", "C", ""));
}

TEST_F(WorkplaceTest, ParkingThatIsBrokenOffAfterwardsIsDone) {
    const auto pHost = startedHost();
    pHost->module.throwsAfter = true;
    for (const char* id : {"A", "C"}) {
        EXPECT_EQ("", pHost->workplace.park(id));
        EXPECT_EQ(EDriverState::Parked, pHost->state(id));
    }
    EXPECT_EQ("A\nC\n", marks());
    EXPECT_THAT(m_log.text(),
                HasSubstr("warning  HOST: A: its unloading was broken off: no memory; it does not run\n"));
}

TEST_F(WorkplaceTest, DriverThatTheModuleDoesNotUnloadIsNotParked) {
    const auto pHost = startedHost();
    pHost->module.canRead = false;
    EXPECT_EQ("the module could not read what it was handed of " + path(), pHost->workplace.park("A"));
    EXPECT_EQ(EDriverState::Running, pHost->state("A"));
    EXPECT_EQ("", marks());
    pHost->module.canRead = true;
    EXPECT_EQ("", pHost->reload("A"));
    EXPECT_EQ("", pHost->workplace.park("A"));
}

TEST_F(WorkplaceTest, MarkThatCouldNotBeReadAtTheStartLeavesItsDriverAlone) {
    std::filesystem::create_directory(m_directory.path("marks"));
    const auto pHost = startedHost();
    ASSERT_EQ(EDriverState::Running, pHost->state("A"));
    std::filesystem::remove(m_directory.path("marks"));
    m_directory.write("marks", "A\n");
    EXPECT_EQ("", pHost->workplace.park("B"));
    EXPECT_EQ("A\nB\n", marks());
    EXPECT_EQ("", pHost->reload("A"));
    EXPECT_EQ(EDriverState::Running, pHost->state("A"));
    EXPECT_EQ("", pHost->workplace.park("A"));
    EXPECT_EQ(EDriverState::Parked, pHost->state("A"));
}

TEST_F(WorkplaceTest, MarkOfADriverThatIsNotInTheFileStartsNothing) {
    m_directory.write("marks", "GONE\n");
    const auto pHost = startedHost();
    EXPECT_EQ(EDriverState::Parked, pHost->state("GONE"));
    EXPECT_EQ(EDriverState::Running, pHost->state("A"));
    configure(entry("A") + entry("GONE"));
    EXPECT_EQ("", pHost->reload("A"));
    EXPECT_EQ(EDriverState::Parked, pHost->state("GONE"));
    EXPECT_THAT(m_log.text(), HasSubstr("GONE: is parked and not started; startDriver GONE starts it\n"));
    EXPECT_EQ("", pHost->workplace.unpark("GONE"));
    EXPECT_EQ(EDriverState::Running, pHost->state("GONE"));
}

TEST_F(WorkplaceTest, MarkOfThePanelCountsForNothing) {
    m_directory.write("marks", "PANEL\n");
    const auto pHost = startedHost();
    EXPECT_EQ(EDriverState::Running, pHost->state("PANEL"));
    EXPECT_THAT(pHost->module.started, ElementsAre("A", "B", "C"));
    EXPECT_THAT(m_log.text(),
                HasSubstr("warning  HOST: " + m_directory.path("marks") +
                          " line 1: the panel driver cannot be parked; the line is left out\n"));
    pHost->module.announced.insert("Panel");
    configure(entry("PANEL", "direct", "Panel"));
    EXPECT_EQ("", pHost->reload("PANEL"));
    EXPECT_EQ(EDriverState::Running, pHost->state("PANEL"));
}

TEST_F(WorkplaceTest, TypeThatADescriptorAnnouncesParksNobody) {
    announce("(parked)");
    configure(entry("A", "direct", "(parked)"));
    const auto pHost = host();
    pHost->module.announced = {"(parked)"};
    ASSERT_TRUE(pHost->start());
    ASSERT_EQ(EDriverState::Running, pHost->state("A"));
    EXPECT_EQ("", pHost->workplace.park("A"));
    EXPECT_FALSE(pHost->drivers.find("A")->isAlive);
    EXPECT_FALSE(pHost->module.loaded.contains("A"));
    EXPECT_EQ("", pHost->workplace.unpark("A"));
    EXPECT_EQ(EDriverState::Running, pHost->state("A"));
}

TEST_F(WorkplaceTest, MarkThatCannotBeWrittenLeavesAllAsItWas) {
    const auto pHost = startedHost();
    ASSERT_EQ("", pHost->workplace.park("B"));
    pHost->module.calls.clear();
    ::chmod(m_directory.path().c_str(), 0500);
    {
        const WithoutCapabilities withoutRights({CAP_DAC_OVERRIDE});
        ASSERT_FALSE(WithoutCapabilities::has(CAP_DAC_OVERRIDE));
        const std::string reason = m_directory.path("marks") + " cannot be written: Permission denied";
        EXPECT_EQ(reason, pHost->workplace.park("A"));
        EXPECT_EQ(reason, pHost->workplace.unpark("B"));
    }
    ::chmod(m_directory.path().c_str(), 0700);
    EXPECT_THAT(pHost->module.calls, IsEmpty());
    EXPECT_EQ(EDriverState::Running, pHost->state("A"));
    EXPECT_EQ(EDriverState::Parked, pHost->state("B"));
    EXPECT_EQ("B\n", marks());
    EXPECT_EQ("", pHost->reload("A"));
    EXPECT_EQ("it is parked; start it instead", pHost->reload("B"));
}

TEST_F(WorkplaceTest, MarksThatCannotBeReadKeepNobodyFromBeingStarted) {
    std::filesystem::create_directory(m_directory.path("marks"));
    const auto pHost = startedHost();
    EXPECT_EQ(EDriverState::Running, pHost->state("A"));
    EXPECT_THAT(m_log.text(), HasSubstr("warning  HOST: " + m_directory.path("marks") +
                                        " cannot be read: not a regular file; no driver is taken for "
                                        "parked\n"));
}

// Giving back, and starts by the host itself.

TEST_F(WorkplaceTest, GivingBackIsRefusedWithItsReason) {
    const auto pHost = startedHost();
    EXPECT_EQ("there is no driver X; drivers lists them", pHost->workplace.unpark("X"));
    EXPECT_EQ("it runs already; reload it instead", pHost->workplace.unpark("A"));
    EXPECT_THAT(pHost->module.calls, IsEmpty());
}

TEST_F(WorkplaceTest, DriverThatHasEndedIsStarted) {
    const auto pHost = startedHost();
    pHost->drivers.processEnded("A", pHost->drivers.find("A")->pid, "exit code 0", {}, false);
    ASSERT_EQ(EDriverState::Ended, pHost->state("A"));
    EXPECT_EQ("", pHost->workplace.unpark("A"));
    EXPECT_EQ(EDriverState::Running, pHost->state("A"));
    EXPECT_FALSE(m_directory.contains("marks"));
}

TEST_F(WorkplaceTest, DriverThatIsDueIsStartedAgainAndCounted) {
    const auto pHost = startedHost();
    pHost->crash("A");
    pHost->workplace.restart("A");
    EXPECT_EQ(EDriverState::Running, pHost->state("A"));
    EXPECT_EQ(1u, pHost->drivers.find("A")->restarts);
    EXPECT_THAT(pHost->concerns, ElementsAre("A", ""));
    // Once.
    pHost->workplace.restart("A");
    EXPECT_THAT(pHost->module.calls, ElementsAre("reload A"));
}

TEST_F(WorkplaceTest, RestartWithABrokenFileIsTriedAgain) {
    const auto pHost = startedHost();
    pHost->crash("A");
    m_directory.write("w.xml", "<broken");
    pHost->workplace.restart("A");
    EXPECT_THAT(pHost->module.calls, IsEmpty());
    EXPECT_EQ(EDriverState::Waiting, pHost->state("A"));
    EXPECT_EQ(0u, pHost->drivers.find("A")->restarts);
    EXPECT_THAT(m_log.text(), HasSubstr("A: no process runs: " + path()));
    configure(entry("A"));
    pHost->drivers.takeDue(DriverTable::Clock::now() + 1h);
    pHost->workplace.restart("A");
    EXPECT_EQ(EDriverState::Running, pHost->state("A"));
}

TEST_F(WorkplaceTest, CrashedDriverThatHasLeftTheFileIsGivenUp) {
    const auto pHost = startedHost();
    pHost->crash("A");
    configure(entry("B"));
    pHost->workplace.restart("A");
    EXPECT_EQ(EDriverState::Ended, pHost->state("A"));
    EXPECT_THAT(pHost->module.calls, IsEmpty());
    EXPECT_THAT(m_log.text(),
                HasSubstr("error    HOST: A: is not started again: " + path() + " has no driver \"A\"\n"));
}

TEST_F(WorkplaceTest, NothingIsChangedOnceTheModuleGoes) {
    const auto pHost = startedHost();
    pHost->crash("A");
    pHost->workplace.end();
    pHost->workplace.restart("A");
    EXPECT_THAT(pHost->module.calls, IsEmpty());
    EXPECT_EQ("the host is stopping", pHost->workplace.park("B"));
    EXPECT_EQ("the host is stopping", pHost->workplace.unpark("A"));
    EXPECT_EQ("the host is stopping", pHost->reload("B"));
    EXPECT_EQ(EDriverState::Running, pHost->state("B"));
    EXPECT_EQ("", marks());
}

// The start's summary.

TEST_F(WorkplaceTest, StartSaysWhoDoesNotRunAndWhy) {
    m_directory.write(
        "drivers/more.xml",
        "<mfDriverModule><module_type name='bad.so' type='Bad' version='1.0'/></mfDriverModule>");
    m_directory.write("drivers/bad.so", "no module");
    m_directory.write("marks", "P\n");
    configure(entry("A") + entry("P") +
              "<mainframeDriver driverID='N' driverType='Axis' version='1.0' workingDirectory='data/N' "
              "networkAdapter='eth77' interfaceType='direct'/>\n" +
              entry("X", "direct", "None") + entry("S", "socket") + entry("L", "direct", "Bad"));
    const auto pHost = host();
    pHost->module.announced = {"Axis"};
    pHost->module.unloadable = {"N"};
    pHost->loadFaults[m_directory.path("drivers/bad.so")] = "file too short";
    EXPECT_TRUE(pHost->start());
    EXPECT_THAT(
        m_log.text(),
        testing::ContainsRegex(
            "warning  HOST: 1 of 5 drivers run; N: no adapter eth77; X: no descriptor of type \"None\" in "
            "version \"1.0\"; S: the interfaceType \"socket\" loads nothing; L: (file too short|no adapter "
            "eth0)\n"));
    EXPECT_EQ("no adapter eth77", pHost->drivers.find("N")->cause);
    EXPECT_EQ("", pHost->drivers.find("A")->cause);
    ASSERT_EQ(1u, pHost->workplace.history().size());
    EXPECT_EQ("1 of 5 drivers run", pHost->workplace.history()[0].outcome);
}

TEST_F(WorkplaceTest, StartNamesTheFaultOfTheFileForThoseBehindIt) {
    configure(entry("A") + "text" + entry("B"));
    const auto pHost = host();
    EXPECT_TRUE(pHost->start());
    EXPECT_THAT(m_log.text(), HasSubstr("warning  HOST: 1 of 2 drivers run; B: " + path() +
                                        " line 4: text may not stand in a workplace\n"));
}

// Plan, apply, undo.

TEST_F(WorkplaceTest, ApplyReloadsWhatHasChangedAndNothingElse) {
    const auto pHost = startedHost();
    configure(entry("A") + entry("B", "direct") + entry("C", "direct"));
    EXPECT_EQ("1 of 1 change done", pHost->workplace.apply({}, "console").outcome());
    EXPECT_THAT(pHost->module.calls, ElementsAre("reload B"));
    EXPECT_EQ(EInterfaceTypes::Direct, pHost->drivers.find("B")->interfaceType);
    EXPECT_EQ(2u, pHost->startOf("B"));
    EXPECT_EQ(1u, pHost->startOf("A"));
    EXPECT_THAT(pHost->concerns, ElementsAre("B", ""));
    EXPECT_EQ("no changes", pHost->workplace.apply({}, "console").outcome());
    EXPECT_THAT(pHost->module.calls, ElementsAre("reload B"));
}

TEST_F(WorkplaceTest, NewDriverIsStartedAndOneThatIsGoneIsEnded) {
    const auto pHost = startedHost();
    pHost->store.setStateValueInt("A.X", 1);
    pHost->store.setStateValueInt("B.X", 1);
    configure(entry("NEW") + entry("B") + entry("C", "direct"));
    EXPECT_EQ("2 of 2 changes done", pHost->workplace.apply({}, "console").outcome());
    EXPECT_THAT(pHost->module.calls, ElementsAre("reload A", "reload NEW"));
    EXPECT_THAT(pHost->module.loaded, ElementsAre("B", "C", "NEW", "PANEL"));
    EXPECT_EQ(EDriverState::Running, pHost->state("NEW"));
    EXPECT_FALSE(pHost->drivers.find("A"));
    EXPECT_EQ("removed", pHost->store.find("A.X")->staleCause);
    EXPECT_EQ("", pHost->store.find("B.X")->staleCause);
    EXPECT_EQ("", marks());
    EXPECT_EQ("", pHost->reload("B"));
    EXPECT_THAT(pHost->module.loaded, ElementsAre("B", "C", "NEW", "PANEL"));
}

TEST_F(WorkplaceTest, DriverOfTheHostsProcessThatIsGoneIsEndedAsWell) {
    const auto pHost = startedHost();
    pHost->store.setStateValueInt("C.X", 1);
    configure(entry("A") + entry("B"));
    EXPECT_EQ("1 of 1 change done", pHost->workplace.apply({}, "console").outcome());
    EXPECT_FALSE(pHost->drivers.find("C"));
    EXPECT_EQ("removed", pHost->store.find("C.X")->staleCause);
}

TEST_F(WorkplaceTest, DriverThatWaitedForItsNextTryIsRemoved) {
    const auto pHost = startedHost();
    pHost->crash("A");
    configure(entry("B") + entry("C", "direct"));
    EXPECT_EQ("1 of 1 change done", pHost->workplace.apply({}, "console").outcome());
    EXPECT_FALSE(pHost->drivers.find("A"));
    pHost->module.calls.clear();
    pHost->workplace.restart("A");
    EXPECT_THAT(pHost->module.calls, IsEmpty());
}

TEST_F(WorkplaceTest, DriverThatIsRemovedMayComeBackWhileItsProcessStillEnds) {
    const auto pHost = startedHost();
    const int pid = pHost->drivers.find("A")->pid;
    pHost->module.endsProcesses = false;
    configure(entry("B") + entry("C", "direct"));
    EXPECT_EQ("1 of 1 change done", pHost->workplace.apply({}, "console").outcome());
    EXPECT_EQ(EDriverState::Parked, pHost->state("A"));
    configure(entry("A") + entry("B") + entry("C", "direct"));
    EXPECT_EQ("1 of 1 change done", pHost->workplace.apply({}, "console").outcome());
    EXPECT_EQ(EDriverState::Running, pHost->state("A"));
    EXPECT_FALSE(pHost->drivers.processEnded("A", pid, "exit code 0", {}, true));
    EXPECT_EQ(EDriverState::Running, pHost->state("A"));
}

TEST_F(WorkplaceTest, DriverThatIsRemovedIsForgottenWhenItsProcessHasEnded) {
    const auto pHost = startedHost();
    const int pid = pHost->drivers.find("A")->pid;
    pHost->module.endsProcesses = false;
    configure(entry("B") + entry("C", "direct"));
    pHost->workplace.apply({}, "console");
    ASSERT_TRUE(pHost->drivers.find("A"));
    EXPECT_TRUE(pHost->drivers.processEnded("A", pid, "exit code 0", {}, true));
    EXPECT_FALSE(pHost->drivers.find("A"));
}

TEST_F(WorkplaceTest, ParkedDriverStaysParkedWhateverItsEntryIs) {
    const auto pHost = startedHost();
    ASSERT_EQ("", pHost->workplace.park("A"));
    pHost->module.calls.clear();
    configure(entry("A", "direct") + entry("B") + entry("C", "direct"));
    EXPECT_EQ("no changes", pHost->workplace.apply({}, "console").outcome());
    configure(entry("B") + entry("C", "direct"));
    EXPECT_EQ("no changes", pHost->workplace.apply({}, "console").outcome());
    EXPECT_THAT(pHost->module.calls, IsEmpty());
    EXPECT_EQ(EDriverState::Parked, pHost->state("A"));
    configure(entry("A", "direct") + entry("B") + entry("C", "direct"));
    EXPECT_EQ("", pHost->workplace.unpark("A"));
    EXPECT_EQ(EInterfaceTypes::Direct, pHost->drivers.find("A")->interfaceType);
    EXPECT_EQ("no changes", pHost->workplace.apply({}, "console").outcome());
}

TEST_F(WorkplaceTest, WhatAReloadOrARestartHasTakenOverIsNoChange) {
    const auto pHost = startedHost();
    configure(entry("A", "direct") + entry("B") + entry("C", "direct"));
    EXPECT_EQ("", pHost->reload("A"));
    EXPECT_THAT(pHost->workplace.plan().changes, IsEmpty());
    m_directory.write("drivers/axis.so", "newer module");
    pHost->crash("B");
    pHost->workplace.restart("B");
    ASSERT_EQ(EDriverState::Running, pHost->state("B"));
    EXPECT_THAT(pHost->workplace.plan().changes,
                ElementsAre(WorkplacePlan::Change{WorkplacePlan::EAction::Reload, "A", "module changed"},
                            WorkplacePlan::Change{WorkplacePlan::EAction::Reload, "C", "module changed"}));
}

TEST_F(WorkplaceTest, NewDescriptorIsSearchedForAlone) {
    const auto pHost = startedHost();
    m_directory.write(
        "drivers/belt.xml",
        "<mfDriverModule><module_type name='axis.so' type='Belt' version='1.0'/></mfDriverModule>");
    pHost->module.announced.insert("Belt");
    configure(entry("A") + entry("B") + entry("C", "direct") + entry("D", "queue", "Belt"));
    EXPECT_EQ("2 of 2 changes done", pHost->workplace.apply({}, "console").outcome());
    EXPECT_THAT(pHost->module.calls, ElementsAre("search " + m_directory.path("drivers"), "reload D"));
    EXPECT_THAT(pHost->module.read, ElementsAre("belt.xml"));
    EXPECT_EQ(EDriverState::Running, pHost->state("D"));
    EXPECT_EQ("no changes", pHost->workplace.apply({}, "console").outcome());
    EXPECT_EQ("", pHost->reload("D"));
}

TEST_F(WorkplaceTest, ChangedModuleOfThePanelReloadsItAndTellsIt) {
    const auto pHost = startedHost();
    pHost->module.announced.insert("Panel");
    m_directory.write("drivers/panel.so", "newer module");
    EXPECT_EQ("1 of 1 change done", pHost->workplace.apply({}, "console").outcome());
    EXPECT_THAT(pHost->module.calls, ElementsAre("reload PANEL"));
    EXPECT_EQ(2u, pHost->startOf("PANEL"));
    EXPECT_EQ(2, pHost->panelTold);
    EXPECT_EQ("no changes", pHost->workplace.apply({}, "console").outcome());
}

TEST_F(WorkplaceTest, ChangeThatDoesNotComeUpIsNotDone) {
    const auto pHost = startedHost();
    pHost->module.startsProcesses = false;
    m_directory.write("drivers/axis.so", "newer module");
    const Applied applied = pHost->workplace.apply({}, "console");
    EXPECT_EQ("1 of 3 changes done", applied.outcome());
    EXPECT_FALSE(applied.changes[0].isDone);
    EXPECT_NE("", applied.changes[0].reason);
    EXPECT_EQ(EDriverState::Waiting, pHost->state("A"));
    EXPECT_EQ(EDriverState::Running, pHost->state("C"));
}

TEST_F(WorkplaceTest, RemovalThatTheModuleRefusesIsNotDone) {
    const auto pHost = startedHost();
    configure(entry("B") + entry("C", "direct"));
    pHost->module.canRead = false;
    const Applied applied = pHost->workplace.apply({}, "console");
    EXPECT_EQ("0 of 1 change done", applied.outcome());
    EXPECT_EQ("the module could not read what it was handed of " + path(), applied.changes[0].reason);
    EXPECT_EQ(EDriverState::Running, pHost->state("A"));
    pHost->module.canRead = true;
    EXPECT_EQ("1 of 1 change done", pHost->workplace.apply({}, "console").outcome());
    EXPECT_FALSE(pHost->drivers.find("A"));
}

TEST_F(WorkplaceTest, UndoBringsTheDriversBack) {
    const auto pHost = startedHost();
    configure(entry("B") + entry("C", "direct"));
    ASSERT_EQ("1 of 1 change done", pHost->workplace.apply({}, "console").outcome());
    EXPECT_EQ("1 of 1 change done", pHost->workplace.undo(0, "console").outcome());
    EXPECT_EQ(EDriverState::Running, pHost->state("A"));
    EXPECT_EQ(3u, pHost->workplace.history().size());
}

TEST_F(WorkplaceTest, NextHostKnowsTheStatesOfTheOneBefore) {
    {
        const auto pHost = startedHost();
        configure(entry("B"));
        pHost->workplace.apply({}, "console");
    }
    const auto pHost = startedHost();
    EXPECT_EQ(2u, pHost->workplace.history().size());
    EXPECT_EQ("2 of 2 changes done", pHost->workplace.undo(0, "console").outcome());
    EXPECT_EQ(EDriverState::Running, pHost->state("A"));
    EXPECT_EQ(EDriverState::Running, pHost->state("C"));
}
