#include "MDMModuleLoader.h"

#include <gtest/gtest.h>

#include <list>
#include <memory>
#include <stdexcept>

#include "FIDParameterList.h"
#include "FakeHost.h"
#include "FlushedOutput.h"
#include "MDMFidDistributor.h"
#include "MDMModuleInfo.h"
#include "MfDriverManager.h"
#include "RecordingDriver.h"
#include "RecordingFunctionID.h"
#include "RecordingMacroSystem.h"
#include "RecordingPanelState.h"
#include "RecordingSystem.h"
#include "StandardOutput.h"
#include "sal/Module.h"

namespace {

using Calls = std::vector<std::string>;

struct Entry {
    std::string driverID = "A";
    EInterfaceTypes interfaceType = EInterfaceTypes::Direct;
    std::string workingDirectory = "data/A";
    std::string ipAddress{};
    std::string networkAdapter{};
    std::string driverType = "Axis";
    std::string version = "1.0";
};

struct Loader {
    fakehost::FakeHost host;
    RecordingPanelState panel;
    RecordingSystem system;
    MDMFidDistributor distributor;
    std::list<MDMModuleInfo*> modules;
    std::unique_ptr<MDMModuleLoader> pSut = std::make_unique<MDMModuleLoader>();
    MDMModuleLoader& sut = *pSut;
    MDMModuleInfo* pInfo = nullptr;
    std::map<std::string, RecordingDriver*> drivers;  ///< those that were made last, by name

    Loader() {
        g_debugStartMFDProcess = true;
        distributor.setPanelStateInterface(&panel);
        distributor.setSystemInterface(&system);
        sut.setFidDistributor(&distributor);
        addRecord();
        host.journal().clear();
    }
    ~Loader() {
        fakehost::printedBy([&] { pSut.reset(); });
        for (const MDMModuleInfo* pModule : modules)
            delete pModule;
    }

    MDMModuleInfo* addRecord(const std::string& file = "libAxis.so", const std::string& type = "Axis",
                             const std::string& version = "1.0", const std::string& directory = "/mods") {
        modules.push_back(new MDMModuleInfo);
        modules.back()->setMFDriverFilename(file);
        modules.back()->setMFDriverType(type);
        modules.back()->setMfDriverVersion(version);
        modules.back()->setMFDriverDirectory(directory);
        return modules.back();
    }
    /// The module under this path makes a driver of that name.
    void addDriver(const std::string& name = "A", const std::string& path = "/mods/libAxis.so") {
        host.addModule(path, [this, name]() -> IInterface* {
            drivers[name] = new RecordingDriver(name);
            return static_cast<IFunctionID*>(drivers[name]);
        });
    }
    bool load(const Entry& entry) {
        return sut.loadMfModule(modules, 3, entry.driverID, entry.driverType, entry.version,
                                entry.workingDirectory, entry.ipAddress, entry.networkAdapter,
                                entry.interfaceType, pInfo);
    }
    /// Loads and tells what was printed; the result must be as expected.
    std::string printedByLoad(const Entry& entry, bool expected) {
        bool result = !expected;
        const std::string printed = fakehost::printedBy([&] { result = load(entry); });
        EXPECT_EQ(result, expected);
        return printed;
    }
    void loadQuietly(const Entry& entry) { printedByLoad(entry, true); }
    /// Everything that action does, standard output included.
    Calls callsOf(const std::function<void()>& action) {
        host.journal().clear();
        {
            fakehost::StandardOutput output;
            output.intoJournal();
            action();
            output.journalNow();
        }
        return host.journal().lines();
    }
    Calls linesOf(const Calls& beginnings) { return host.journal().linesOf(beginnings); }
};

Entry direct(const std::string& driverID = "A") {
    return {.driverID = driverID};
}

Entry queue(const std::string& driverID = "A") {
    return {.driverID = driverID, .interfaceType = EInterfaceTypes::Queue};
}

Entry none(const std::string& driverID = "A") {
    return {.driverID = driverID, .interfaceType = EInterfaceTypes::None};
}

struct Adapters {
    fakehost::FakeHost host;
    MDMModuleLoader sut;
    std::string address = "untouched";
    std::string adapter = "untouched";

    bool check(const std::string& wantedAddress, const std::string& wantedAdapter) {
        return sut.checkAndAddModuleIP(wantedAddress, wantedAdapter, address, adapter);
    }
};

}  // namespace

// Loading into the host's process.

TEST(MDMModuleLoader, DirectDriverIsPreparedLoadedConnectedAndConfiguredInThisOrder) {
    Loader s;
    s.addDriver();
    EXPECT_EQ(s.callsOf([&] { EXPECT_TRUE(s.load(direct())); }),
              (Calls{"adapter list", "adapter open eth0", "mkdir /wp/data/A", "mkdir /wp/nvram/A",
                     "symlink /wp/data/A -> /var/data/A replace", "adapter list", "adapter open eth0",
                     "stdout Loading MF driver /mods/libAxis.so (ID: A)...", "module load 0 /mods/libAxis.so",
                     "stdout OK\\0a", "module query /mods/libAxis.so 1201",
                     "module query /mods/libAxis.so 1100", "A setPanelStateInterface", "A setSystemInterface",
                     "A setConfiguration 3 [A] [data/A] [192.0.2.10] [eth0] [192.0.2.10] [/wp/nvram/A]",
                     "A initializationCompleted"}));
}

TEST(MDMModuleLoader, LoadingLineIsNotFlushedBeforeItsEnd) {
    Loader s;
    fakehost::StandardOutput output;
    std::string flushedAtLoad = "never loaded";
    s.host.addModule("/mods/libAxis.so", [&]() -> IInterface* {
        flushedAtLoad = output.flushed();
        return static_cast<IFunctionID*>(new RecordingDriver("A"));
    });
    s.load(direct());
    EXPECT_EQ(flushedAtLoad, "");
    EXPECT_EQ(output.flushed(), "Loading MF driver /mods/libAxis.so (ID: A)...OK\n");
}

TEST(MDMModuleLoader, DirectDriverGetsTheDistributorsSystemInterface) {
    Loader s;
    s.addDriver();
    s.loadQuietly(direct());
    EXPECT_EQ(s.drivers["A"]->pSystem, static_cast<ISystem*>(&s.system));
}

TEST(MDMModuleLoader, DirectDriverIsToldAlsoThatThereIsNoSystem) {
    Loader s;
    s.distributor.setSystemInterface(nullptr);
    s.addDriver();
    s.loadQuietly(direct());
    EXPECT_EQ(s.linesOf({"A setSystemInterface"}), Calls{"A setSystemInterface"});
    EXPECT_EQ(s.drivers["A"]->pSystem, nullptr);
}

TEST(MDMModuleLoader, DirectDriverReportsThroughAPortOfItsOwn) {
    Loader s;
    s.addDriver();
    s.loadQuietly(direct());
    ASSERT_NE(s.drivers["A"]->pPanelState, nullptr);
    s.drivers["A"]->pPanelState->setStateValueInt("LAMP", 3);
    EXPECT_EQ(s.linesOf({"panel"}), Calls{"panel setStateValueInt A.LAMP 3"});
}

TEST(MDMModuleLoader, FidsReachADirectDriver) {
    Loader s;
    s.addDriver();
    s.loadQuietly(direct());
    s.distributor.dispatchFID("A.MOVE", FIDParameterList());
    EXPECT_EQ(s.linesOf({"A sendFID"}), Calls{"A sendFID MOVE {}"});
}

TEST(MDMModuleLoader, DirectDriverIsGivenNoDistributor) {
    Loader s;
    s.addDriver();
    s.loadQuietly(direct());
    EXPECT_EQ(s.drivers["A"]->pDistributorFID, nullptr);
    EXPECT_EQ(s.linesOf({"A setDistributorFIDInterface", "A createFIDList"}), Calls{});
}

TEST(MDMModuleLoader, ResultsOfTheDriverAreNotLookedAt) {
    Loader s;
    s.host.addModule("/mods/libAxis.so", []() -> IInterface* {
        auto* pDriver = new RecordingDriver("A");
        pDriver->result = false;
        return static_cast<IFunctionID*>(pDriver);
    });
    EXPECT_EQ(s.printedByLoad(direct(), true), "Loading MF driver /mods/libAxis.so (ID: A)...OK\n");
    EXPECT_EQ(s.linesOf({"A initializationCompleted"}), Calls{"A initializationCompleted"});
}

TEST(MDMModuleLoader, DirectDriverIsFoundUnderItsID) {
    Loader s;
    s.addDriver();
    s.loadQuietly(direct());
    ASSERT_EQ(s.host.loaded.size(), 1u);
    EXPECT_EQ(s.sut.getModule("A"), s.host.loaded[0]);
}

TEST(MDMModuleLoader, LookUpIsExact) {
    Loader s;
    s.addDriver();
    s.loadQuietly(direct());
    EXPECT_EQ(s.sut.getModule("a"), nullptr);
    EXPECT_EQ(s.sut.getModule(""), nullptr);
    EXPECT_EQ(s.sut.getModule("AB"), nullptr);
}

TEST(MDMModuleLoader, ModuleThatCannotBeLoadedFails) {
    Loader s;
    EXPECT_EQ(s.printedByLoad(direct(), false), "Loading MF driver /mods/libAxis.so (ID: A)...FAILED!\n");
    EXPECT_EQ(s.sut.getModule("A"), nullptr);
}

TEST(MDMModuleLoader, ModuleThatCannotBeLoadedEndsTheSearch) {
    Loader s;
    s.addRecord("libOther.so");
    s.addDriver("A", "/mods/libOther.so");
    s.printedByLoad(direct(), false);
    EXPECT_EQ(s.linesOf({"module load"}), Calls{"module load 0 /mods/libAxis.so"});
}

TEST(MDMModuleLoader, FailureLineIsFlushed) {
    Loader s;
    fakehost::StandardOutput output;
    s.load(direct());
    const std::string flushed = output.flushed();
    EXPECT_EQ(flushed, "Loading MF driver /mods/libAxis.so (ID: A)...FAILED!\n");
}

TEST(MDMModuleLoader, ModuleWithoutConfigurationIsKeptUnconnected) {
    Loader s;
    s.host.addModule("/mods/libAxis.so", []() -> IInterface* { return new RecordingFunctionID("bare"); });
    EXPECT_EQ(s.printedByLoad(direct(), true), "Loading MF driver /mods/libAxis.so (ID: A)...OK\n");
    EXPECT_EQ(s.linesOf({"module query", "A"}), Calls{"module query /mods/libAxis.so 1201"});
    EXPECT_NE(s.sut.getModule("A"), nullptr);
    EXPECT_EQ(fakehost::printedBy([&] { s.distributor.showUsedModules(); }), "");
}

TEST(MDMModuleLoader, WrongObjectBehindTheConfigurationIdentifierCountsAsNone) {
    Loader s;
    RecordingFunctionID wrong("wrong");
    s.host.addModule("/mods/libAxis.so", [&]() -> IInterface* {
        auto* pDriver = new RecordingDriver("A");
        pDriver->answers[1201] = &wrong;
        return static_cast<IFunctionID*>(pDriver);
    });
    EXPECT_EQ(s.printedByLoad(direct(), true), "Loading MF driver /mods/libAxis.so (ID: A)...OK\n");
    EXPECT_EQ(s.linesOf({"A"}), Calls{});
}

TEST(MDMModuleLoader, ModuleWithoutFunctionIDIsConnectedAndSwallowsFids) {
    Loader s;
    s.host.addModule("/mods/libAxis.so", []() -> IInterface* {
        auto* pDriver = new RecordingDriver("A");
        pDriver->answers[1100] = nullptr;
        return static_cast<IFunctionID*>(pDriver);
    });
    s.printedByLoad(direct(), true);
    s.distributor.dispatchFID("A.MOVE", FIDParameterList());
    EXPECT_EQ(s.linesOf({"A", "log"}),
              (Calls{"A setPanelStateInterface", "A setSystemInterface",
                     "A setConfiguration 3 [A] [data/A] [192.0.2.10] [eth0] [192.0.2.10] [/wp/nvram/A]",
                     "A initializationCompleted", "log MDM 5: MDM: A.MOVE ( ) received."}));
}

TEST(MDMModuleLoader, WrongObjectBehindTheFunctionIdentifierCountsAsNone) {
    Loader s;
    RecordingSystem wrong;
    s.host.addModule("/mods/libAxis.so", [&]() -> IInterface* {
        auto* pDriver = new RecordingDriver("A");
        pDriver->answers[1100] = &wrong;
        return static_cast<IFunctionID*>(pDriver);
    });
    s.printedByLoad(direct(), true);
    s.distributor.dispatchFID("A.MOVE", FIDParameterList());
    EXPECT_EQ(s.linesOf({"A initializationCompleted", "A sendFID", "log"}),
              (Calls{"A initializationCompleted", "log MDM 5: MDM: A.MOVE ( ) received."}));
}

TEST(MDMModuleLoader, DirectDriverWithoutADistributorIsAskedForItsConfigurationAlone) {
    Loader s;
    s.sut.setFidDistributor(nullptr);
    s.addDriver();
    s.loadQuietly(direct());
    EXPECT_EQ(s.linesOf({"module query"}), Calls{"module query /mods/libAxis.so 1201"});
}

TEST(MDMModuleLoader, ExceptionOfTheHostLeavesTheLoad) {
    Loader s;
    s.host.addModule("/mods/libAxis.so", []() -> IInterface* { throw std::runtime_error("no"); });
    fakehost::printedBy([&] { EXPECT_THROW(s.load(direct()), std::runtime_error); });
    EXPECT_EQ(s.sut.getModule("A"), nullptr);
}

TEST(MDMModuleLoader, DirectDriverWithoutADistributorIsKeptUnconnected) {
    Loader s;
    s.sut.setFidDistributor(nullptr);
    s.addDriver();
    EXPECT_EQ(s.printedByLoad(direct(), true), "Loading MF driver /mods/libAxis.so (ID: A)...OK\n");
    EXPECT_EQ(s.linesOf({"A"}), Calls{});
    EXPECT_NE(s.sut.getModule("A"), nullptr);
}

TEST(MDMModuleLoader, UnconnectedDirectDriverIsNotDeinitialized) {
    Loader s;
    s.sut.setFidDistributor(nullptr);
    s.addDriver();
    s.loadQuietly(direct());
    EXPECT_EQ(s.callsOf([&] { s.sut.unLoadMfModule("A"); }),
              (Calls{"module delete /mods/libAxis.so", "A gone"}));
}

// Loading into a process of its own.

TEST(MDMModuleLoader, QueueDriverIsPreparedStartedAndConfiguredInThisOrder) {
    Loader s;
    EXPECT_EQ(s.callsOf([&] { EXPECT_TRUE(s.load(queue())); }),
              (Calls{"adapter list", "adapter open eth0", "mkdir /wp/data/A", "mkdir /wp/nvram/A",
                     "symlink /wp/data/A -> /var/data/A replace", "adapter list", "adapter open eth0",
                     "stdout Loading MF driver /mods/libAxis.so (ID: A)...", "queue create A_INQ 256 1024 0",
                     "queue create A_OUTQ 16384 1024 0", "thread start 259",
                     "stdout m_moduleFileName=/mods/libAxis.so\\0am_driverID=A\\0a",
                     "process start /opt/host/bin/mfddllwrap [A MFD Console] [/mods/libAxis.so] [A]",
                     "thread sleep 1",
                     "queue send A_INQ SETCFG\\03\\00\\00\\00\\01A\\06data/A\\0a192.0.2.10\\04eth0"
                     "\\0a192.0.2.10\\0b/wp/nvram/A timeout -1",
                     "queue send A_INQ INTCMP timeout -1", "stdout OK\\0a"}));
}

TEST(MDMModuleLoader, QueueDriverPrintsItsLinesBetweenLoadingAndOk) {
    Loader s;
    EXPECT_EQ(s.printedByLoad(queue(), true),
              "Loading MF driver /mods/libAxis.so (ID: A)...m_moduleFileName=/mods/libAxis.so\nm_driverID=A\n"
              "OK\n");
}

TEST(MDMModuleLoader, FidsReachAQueueDriver) {
    Loader s;
    s.loadQuietly(queue());
    s.distributor.dispatchFID("A.MOVE", FIDParameterList());
    EXPECT_EQ(s.host.queues().messages("A_INQ").back(), std::string("SNDFDP\x04MOVE\0", 12));
}

TEST(MDMModuleLoader, QueueDriverIsSentItsOwnAddressAdapterAndThePanelsAddress) {
    Loader s;
    s.host.adapters = {{"eth0", "192.0.2.10", {}}, {"wlan0", "198.51.100.1", {}}};
    Entry entry = queue("AXIS1");
    entry.ipAddress = "198.51.100.20";
    entry.networkAdapter = "wlan0";
    s.loadQuietly(entry);
    EXPECT_EQ(
        s.host.queues().messages("AXIS1_INQ"),
        (Calls{std::string("SETCFG\x03\0\0\0", 10) + "\x05" + "AXIS1" + "\x06" + "data/A" + "\x0d" +
                   "198.51.100.20" + "\x05" + "wlan0" + "\x0a" + "192.0.2.10" + "\x0f" + "/wp/nvram/AXIS1",
               "INTCMP"}));
}

TEST(MDMModuleLoader, QueueDriversLineIsFlushedAtItsEndAndNotBefore) {
    Loader s;
    Calls pieces;
    fakehost::printedBy([&] {
        const FlushedOutput output;
        s.load(queue("A"));
        s.host.fail("process start");
        s.load(queue("B"));
        pieces = output.pieces;
    });
    EXPECT_EQ(pieces, (Calls{"Loading MF driver /mods/libAxis.so (ID: A)...OK\n",
                             "Loading MF driver /mods/libAxis.so (ID: B)...FAILED!\n"}));
}

TEST(MDMModuleLoader, QueueDriverWithoutASystemEndsTheProgram) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            Loader s;
            s.distributor.setSystemInterface(nullptr);
            fakehost::printedBy([&] { s.load(queue()); });
        },
        "assertion failed: m_pISystem\n");
}

TEST(MDMModuleLoader, QueueDriverReportsThroughAPortOfItsOwn) {
    Loader s;
    s.loadQuietly(queue());
    s.host.queues().push("A_OUTQ", "TRIGGR\x04LAMP\x02on");
    EXPECT_TRUE(s.host.journal().waitFor("panel triggerEvent A.LAMP on"));
}

TEST(MDMModuleLoader, QueueDriverSendsFidsThroughTheDistributor) {
    Loader s;
    s.loadQuietly(queue());
    s.host.queues().push("A_OUTQ", std::string("DSPFID\x06NOPE.x\0", 14));
    EXPECT_TRUE(s.host.journal().waitFor("log MDM 5: MDM: NOPE.x ( ) received."));
}

TEST(MDMModuleLoader, QueueDriverReachesTheSystemInterface) {
    Loader s;
    s.loadQuietly(queue());
    s.host.queues().push("A_OUTQ", "SYSCMD\x04save\x03now");
    EXPECT_TRUE(s.host.journal().waitFor("system executeCommand save now"));
}

TEST(MDMModuleLoader, QueueDriverIsNoModule) {
    Loader s;
    s.loadQuietly(queue());
    EXPECT_EQ(s.sut.getModule("A"), nullptr);
    EXPECT_EQ(s.linesOf({"module"}), Calls{});
}

TEST(MDMModuleLoader, QueueDriverWhoseQueuesCannotBeMadeFails) {
    Loader s;
    s.host.fail("queue create A_OUTQ");
    EXPECT_EQ(s.printedByLoad(queue(), false),
              "Loading MF driver /mods/libAxis.so (ID: A)...\nFailed to create IPC queues\nFAILED!\n");
    EXPECT_EQ(s.linesOf({"queue send", "thread", "process"}), Calls{});
}

TEST(MDMModuleLoader, QueueDriverWhoseProcessCannotBeStartedFails) {
    Loader s;
    s.host.fail("process start");
    EXPECT_EQ(s.printedByLoad(queue(), false),
              "Loading MF driver /mods/libAxis.so (ID: A)...m_moduleFileName=/mods/libAxis.so\nm_driverID=A\n"
              "\nFailed to create MFD process.\nFAILED!\n");
    EXPECT_EQ(s.linesOf({"queue send"}), Calls{});
}

TEST(MDMModuleLoader, FailedQueueDriverStaysRegisteredUntilItIsUnloaded) {
    Loader s;
    s.host.fail("process start");
    s.printedByLoad(queue(), false);
    EXPECT_TRUE(s.host.queues().held("A_INQ"));
    EXPECT_EQ(fakehost::printedBy([&] { s.sut.unLoadMfModule("A"); }),
              "Deinitializing MF driver ID: A...OK\n");
    EXPECT_FALSE(s.host.queues().held("A_INQ"));
}

TEST(MDMModuleLoader, FailedQueueDriverStaysConnectedToItsPort) {
    Loader s;
    s.host.fail("process start");
    s.printedByLoad(queue(), false);
    s.distributor.dispatchFID("A.MOVE", FIDParameterList());
    EXPECT_EQ(s.host.queues().messages("A_INQ"), Calls{std::string("SNDFDP\x04MOVE\0", 12)});
}

TEST(MDMModuleLoader, QueueDriverWithoutADistributorFails) {
    Loader s;
    s.sut.setFidDistributor(nullptr);
    EXPECT_EQ(s.printedByLoad(queue(), false), "Loading MF driver /mods/libAxis.so (ID: A)...FAILED!\n");
    EXPECT_EQ(s.linesOf({"queue", "thread", "process"}), Calls{});
}

TEST(MDMModuleLoader, QueueDriverWithoutADistributorHasNoConfigurationToDeinitialize) {
    Loader s;
    s.sut.setFidDistributor(nullptr);
    s.printedByLoad(queue(), false);
    EXPECT_EQ(s.callsOf([&] { s.sut.unLoadMfModule("A"); }),
              (Calls{"queue create A_INQ 256 1024 0", "queue close A_INQ", "queue create A_OUTQ 16384 1024 0",
                     "queue close A_OUTQ"}));
}

TEST(MDMModuleLoader, QueueDriverRefusedByItsQueueIsStillLoaded) {
    Loader s;
    s.host.fail("queue send A_INQ");
    EXPECT_EQ(s.printedByLoad(queue(), true),
              "Loading MF driver /mods/libAxis.so (ID: A)...m_moduleFileName=/mods/libAxis.so\nm_driverID=A\n"
              "OK\n");
}

TEST(MDMModuleLoader, QueueDriverIsLoadedWithoutAProcessWhenNoneIsToBeStarted) {
    Loader s;
    g_debugStartMFDProcess = false;
    EXPECT_EQ(s.printedByLoad(queue(), true), "Loading MF driver /mods/libAxis.so (ID: A)...OK\n");
    EXPECT_EQ(s.linesOf({"process"}), Calls{});
    g_debugStartMFDProcess = true;
}

// The other interface types.

TEST(MDMModuleLoader, TypeNoneIsPreparedButNotLoaded) {
    Loader s;
    EXPECT_EQ(s.callsOf([&] { EXPECT_TRUE(s.load(none())); }),
              (Calls{"adapter list", "adapter open eth0", "mkdir /wp/data/A", "mkdir /wp/nvram/A",
                     "symlink /wp/data/A -> /var/data/A replace", "adapter list", "adapter open eth0"}));
}

TEST(MDMModuleLoader, TypeSocketIsPreparedButNotLoaded) {
    Loader s;
    EXPECT_EQ(s.callsOf([&] { EXPECT_TRUE(s.load({.interfaceType = EInterfaceTypes::Socket})); }),
              (Calls{"adapter list", "adapter open eth0", "mkdir /wp/data/A", "mkdir /wp/nvram/A",
                     "symlink /wp/data/A -> /var/data/A replace", "adapter list", "adapter open eth0"}));
}

TEST(MDMModuleLoader, TypesBeyondTheKnownOnesArePreparedButNotLoaded) {
    for (int type : {4, -1}) {
        Loader s;
        EXPECT_EQ(
            s.callsOf([&] { EXPECT_TRUE(s.load({.interfaceType = static_cast<EInterfaceTypes>(type)})); }),
            (Calls{"adapter list", "adapter open eth0", "mkdir /wp/data/A", "mkdir /wp/nvram/A",
                   "symlink /wp/data/A -> /var/data/A replace", "adapter list", "adapter open eth0"}))
            << type;
    }
}

TEST(MDMModuleLoader, TypeNoneAddsItsAddress) {
    Loader s;
    Entry entry = none();
    entry.ipAddress = "192.0.2.20";
    s.loadQuietly(entry);
    EXPECT_EQ(s.linesOf({"adapter add"}), Calls{"adapter add eth0 192.0.2.20 255.255.255.0"});
}

// The search.

TEST(MDMModuleLoader, EmptyCatalogueDeterminesTheAddressAndSucceeds) {
    Loader s;
    const std::list<MDMModuleInfo*> empty;
    MDMModuleInfo untouched;
    s.pInfo = &untouched;
    EXPECT_EQ(s.callsOf([&] {
        EXPECT_TRUE(s.sut.loadMfModule(empty, 3, "A", "Axis", "1.0", "data/A", "", "",
                                       EInterfaceTypes::Direct, s.pInfo));
    }),
              (Calls{"adapter list", "adapter open eth0"}));
    EXPECT_EQ(s.pInfo, &untouched);
}

TEST(MDMModuleLoader, OtherVersionDoesNotMatch) {
    Loader s;
    EXPECT_EQ(s.callsOf([&] { EXPECT_TRUE(s.load({.version = "1.1"})); }),
              (Calls{"adapter list", "adapter open eth0"}));
    EXPECT_EQ(s.pInfo, nullptr);
}

TEST(MDMModuleLoader, OtherTypeDoesNotMatch) {
    Loader s;
    EXPECT_EQ(s.callsOf([&] { EXPECT_TRUE(s.load({.driverType = "Spindle"})); }),
              (Calls{"adapter list", "adapter open eth0"}));
    EXPECT_EQ(s.pInfo, nullptr);
}

TEST(MDMModuleLoader, MatchingRecordIsReported) {
    Loader s;
    s.addRecord("libSpindle.so", "Spindle");
    MDMModuleInfo* pMatching = s.addRecord("libDrill.so", "Drill");
    Entry entry = none();
    entry.driverType = "Drill";
    s.loadQuietly(entry);
    EXPECT_EQ(s.pInfo, pMatching);
}

TEST(MDMModuleLoader, MatchingRecordIsReportedAlsoWhenItFails) {
    Loader s;
    s.host.fail("mkdir");
    s.printedByLoad(direct(), false);
    EXPECT_EQ(s.pInfo, s.modules.front());
}

TEST(MDMModuleLoader, EveryMatchingRecordIsLoadedAndTheLastStaysRegistered) {
    Loader s;
    MDMModuleInfo* pSecond = s.addRecord("libAxis2.so");
    s.addDriver("first", "/mods/libAxis.so");
    s.addDriver("second", "/mods/libAxis2.so");
    EXPECT_EQ(s.printedByLoad(direct(), true),
              "Loading MF driver /mods/libAxis.so (ID: A)...OK\n"
              "Loading MF driver /mods/libAxis2.so (ID: A)...OK\n");
    ASSERT_EQ(s.host.loaded.size(), 2u);
    const std::unique_ptr<sal::Module> pOrphan(s.host.loaded[0]);
    EXPECT_EQ(s.sut.getModule("A"), s.host.loaded[1]);
    EXPECT_EQ(s.pInfo, pSecond);
    EXPECT_EQ(s.linesOf({"first deinitialize", "first gone", "module delete"}), Calls{});
    fakehost::printedBy([&] { s.pSut.reset(); });
    EXPECT_EQ(s.linesOf({"first deinitialize", "first gone", "second deinitialize", "second gone"}),
              (Calls{"second deinitialize", "second gone"}));
}

TEST(MDMModuleLoader, EveryMatchingRecordIsPreparedAnew) {
    Loader s;
    s.addRecord("libSpindle.so", "Spindle");
    s.addRecord("libAxis2.so");
    s.loadQuietly(none());
    EXPECT_EQ(s.linesOf({"mkdir", "symlink", "adapter open"}),
              (Calls{"adapter open eth0", "mkdir /wp/data/A", "mkdir /wp/nvram/A",
                     "symlink /wp/data/A -> /var/data/A replace", "adapter open eth0", "mkdir /wp/data/A",
                     "mkdir /wp/nvram/A", "symlink /wp/data/A -> /var/data/A replace", "adapter open eth0"}));
}

TEST(MDMModuleLoader, FailedAddressIsToldForEachRecord) {
    Loader s;
    s.addRecord("libAxis2.so");
    s.host.fail("adapter add");
    Entry entry = direct();
    entry.ipAddress = "192.0.2.20";
    EXPECT_EQ(s.printedByLoad(entry, true), "FAILED! (IP address problem)\nFAILED! (IP address problem)\n");
    EXPECT_EQ(s.pInfo, s.modules.back());
}

TEST(MDMModuleLoader, FailureBehindALoadedRecordFailsAndLeavesThatOne) {
    Loader s;
    s.addRecord("libMissing.so");
    s.addDriver();
    EXPECT_EQ(s.printedByLoad(direct(), false),
              "Loading MF driver /mods/libAxis.so (ID: A)...OK\n"
              "Loading MF driver /mods/libMissing.so (ID: A)...FAILED!\n");
    EXPECT_EQ(s.sut.getModule("A"), s.host.loaded[0]);
    EXPECT_EQ(s.linesOf({"A deinitialize", "module delete"}), Calls{});
}

TEST(MDMModuleLoader, FailureBehindAFailedAddressStillFails) {
    Loader s;
    s.addRecord("libMissing.so");
    s.host.fail("adapter add", 1);
    Entry entry = direct();
    entry.ipAddress = "192.0.2.20";
    EXPECT_EQ(s.printedByLoad(entry, false),
              "FAILED! (IP address problem)\nLoading MF driver /mods/libMissing.so (ID: A)...FAILED!\n");
}

TEST(MDMModuleLoader, RecordBehindAFailedAddressIsStillLoaded) {
    Loader s;
    s.addRecord("libAxis2.so");
    s.addDriver("A", "/mods/libAxis2.so");
    s.host.fail("adapter add", 1);
    Entry entry = direct();
    entry.ipAddress = "192.0.2.20";
    EXPECT_EQ(s.printedByLoad(entry, true),
              "FAILED! (IP address problem)\nLoading MF driver /mods/libAxis2.so (ID: A)...OK\n");
}

TEST(MDMModuleLoader, ModulePathJoinsTheRecordsDirectoryAndFile) {
    Loader s;
    s.addRecord("sub\\libDrill.so", "Drill", "1.0", "mods/");
    s.printedByLoad({.driverType = "Drill"}, false);
    EXPECT_EQ(s.linesOf({"module load"}), Calls{"module load 0 mods/sub/libDrill.so"});
}

// Directories, link and address.

TEST(MDMModuleLoader, VirtualPanelAddressThatCannotBeToldEndsTheLoadBeforeAnything) {
    Loader s;
    s.host.adapters.clear();
    EXPECT_EQ(s.printedByLoad(direct(), false), "Failed to determine virtual panel IP address\n");
    EXPECT_EQ(s.host.journal().lines(), (Calls{"adapter list", "adapter open eth0"}));
    EXPECT_EQ(s.pInfo, nullptr);
}

TEST(MDMModuleLoader, VirtualPanelAddressIsToldOncePerLoad) {
    Loader s;
    s.addRecord("libAxis2.so");
    s.loadQuietly(none());
    EXPECT_EQ(s.linesOf({"adapter open"}).size(), 3u);
}

TEST(MDMModuleLoader, WorkingDirectoryThatCannotBeMadeIsNamedAsConfigured) {
    Loader s;
    s.host.fail("mkdir /wp/data/A");
    EXPECT_EQ(s.printedByLoad(direct(), false),
              "Failed to create working directory data/A for MF driver A\n");
    EXPECT_EQ(s.linesOf({"mkdir", "symlink", "module"}), Calls{"mkdir /wp/data/A"});
}

TEST(MDMModuleLoader, NvramDirectoryThatCannotBeMadeIsNamedWhole) {
    Loader s;
    s.host.fail("mkdir /wp/nvram/A");
    EXPECT_EQ(s.printedByLoad(direct(), false),
              "Failed to create NVRAM directory /wp/nvram/A for MF driver A\n");
    EXPECT_EQ(s.linesOf({"mkdir", "symlink", "module"}), (Calls{"mkdir /wp/data/A", "mkdir /wp/nvram/A"}));
}

TEST(MDMModuleLoader, LinkThatCannotBeMadeEndsTheLoad) {
    Loader s;
    s.host.fail("symlink");
    EXPECT_EQ(
        s.printedByLoad(direct(), false),
        "Failed to create symlink to file driver working directory /wp/data/A -> /var/data/A for MF driver "
        "A\n");
    EXPECT_EQ(s.linesOf({"module"}), Calls{});
}

TEST(MDMModuleLoader, FailureOfADirectoryEndsTheSearch) {
    Loader s;
    s.addRecord("libAxis2.so");
    s.host.fail("mkdir /wp/nvram/A", 1);
    s.printedByLoad(direct(), false);
    EXPECT_EQ(s.linesOf({"mkdir"}), (Calls{"mkdir /wp/data/A", "mkdir /wp/nvram/A"}));
}

TEST(MDMModuleLoader, FailureLinesAreFlushed) {
    Loader s;
    s.host.fail("mkdir");
    fakehost::StandardOutput output;
    s.load(direct());
    const std::string flushed = output.flushed();
    EXPECT_EQ(flushed, "Failed to create working directory data/A for MF driver A\n");
}

TEST(MDMModuleLoader, EmptyWorkingDirectoryIsTheHostsOwn) {
    Loader s;
    s.addDriver();
    s.loadQuietly({.workingDirectory = ""});
    EXPECT_EQ(s.linesOf({"mkdir", "symlink", "A setConfiguration"}),
              (Calls{"mkdir /wp", "mkdir /wp/nvram/A", "symlink /wp -> /var/data/A replace",
                     "A setConfiguration 3 [A] [] [192.0.2.10] [eth0] [192.0.2.10] [/wp/nvram/A]"}));
}

TEST(MDMModuleLoader, LeadingSeparatorDoesNotMakeTheWorkingDirectoryAbsolute) {
    Loader s;
    s.loadQuietly({.interfaceType = EInterfaceTypes::None, .workingDirectory = "/data/A"});
    EXPECT_EQ(s.linesOf({"mkdir", "symlink"}),
              (Calls{"mkdir /wp/data/A", "mkdir /wp/nvram/A", "symlink /wp/data/A -> /var/data/A replace"}));
}

TEST(MDMModuleLoader, WorkingDirectoryIsHandedToTheDriverAsConfigured) {
    Loader s;
    s.addDriver();
    s.loadQuietly({.workingDirectory = "\\data\\A"});
    EXPECT_EQ(s.linesOf({"mkdir", "A setConfiguration"}),
              (Calls{"mkdir /wp/data/A", "mkdir /wp/nvram/A",
                     "A setConfiguration 3 [A] [\\data\\A] [192.0.2.10] [eth0] [192.0.2.10] [/wp/nvram/A]"}));
}

TEST(MDMModuleLoader, LinkAndNvramAreNamedAfterTheIDNotTheDirectory) {
    Loader s;
    s.loadQuietly(
        {.driverID = "AXIS1", .interfaceType = EInterfaceTypes::None, .workingDirectory = "data/x"});
    EXPECT_EQ(s.linesOf({"mkdir", "symlink"}), (Calls{"mkdir /wp/data/x", "mkdir /wp/nvram/AXIS1",
                                                      "symlink /wp/data/x -> /var/data/AXIS1 replace"}));
}

TEST(MDMModuleLoader, EmptyDriverIDJoinsToNothing) {
    Loader s;
    s.host.fail("symlink");
    EXPECT_EQ(
        s.printedByLoad({.driverID = ""}, false),
        "Failed to create symlink to file driver working directory /wp/data/A -> /var/data for MF driver \n");
    EXPECT_EQ(s.linesOf({"mkdir"}), (Calls{"mkdir /wp/data/A", "mkdir /wp/nvram"}));
}

TEST(MDMModuleLoader, OwnAddressAndAdapterAreHandedToTheDriver) {
    Loader s;
    s.host.adapters = {{"eth0", "192.0.2.10", {}}, {"wlan0", "198.51.100.1", {}}};
    s.addDriver();
    Entry entry = direct();
    entry.ipAddress = "198.51.100.20";
    entry.networkAdapter = "wlan0";
    s.loadQuietly(entry);
    EXPECT_EQ(
        s.linesOf({"adapter add", "A setConfiguration"}),
        (Calls{"adapter add wlan0 198.51.100.20 255.255.255.0",
               "A setConfiguration 3 [A] [data/A] [198.51.100.20] [wlan0] [192.0.2.10] [/wp/nvram/A]"}));
}

TEST(MDMModuleLoader, AddressThatCannotBeSetLoadsNothingAndSucceeds) {
    Loader s;
    s.host.fail("adapter add");
    Entry entry = direct();
    entry.ipAddress = "192.0.2.20";
    EXPECT_EQ(s.printedByLoad(entry, true), "FAILED! (IP address problem)\n");
    EXPECT_EQ(s.linesOf({"mkdir", "symlink", "module", "remove"}),
              (Calls{"mkdir /wp/data/A", "mkdir /wp/nvram/A", "symlink /wp/data/A -> /var/data/A replace"}));
    EXPECT_EQ(s.sut.getModule("A"), nullptr);
}

TEST(MDMModuleLoader, RecordIsToldThoughItsAddressFails) {
    Loader s;
    s.host.fail("adapter add");
    Entry entry = direct();
    entry.ipAddress = "192.0.2.20";
    s.printedByLoad(entry, true);
    EXPECT_EQ(s.pInfo, s.modules.front());
}

TEST(MDMModuleLoader, AdapterWithoutAConfiguredAddressGivesTheDriverItsMainAddress) {
    Loader s;
    s.host.adapters = {{"eth0", "192.0.2.10", {}}, {"wlan0", "198.51.100.1", {}}};
    s.addDriver();
    Entry entry = direct();
    entry.networkAdapter = "wlan0";
    s.loadQuietly(entry);
    EXPECT_EQ(s.linesOf({"adapter add", "A setConfiguration"}),
              Calls{"A setConfiguration 3 [A] [data/A] [198.51.100.1] [wlan0] [192.0.2.10] [/wp/nvram/A]"});
}

TEST(MDMModuleLoader, FailedLoadLeavesDirectoriesLinkAndAddressInPlace) {
    Loader s;
    Entry entry = direct();
    entry.ipAddress = "192.0.2.20";
    s.printedByLoad(entry, false);
    EXPECT_EQ(s.linesOf({"mkdir", "symlink", "adapter add", "adapter delete", "remove"}),
              (Calls{"mkdir /wp/data/A", "mkdir /wp/nvram/A", "symlink /wp/data/A -> /var/data/A replace",
                     "adapter add eth0 192.0.2.20 255.255.255.0"}));
}

TEST(MDMModuleLoader, RecordWithoutADirectoryGivesAnEmptyModulePath) {
    Loader s;
    s.addRecord("libDrill.so", "Drill", "1.0", "");
    Entry entry = direct();
    entry.driverType = "Drill";
    EXPECT_EQ(s.printedByLoad(entry, false), "Loading MF driver  (ID: A)...FAILED!\n");
}

TEST(MDMModuleLoader, RecordWithoutAFileGivesItsDirectoryAsModulePath) {
    Loader s;
    s.addRecord("", "Drill");
    Entry entry = direct();
    entry.driverType = "Drill";
    EXPECT_EQ(s.printedByLoad(entry, false), "Loading MF driver /mods (ID: A)...FAILED!\n");
}

TEST(MDMModuleLoader, EveryLineIsFlushedAtItsEndAndNotBefore) {
    Loader s;
    s.addDriver();
    Entry addressed = direct();
    addressed.ipAddress = "192.0.2.20";
    FlushedOutput output;
    s.load(direct());
    s.sut.unLoadMfModule("A");
    s.host.fail("adapter add");
    s.load(addressed);
    s.host.fail("symlink");
    s.load(direct());
    s.host.fail("mkdir /wp/nvram/A");
    s.load(direct());
    s.host.adapters.clear();
    s.load(direct());
    EXPECT_EQ(output.pieces,
              (Calls{"Loading MF driver /mods/libAxis.so (ID: A)...OK\n",
                     "Deinitializing MF driver ID: A...OK\n", "FAILED! (IP address problem)\n",
                     "Failed to create symlink to file driver working directory /wp/data/A -> /var/data/A "
                     "for MF driver A\n",
                     "Failed to create NVRAM directory /wp/nvram/A for MF driver A\n",
                     "Failed to determine virtual panel IP address\n"}));
}

TEST(MDMModuleLoader, TeardownLinesAreFlushed) {
    Loader s;
    s.addDriver();
    s.loadQuietly(direct("A"));
    s.loadQuietly(direct("B"));
    FlushedOutput output;
    s.pSut.reset();
    EXPECT_EQ(output.pieces,
              (Calls{"Deinitializing MF driver ID: A...OK\n", "Deinitializing MF driver ID: B...OK\n"}));
}

// Unloading.

TEST(MDMModuleLoader, UnloadOfADirectDriverDeinitializesAndThenDeletesIt) {
    Loader s;
    s.addDriver();
    s.loadQuietly(direct());
    EXPECT_EQ(s.callsOf([&] { s.sut.unLoadMfModule("A"); }),
              (Calls{"stdout Deinitializing MF driver ID: A...", "A deinitialize", "stdout OK\\0a",
                     "module delete /mods/libAxis.so", "A gone"}));
    EXPECT_EQ(s.sut.getModule("A"), nullptr);
}

TEST(MDMModuleLoader, OkIsWrittenWhateverDeinitializeReturns) {
    Loader s;
    s.addDriver();
    s.loadQuietly(direct());
    s.drivers["A"]->result = false;
    EXPECT_EQ(fakehost::printedBy([&] { s.sut.unLoadMfModule("A"); }),
              "Deinitializing MF driver ID: A...OK\n");
}

TEST(MDMModuleLoader, UnloadOfAQueueDriverEndsWithTheWaitForItsQueues) {
    Loader s;
    s.loadQuietly(queue());
    s.host.fail("queue create A_INQ", 1);
    const Calls calls = s.callsOf([&] { s.sut.unLoadMfModule("A"); });
    EXPECT_EQ(s.linesOf({"stdout", "queue send", "thread", "queue create", "queue close"}),
              (Calls{"stdout Deinitializing MF driver ID: A...", "queue send A_INQ DEINIT timeout -1",
                     "thread shutdown -1", "thread ended", "stdout OK\\0a", "queue create A_INQ 256 1024 0",
                     "thread mssleep 100", "queue create A_INQ 256 1024 0", "queue close A_INQ",
                     "queue create A_OUTQ 16384 1024 0", "queue close A_OUTQ"}));
    const auto destroyed = std::find(calls.begin(), calls.end(), "queue destroyed A_INQ");
    const auto made = std::find(calls.begin(), calls.end(), "queue create A_INQ 256 1024 0");
    EXPECT_LT(destroyed, made);
}

TEST(MDMModuleLoader, UnloadOfAnUnknownIDDoesNothing) {
    Loader s;
    EXPECT_EQ(s.callsOf([&] { s.sut.unLoadMfModule("A"); }), Calls{});
}

TEST(MDMModuleLoader, UnloadOfAModuleWithoutConfigurationDeletesItSilently) {
    Loader s;
    s.host.addModule("/mods/libAxis.so", []() -> IInterface* { return new RecordingFunctionID("bare"); });
    s.loadQuietly(direct());
    EXPECT_EQ(s.callsOf([&] { s.sut.unLoadMfModule("A"); }),
              (Calls{"module delete /mods/libAxis.so", "bare gone"}));
    EXPECT_EQ(s.sut.getModule("A"), nullptr);
}

TEST(MDMModuleLoader, UnloadLeavesTheOtherDrivers) {
    Loader s;
    s.addDriver();
    s.loadQuietly(direct("A"));
    s.loadQuietly(direct("B"));
    fakehost::printedBy([&] { s.sut.unLoadMfModule("A"); });
    EXPECT_EQ(s.sut.getModule("A"), nullptr);
    EXPECT_EQ(s.sut.getModule("B"), s.host.loaded[1]);
}

TEST(MDMModuleLoader, UnloadLeavesPortAddressDirectoriesAndLink) {
    Loader s;
    s.addDriver();
    Entry entry = direct();
    entry.ipAddress = "192.0.2.20";
    s.loadQuietly(entry);
    s.host.journal().clear();
    fakehost::printedBy([&] { s.sut.unLoadMfModule("A"); });
    EXPECT_EQ(s.linesOf({"adapter", "remove", "mkdir", "symlink"}), Calls{});
    EXPECT_EQ(fakehost::printedBy([&] { s.distributor.showUsedModules(); }), "A\n");
}

TEST(MDMModuleLoader, FidForAnUnloadedDriverIsSwallowed) {
    Loader s;
    s.addDriver();
    s.loadQuietly(direct());
    fakehost::printedBy([&] { s.sut.unLoadMfModule("A"); });
    s.host.journal().clear();
    s.distributor.dispatchFID("A.MOVE", FIDParameterList());
    EXPECT_EQ(s.host.journal().lines(), Calls{"log MDM 5: MDM: A.MOVE ( ) received."});
}

TEST(MDMModuleLoader, FidThatComesDuringDeinitializeStillReachesTheDriver) {
    Loader s;
    s.addDriver();
    s.loadQuietly(direct());
    s.drivers["A"]->onDeinitialize = [&] { s.distributor.dispatchFID("A.LAST", FIDParameterList()); };
    fakehost::printedBy([&] { s.sut.unLoadMfModule("A"); });
    EXPECT_EQ(s.linesOf({"A deinitialize", "A sendFID", "A gone"}),
              (Calls{"A deinitialize", "A sendFID LAST {}", "A gone"}));
}

TEST(MDMModuleLoader, FidThatComesFromTheDriversDestructorIsSwallowed) {
    Loader s;
    s.addDriver();
    s.loadQuietly(direct());
    s.drivers["A"]->onGone = [&] { s.distributor.dispatchFID("A.LATE", FIDParameterList()); };
    fakehost::printedBy([&] { s.sut.unLoadMfModule("A"); });
    EXPECT_EQ(s.linesOf({"A sendFID", "log"}), Calls{"log MDM 5: MDM: A.LATE ( ) received."});
}

TEST(MDMModuleLoader, UnloadedDriverCanBeLoadedAgain) {
    Loader s;
    s.addDriver();
    s.loadQuietly(direct());
    fakehost::printedBy([&] { s.sut.unLoadMfModule("A"); });
    s.loadQuietly(direct());
    s.host.journal().clear();
    s.distributor.dispatchFID("A.MOVE", FIDParameterList());
    EXPECT_EQ(s.linesOf({"A"}), Calls{"A sendFID MOVE {}"});
}

TEST(MDMModuleLoader, UnloadedQueueDriverCanBeLoadedAgain) {
    Loader s;
    s.loadQuietly(queue());
    fakehost::printedBy([&] { s.sut.unLoadMfModule("A"); });
    EXPECT_EQ(s.printedByLoad(queue(), true),
              "Loading MF driver /mods/libAxis.so (ID: A)...m_moduleFileName=/mods/libAxis.so\nm_driverID=A\n"
              "OK\n");
}

TEST(MDMModuleLoader, ExceptionOfDeinitializeLeavesTheUnload) {
    Loader s;
    s.addDriver();
    s.loadQuietly(direct());
    s.drivers["A"]->onDeinitialize = [] { throw std::runtime_error("no"); };
    fakehost::printedBy([&] { EXPECT_THROW(s.sut.unLoadMfModule("A"), std::runtime_error); });
    EXPECT_EQ(s.linesOf({"module delete"}), Calls{});
    s.drivers["A"]->onDeinitialize = nullptr;
}

TEST(MDMModuleLoader, ExceptionOfDeinitializeEndsTheTeardown) {
    Loader s;
    s.addDriver();
    s.loadQuietly(direct());
    s.drivers["A"]->onDeinitialize = [] { throw std::runtime_error("no"); };
    const std::unique_ptr<sal::Module> pModule(s.sut.getModule("A"));
    MDMModuleLoader* pSut = s.pSut.release();
    EXPECT_EQ(fakehost::printedBy([&] { EXPECT_THROW(delete pSut, std::runtime_error); }),
              "Deinitializing MF driver ID: A...");
    EXPECT_EQ(s.linesOf({"module delete"}), Calls{});
}

TEST(MDMModuleLoader, UnloadOfAnUnknownIDLeavesPortsAndMacroSystem) {
    Loader s;
    RecordingFunctionID driver("driver");
    RecordingMacroSystem macros;
    s.distributor.addDriverPort("PANEL", &driver);
    s.distributor.setMacroSystem(&macros);
    s.sut.unLoadMfModule("PANEL");
    s.distributor.dispatchFID("PANEL.x", FIDParameterList());
    EXPECT_EQ(s.linesOf({"macro", "driver"}),
              (Calls{"macro fidDispatched PANEL.x {}", "driver sendFID x {}"}));
    s.distributor.setMacroSystem(nullptr);
}

TEST(MDMModuleLoader, MacroSystemIsTakenOutBeforeThePanelDriverGoes) {
    Loader s;
    RecordingMacroSystem macros;
    s.addDriver("PANEL");
    s.loadQuietly(direct("PANEL"));
    s.distributor.setMacroSystem(&macros);
    s.drivers["PANEL"]->onDeinitialize = [&] { s.distributor.dispatchFID("X.during", FIDParameterList()); };
    s.drivers["PANEL"]->onGone = [&] { s.distributor.dispatchFID("X.behind", FIDParameterList()); };
    fakehost::printedBy([&] { s.sut.unLoadMfModule("PANEL"); });
    for (const std::string& line : s.linesOf({"macro"}))
        EXPECT_NE(line, "macro fidDispatched X.behind {}");
}

TEST(MDMModuleLoader, MacroSystemStaysWhenAnotherDriverGoes) {
    Loader s;
    RecordingMacroSystem macros;
    s.addDriver();
    s.loadQuietly(direct("A"));
    s.distributor.setMacroSystem(&macros);
    fakehost::printedBy([&] { s.sut.unLoadMfModule("A"); });
    s.distributor.dispatchFID("X.y", FIDParameterList());
    EXPECT_EQ(s.linesOf({"macro"}), Calls{"macro fidDispatched X.y {}"});
}

// Teardown.

TEST(MDMModuleLoader, TeardownDeinitializesAllThenDeletesModulesThenProxies) {
    Loader s;
    s.addDriver("driver");
    s.addRecord("libSpindle.so", "Spindle");
    s.host.addModule("/mods/libSpindle.so", [&]() -> IInterface* {
        return static_cast<IFunctionID*>(new RecordingDriver("spindle"));
    });
    s.loadQuietly(queue("C"));
    Entry second = direct("B");
    second.driverType = "Spindle";
    s.loadQuietly(second);
    s.loadQuietly(direct("A"));
    s.callsOf([&] { s.pSut.reset(); });
    EXPECT_EQ(s.linesOf({"stdout", "driver", "spindle", "module", "queue", "thread shutdown"}),
              (Calls{"stdout Deinitializing MF driver ID: A...", "driver deinitialize",
                     "stdout OK\\0aDeinitializing MF driver ID: B...", "spindle deinitialize",
                     "stdout OK\\0aDeinitializing MF driver ID: C...", "queue send C_INQ DEINIT timeout -1",
                     "thread shutdown -1", "stdout OK\\0a", "module delete /mods/libAxis.so", "driver gone",
                     "module delete /mods/libSpindle.so", "spindle gone", "queue destroyed C_OUTQ",
                     "queue destroyed C_INQ"}));
}

TEST(MDMModuleLoader, TeardownDeletesProxiesInByteOrder) {
    Loader s;
    s.loadQuietly(queue("b"));
    s.loadQuietly(queue("C"));
    s.callsOf([&] { s.pSut.reset(); });
    EXPECT_EQ(s.linesOf({"queue"}),
              (Calls{"queue send C_INQ DEINIT timeout -1", "queue send b_INQ DEINIT timeout -1",
                     "queue destroyed C_OUTQ", "queue destroyed C_INQ", "queue destroyed b_OUTQ",
                     "queue destroyed b_INQ"}));
}

TEST(MDMModuleLoader, TeardownDoesNotWaitForTheQueues) {
    Loader s;
    s.loadQuietly(queue());
    s.callsOf([&] { s.pSut.reset(); });
    EXPECT_EQ(s.linesOf({"queue create", "queue close", "thread mssleep"}), Calls{});
}

TEST(MDMModuleLoader, TeardownWritesTheLinesOfAllDriversWithAConfiguration) {
    Loader s;
    s.addDriver();
    s.loadQuietly(direct("b"));
    s.loadQuietly(direct("B"));
    s.sut.setFidDistributor(nullptr);
    s.printedByLoad(queue("C"), false);
    s.sut.setFidDistributor(&s.distributor);
    EXPECT_EQ(fakehost::printedBy([&] { s.pSut.reset(); }),
              "Deinitializing MF driver ID: B...OK\nDeinitializing MF driver ID: b...OK\n");
}

TEST(MDMModuleLoader, TeardownWithoutDriversDoesNothing) {
    Loader s;
    EXPECT_EQ(s.callsOf([&] { s.pSut.reset(); }), Calls{});
}

TEST(MDMModuleLoader, FidFromADestructorToAnyOtherDriverIsSwallowedAtTheTeardown) {
    Loader s;
    s.addDriver("A", "/mods/libAxis.so");
    s.loadQuietly(direct("A"));
    RecordingDriver* pA = s.drivers["A"];
    s.addDriver("B", "/mods/libAxis.so");
    s.loadQuietly(direct("B"));
    s.loadQuietly(queue("Q"));
    s.loadQuietly(queue("R"));
    pA->onGone = [&] {
        for (const char* fid : {"B.LATE", "Q.LATE", "R.LATE"})
            s.distributor.dispatchFID(fid, FIDParameterList());
    };
    s.host.journal().clear();
    fakehost::printedBy([&] { s.pSut.reset(); });
    EXPECT_EQ(s.linesOf({"B sendFID", "queue send"}),
              (Calls{"queue send Q_INQ DEINIT timeout -1", "queue send R_INQ DEINIT timeout -1"}));
}

TEST(MDMModuleLoader, FidsAfterTheTeardownAreSwallowed) {
    Loader s;
    s.addDriver();
    s.loadQuietly(direct("A"));
    s.loadQuietly(queue("B"));
    fakehost::printedBy([&] { s.pSut.reset(); });
    s.host.journal().clear();
    s.distributor.dispatchFID("A.x", FIDParameterList());
    s.distributor.dispatchFID("B.x", FIDParameterList());
    EXPECT_EQ(s.host.journal().lines(),
              (Calls{"log MDM 5: MDM: A.x ( ) received.", "log MDM 5: MDM: B.x ( ) received."}));
}

TEST(MDMModuleLoader, MacroSystemIsTakenOutBeforeTheTeardownDeletesThePanelDriver) {
    Loader s;
    RecordingMacroSystem macros;
    s.addDriver("PANEL");
    s.loadQuietly(direct("PANEL"));
    s.distributor.setMacroSystem(&macros);
    s.drivers["PANEL"]->onGone = [&] { s.distributor.dispatchFID("X.behind", FIDParameterList()); };
    fakehost::printedBy([&] { s.pSut.reset(); });
    EXPECT_EQ(s.linesOf({"macro"}), Calls{});
}

TEST(MDMModuleLoader, MacroSystemIsTakenOutAlsoWhenThePanelDriverHasNoConfiguration) {
    Loader s;
    RecordingMacroSystem macros;
    RecordingDriver* pDriver = nullptr;
    s.host.addModule("/mods/libAxis.so", [&]() -> IInterface* {
        pDriver = new RecordingDriver("PANEL");
        pDriver->answers[1201] = nullptr;
        return static_cast<IFunctionID*>(pDriver);
    });
    s.loadQuietly(direct("PANEL"));
    s.distributor.setMacroSystem(&macros);
    pDriver->onGone = [&] { s.distributor.dispatchFID("X.behind", FIDParameterList()); };
    fakehost::printedBy([&] { s.pSut.reset(); });
    EXPECT_EQ(s.linesOf({"macro"}), Calls{});
}

TEST(MDMModuleLoader, DriverMayReportWhileItIsDeinitialized) {
    Loader s;
    s.addDriver();
    s.loadQuietly(direct());
    s.drivers["A"]->onDeinitialize = [&] { s.drivers["A"]->pPanelState->unsetStateValue("LAMP"); };
    fakehost::printedBy([&] { s.pSut.reset(); });
    EXPECT_EQ(s.linesOf({"panel"}), Calls{"panel unsetStateValue A.LAMP"});
}

TEST(MDMModuleLoader, HasAVirtualDestructor) {
    EXPECT_TRUE(std::has_virtual_destructor_v<MDMModuleLoader>);
}

// Addresses.

TEST(MDMModuleLoader, FirstAdapterThatBeginsWithEthIsTaken) {
    Adapters s;
    s.host.adapters = {{"lo", "127.0.0.1", {}}, {"eth1", "192.0.2.11", {}}, {"eth0", "192.0.2.10", {}}};
    EXPECT_TRUE(s.check("", ""));
    EXPECT_EQ(s.adapter, "eth1");
    EXPECT_EQ(s.address, "192.0.2.11");
    EXPECT_EQ(s.host.journal().lines(), (Calls{"adapter list", "adapter open eth1"}));
}

TEST(MDMModuleLoader, AdapterNamedEthQualifies) {
    Adapters s;
    s.host.adapters = {{"xeth0", "192.0.2.12", {}}, {"ETH0", "192.0.2.11", {}}, {"eth", "192.0.2.10", {}}};
    EXPECT_TRUE(s.check("", ""));
    EXPECT_EQ(s.adapter, "eth");
}

TEST(MDMModuleLoader, AdapterShorterThanEthDoesNotQualify) {
    Adapters s;
    s.host.adapters = {{"et", "192.0.2.11", {}}, {"", "192.0.2.12", {}}, {"eth0", "192.0.2.10", {}}};
    EXPECT_TRUE(s.check("", ""));
    EXPECT_EQ(s.adapter, "eth0");
}

TEST(MDMModuleLoader, Eth0IsTakenWhenNoAdapterQualifies) {
    Adapters s;
    s.host.adapters = {{"lo", "127.0.0.1", {}}};
    EXPECT_FALSE(s.check("", ""));
    EXPECT_EQ(s.adapter, "eth0");
    EXPECT_EQ(s.address, "untouched");
    EXPECT_EQ(s.host.journal().lines(), (Calls{"adapter list", "adapter open eth0"}));
}

TEST(MDMModuleLoader, NamedAdapterIsOpenedWithoutALook) {
    Adapters s;
    s.host.adapters = {{"eth0", "192.0.2.10", {}}, {"wlan0", "198.51.100.1", {}}};
    EXPECT_TRUE(s.check("", "wlan0"));
    EXPECT_EQ(s.adapter, "wlan0");
    EXPECT_EQ(s.address, "198.51.100.1");
    EXPECT_EQ(s.host.journal().lines(), Calls{"adapter open wlan0"});
}

TEST(MDMModuleLoader, NamedAdapterThatIsMissingFails) {
    Adapters s;
    EXPECT_FALSE(s.check("192.0.2.20", "wlan0"));
    EXPECT_EQ(s.adapter, "wlan0");
    EXPECT_EQ(s.address, "untouched");
}

TEST(MDMModuleLoader, AdapterWithoutAnAddressGivesTheEmptyText) {
    Adapters s;
    s.host.adapters = {{"eth0", "", {}}};
    EXPECT_TRUE(s.check("", ""));
    EXPECT_EQ(s.address, "");
}

TEST(MDMModuleLoader, MainAddressIsLeftAlone) {
    Adapters s;
    EXPECT_TRUE(s.check("192.0.2.10", ""));
    EXPECT_EQ(s.address, "192.0.2.10");
    EXPECT_EQ(s.host.journal().linesOf({"adapter add", "adapter delete"}), Calls{});
}

TEST(MDMModuleLoader, SecondaryAddressIsDeletedAndAddedAgain) {
    Adapters s;
    s.host.adapters = {{"eth0", "192.0.2.10", {"192.0.2.20"}}};
    EXPECT_TRUE(s.check("192.0.2.20", ""));
    EXPECT_EQ(s.address, "192.0.2.20");
    EXPECT_EQ(s.host.journal().linesOf({"adapter delete", "adapter add"}),
              (Calls{"adapter delete eth0 192.0.2.20", "adapter add eth0 192.0.2.20 255.255.255.0"}));
}

TEST(MDMModuleLoader, ResultOfTheDeletionIsNotLookedAt) {
    Adapters s;
    s.host.adapters = {{"eth0", "192.0.2.10", {"192.0.2.20"}}};
    s.host.fail("adapter delete");
    EXPECT_TRUE(s.check("192.0.2.20", ""));
}

TEST(MDMModuleLoader, SecondaryAddressThatCannotBeAddedAgainFails) {
    Adapters s;
    s.host.adapters = {{"eth0", "192.0.2.10", {"192.0.2.20"}}};
    s.host.fail("adapter add");
    EXPECT_FALSE(s.check("192.0.2.20", ""));
}

TEST(MDMModuleLoader, NewAddressIsAdded) {
    Adapters s;
    EXPECT_TRUE(s.check("198.51.100.7", ""));
    EXPECT_EQ(s.address, "198.51.100.7");
    EXPECT_EQ(s.host.journal().linesOf({"adapter delete", "adapter add"}),
              Calls{"adapter add eth0 198.51.100.7 255.255.255.0"});
}

TEST(MDMModuleLoader, RefusedAddressFailsAndIsStillTold) {
    Adapters s;
    s.host.fail("adapter add");
    EXPECT_FALSE(s.check("192.0.2.20", "eth0"));
    EXPECT_EQ(s.address, "192.0.2.20");
    EXPECT_EQ(s.adapter, "eth0");
}

TEST(MDMModuleLoader, AddressesAreComparedAsTexts) {
    Adapters s;
    EXPECT_TRUE(s.check("192.0.2.010", ""));
    EXPECT_EQ(s.host.journal().linesOf({"adapter add"}), Calls{"adapter add eth0 192.0.2.010 255.255.255.0"});
}

TEST(MDMModuleLoader, AddressCheckWritesNothing) {
    Adapters s;
    s.host.adapters.clear();
    EXPECT_EQ(fakehost::printedBy([&] { s.check("192.0.2.20", ""); }), "");
    EXPECT_EQ(s.host.journal().linesOf({"log"}), Calls{});
}

// The record beside the loader.

TEST(MDMMfLoaderInfo, IsEmptyAfterConstruction) {
    const MDMMfLoaderInfo sut;
    EXPECT_EQ(sut.getMFDriverType(), "");
    EXPECT_EQ(sut.getMFDriverDirectory(), "");
    EXPECT_EQ(sut.getInterfaceType(), EInterfaceTypes::None);
    EXPECT_EQ(sut.getComInterface(), nullptr);
}

TEST(MDMMfLoaderInfo, KeepsWhatItIsGiven) {
    fakehost::FakeHost host;
    RecordingFunctionID driver("driver");
    MDMMfLoaderInfo sut;
    sut.setMFDriverType("Axis");
    sut.setMFDriverDirectory("/mods");
    sut.setInterfaceType(EInterfaceTypes::Queue);
    sut.setComInterface(&driver);
    EXPECT_EQ(sut.getMFDriverType(), "Axis");
    EXPECT_EQ(sut.getMFDriverDirectory(), "/mods");
    EXPECT_EQ(sut.getInterfaceType(), EInterfaceTypes::Queue);
    EXPECT_EQ(sut.getComInterface(), static_cast<IFunctionID*>(&driver));
}

TEST(MDMMfLoaderInfo, DestructionLeavesTheInterfaceAlone) {
    fakehost::FakeHost host;
    RecordingFunctionID driver("driver");
    auto pSut = std::make_unique<MDMMfLoaderInfo>();
    pSut->setComInterface(&driver);
    pSut.reset();
    EXPECT_EQ(host.journal().lines(), Calls{});
    EXPECT_TRUE(std::has_virtual_destructor_v<MDMMfLoaderInfo>);
}
