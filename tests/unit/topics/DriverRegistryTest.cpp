// What the loader and the distributor hold of each driver, and when it is entered and erased. Built without
// access control: the registries are nobody else's business.

#include <gtest/gtest.h>

#include <list>
#include <memory>
#include <string>
#include <vector>

#include "FIDParameterList.h"
#include "FakeHost.h"
#include "MDMDriverIPCI.h"
#include "MDMFidDistributor.h"
#include "MDMMainframeDriverPort.h"
#include "MDMModuleInfo.h"
#include "MDMModuleLoader.h"
#include "MDMVirtualPanelIPCI.h"
#include "MfDriverManager.h"
#include "RecordingDriver.h"
#include "RecordingFunctionID.h"
#include "RecordingMacroSystem.h"
#include "RecordingPanelState.h"
#include "RecordingSystem.h"
#include "StandardOutput.h"
#include "sal/LogManager.h"
#include "sal/ModuleLoader.h"

namespace {

using Calls = std::vector<std::string>;

template <class Value>
std::string keysOf(const std::map<std::string, Value>& entries) {
    std::string text = "[";
    for (const auto& [key, value] : entries)
        text += (text.size() > 1 ? " " : "") + key;
    return text + "]";
}

struct DriverRegistry : testing::Test {
    fakehost::FakeHost host;
    RecordingPanelState panel;
    RecordingSystem system;
    MDMFidDistributor distributor;
    MDMModuleInfo record;
    std::list<MDMModuleInfo*> modules{&record};
    std::unique_ptr<MDMModuleLoader> pSut = std::make_unique<MDMModuleLoader>();
    MDMModuleLoader& sut = *pSut;
    RecordingDriver* pDriver = nullptr;  ///< the one that was made last

    DriverRegistry() {
        g_debugStartMFDProcess = true;
        record.setMFDriverFilename("libAxis.so");
        record.setMFDriverType("Axis");
        record.setMfDriverVersion("1.0");
        record.setMFDriverDirectory("/mods");
        distributor.setPanelStateInterface(&panel);
        distributor.setSystemInterface(&system);
        sut.setFidDistributor(&distributor);
        host.addModule("/mods/libAxis.so", [this]() -> IInterface* {
            pDriver = new RecordingDriver("driver");
            return static_cast<IFunctionID*>(pDriver);
        });
    }
    ~DriverRegistry() override {
        fakehost::printedBy([this] { pSut.reset(); });
    }

    void addBareModule() {
        host.addModule("/mods/libAxis.so", []() -> IInterface* { return new RecordingFunctionID("bare"); });
    }
    bool load(EInterfaceTypes interfaceType, const std::string& driverID = "A",
              const std::string& ipAddress = std::string()) {
        bool loaded = false;
        MDMModuleInfo* pInfo = nullptr;
        fakehost::printedBy([&] {
            loaded = sut.loadMfModule(modules, 3, driverID, "Axis", "1.0", "data/A", ipAddress, "",
                                      interfaceType, pInfo);
        });
        return loaded;
    }
    void unload(const std::string& driverID = "A") {
        fakehost::printedBy([&] { sut.unLoadMfModule(driverID); });
    }
    std::string registered() const {
        return "modules " + keysOf(sut.m_modules) + " proxies " + keysOf(sut.m_driverIPCIs) +
               " configurations " + keysOf(sut.m_mfdConfigurations);
    }
    /// The calls of action that begin with these words, and before each what had changed in the registries.
    Calls traced(const std::function<void()>& action, Calls beginnings) {
        host.journal().clear();
        std::string last = registered();
        const auto change = [&]() -> Calls {
            if (registered() == last)
                return {};
            last = registered();
            return {last};
        };
        host.journal().setObserver(change);
        action();
        host.journal().note("end");
        host.journal().setObserver(nullptr);
        beginnings.push_back("modules");
        return host.journal().linesOf(beginnings);
    }
};

// Tells when it is destroyed.
class NotingProxy : public MDMDriverIPCI {
public:
    explicit NotingProxy(const std::string& driverID) : MDMDriverIPCI("", driverID), m_name(driverID) {}
    ~NotingProxy() override { fakehost::Journal::instance().note("proxy " + m_name + " destroyed"); }

private:
    std::string m_name;
};

class NotingPort : public MDMMainframeDriverPort {
public:
    explicit NotingPort(const std::string& driverID) : MDMMainframeDriverPort(driverID), m_name(driverID) {}
    ~NotingPort() override { fakehost::Journal::instance().note("port " + m_name + " destroyed"); }

private:
    std::string m_name;
};

}  // namespace

// What a load enters.

TEST_F(DriverRegistry, FreshLoaderHoldsNothing) {
    const MDMModuleLoader fresh;
    EXPECT_EQ(fresh.m_pFidDistributor, nullptr);
    EXPECT_TRUE(fresh.m_modules.empty());
    EXPECT_TRUE(fresh.m_driverIPCIs.empty());
    EXPECT_TRUE(fresh.m_mfdConfigurations.empty());
}

TEST_F(DriverRegistry, LoaderKeepsTheDistributorItWasGivenLast) {
    MDMFidDistributor other;
    sut.setFidDistributor(&other);
    EXPECT_EQ(sut.m_pFidDistributor, &other);
    sut.setFidDistributor(nullptr);
    EXPECT_EQ(sut.m_pFidDistributor, nullptr);
}

TEST_F(DriverRegistry, DirectDriverIsAModuleWithItsOwnConfiguration) {
    EXPECT_TRUE(load(EInterfaceTypes::Direct));
    EXPECT_EQ(registered(), "modules [A] proxies [] configurations [A]");
    EXPECT_EQ(sut.m_modules["A"], host.loaded.back());
    EXPECT_EQ(sut.m_mfdConfigurations["A"], static_cast<IMFDConfiguration*>(pDriver));
}

TEST_F(DriverRegistry, ModuleWithoutConfigurationIsAModuleAlone) {
    addBareModule();
    EXPECT_TRUE(load(EInterfaceTypes::Direct));
    EXPECT_EQ(registered(), "modules [A] proxies [] configurations []");
    EXPECT_TRUE(distributor.m_ports.empty());
}

TEST_F(DriverRegistry, DirectDriverWithoutADistributorIsAModuleAlone) {
    sut.setFidDistributor(nullptr);
    EXPECT_TRUE(load(EInterfaceTypes::Direct));
    EXPECT_EQ(registered(), "modules [A] proxies [] configurations []");
}

TEST_F(DriverRegistry, ModuleThatCannotBeLoadedIsNotEntered) {
    host.modules.clear();
    EXPECT_FALSE(load(EInterfaceTypes::Direct));
    EXPECT_EQ(registered(), "modules [] proxies [] configurations []");
}

TEST_F(DriverRegistry, QueueDriverIsAProxyWithItsOwnConfiguration) {
    EXPECT_TRUE(load(EInterfaceTypes::Queue));
    EXPECT_EQ(registered(), "modules [] proxies [A] configurations [A]");
    EXPECT_EQ(sut.m_mfdConfigurations["A"], static_cast<IMFDConfiguration*>(sut.m_driverIPCIs["A"]));
}

TEST_F(DriverRegistry, QueueDriverWithoutADistributorIsAProxyAlone) {
    sut.setFidDistributor(nullptr);
    EXPECT_FALSE(load(EInterfaceTypes::Queue));
    EXPECT_EQ(registered(), "modules [] proxies [A] configurations []");
    EXPECT_TRUE(distributor.m_ports.empty());
}

TEST_F(DriverRegistry, QueueDriverWhoseStartFailsStaysWithItsConfiguration) {
    host.fail("process start");
    EXPECT_FALSE(load(EInterfaceTypes::Queue));
    EXPECT_EQ(registered(), "modules [] proxies [A] configurations [A]");
}

TEST_F(DriverRegistry, QueueDriverWhoseQueuesFailStaysWithItsConfiguration) {
    host.fail("queue create A_INQ", 1);
    EXPECT_FALSE(load(EInterfaceTypes::Queue));
    EXPECT_EQ(registered(), "modules [] proxies [A] configurations [A]");
}

TEST_F(DriverRegistry, OtherInterfaceTypesEnterNothing) {
    for (int type : {0, 3, 4, -1})
        EXPECT_TRUE(load(static_cast<EInterfaceTypes>(type))) << type;
    EXPECT_EQ(registered(), "modules [] proxies [] configurations []");
    EXPECT_TRUE(distributor.m_ports.empty());
}

TEST_F(DriverRegistry, DriverWhoseAddressFailsIsNotEntered) {
    host.fail("adapter add");
    EXPECT_TRUE(load(EInterfaceTypes::Queue, "A", "192.0.2.20"));
    EXPECT_EQ(registered(), "modules [] proxies [] configurations []");
}

TEST_F(DriverRegistry, ModuleIsEnteredBeforeItIsAskedAndItsConfigurationBeforeTheSecondQuestion) {
    EXPECT_EQ(traced([this] { load(EInterfaceTypes::Direct); }, {"module", "driver"}),
              (Calls{"module load 0 /mods/libAxis.so", "modules [A] proxies [] configurations []",
                     "module query /mods/libAxis.so 1201", "modules [A] proxies [] configurations [A]",
                     "module query /mods/libAxis.so 1100", "driver setPanelStateInterface",
                     "driver setSystemInterface",
                     "driver setConfiguration 3 [A] [data/A] [192.0.2.10] [eth0] [192.0.2.10] [/wp/nvram/A]",
                     "driver initializationCompleted"}));
}

TEST_F(DriverRegistry, ProxyAndItsConfigurationAreEnteredBeforeTheQueuesAreMade) {
    EXPECT_EQ(traced([this] { load(EInterfaceTypes::Queue); }, {"queue create", "process"}),
              (Calls{"modules [] proxies [A] configurations [A]", "queue create A_INQ 256 1024 0",
                     "queue create A_OUTQ 16384 1024 0",
                     "process start /opt/host/bin/mfddllwrap [A MFD Console] [/mods/libAxis.so] [A]"}));
}

TEST_F(DriverRegistry, ProxyIsGivenItsTextsAndTheThreeInterfaces) {
    load(EInterfaceTypes::Queue);
    const MDMDriverIPCI& proxy = *sut.m_driverIPCIs["A"];
    EXPECT_EQ(proxy.m_moduleFileName, "/mods/libAxis.so");
    EXPECT_EQ(proxy.m_driverID, "A");
    EXPECT_EQ(proxy.m_pIPanelState, static_cast<IPanelState*>(distributor.m_ports["A"]));
    EXPECT_EQ(proxy.m_pIDistributorFID, static_cast<IDistributorFID*>(&distributor));
    EXPECT_EQ(proxy.m_pISystem, static_cast<ISystem*>(&system));
}

TEST_F(DriverRegistry, ProxyIsConnectedAlsoWhenItsQueuesFail) {
    host.fail("queue create A_INQ", 1);
    load(EInterfaceTypes::Queue);
    const MDMDriverIPCI& proxy = *sut.m_driverIPCIs["A"];
    ASSERT_EQ(distributor.m_ports.count("A"), 1u);
    EXPECT_EQ(distributor.m_ports["A"]->m_pFunctionID,
              static_cast<const IFunctionID*>(sut.m_driverIPCIs["A"]));
    EXPECT_EQ(proxy.m_pIPanelState, static_cast<IPanelState*>(distributor.m_ports["A"]));
    EXPECT_EQ(proxy.m_pISystem, static_cast<ISystem*>(&system));
}

// A second driver of the same ID.

TEST_F(DriverRegistry, SecondDirectDriverOfAnIDReplacesTheFirstAndReleasesNothing) {
    load(EInterfaceTypes::Direct);
    const std::unique_ptr<sal::Module> pFirst(sut.m_modules["A"]);
    host.journal().clear();
    EXPECT_TRUE(load(EInterfaceTypes::Direct));
    EXPECT_EQ(host.journal().linesOf({"module delete", "driver deinitialize", "driver gone"}), Calls{});
    EXPECT_NE(sut.m_modules["A"], pFirst.get());
    EXPECT_EQ(sut.m_mfdConfigurations["A"], static_cast<IMFDConfiguration*>(pDriver));
}

TEST_F(DriverRegistry, SecondQueueDriverOfAnIDReplacesTheFirstAndReleasesNothing) {
    load(EInterfaceTypes::Queue);
    std::unique_ptr<MDMDriverIPCI> pFirst(sut.m_driverIPCIs["A"]);
    host.journal().clear();
    EXPECT_FALSE(load(EInterfaceTypes::Queue));
    EXPECT_EQ(host.journal().linesOf({"queue send", "queue destroyed", "thread"}), Calls{});
    EXPECT_NE(sut.m_driverIPCIs["A"], pFirst.get());
    EXPECT_EQ(sut.m_mfdConfigurations["A"], static_cast<IMFDConfiguration*>(sut.m_driverIPCIs["A"]));
    pFirst.reset();
}

TEST_F(DriverRegistry, ModuleWithoutConfigurationLeavesThatOfItsPredecessor) {
    load(EInterfaceTypes::Direct);
    const std::unique_ptr<sal::Module> pFirst(sut.m_modules["A"]);
    addBareModule();
    EXPECT_TRUE(load(EInterfaceTypes::Direct));
    EXPECT_EQ(sut.m_modules["A"], host.loaded.back());
    EXPECT_EQ(sut.m_mfdConfigurations["A"], static_cast<IMFDConfiguration*>(pDriver));
    unload();
}

TEST_F(DriverRegistry, DirectAndQueueDriverOfOneIDAreUnloadedTogetherTheModuleFirst) {
    load(EInterfaceTypes::Direct);
    load(EInterfaceTypes::Queue);
    EXPECT_EQ(registered(), "modules [A] proxies [A] configurations [A]");
    EXPECT_EQ(
        traced([this] { unload(); }, {"driver", "module delete", "queue", "thread"}),
        (Calls{"queue send A_INQ DEINIT timeout -1", "thread shutdown -1", "thread ended",
               "modules [A] proxies [A] configurations []", "module delete /mods/libAxis.so", "driver gone",
               "modules [] proxies [A] configurations []", "queue destroyed A_OUTQ", "queue destroyed A_INQ",
               "modules [] proxies [] configurations []", "queue create A_INQ 256 1024 0",
               "queue close A_INQ", "queue create A_OUTQ 16384 1024 0", "queue close A_OUTQ"}));
}

// What an unload erases.

TEST_F(DriverRegistry, DirectDriverIsErasedStepByStep) {
    load(EInterfaceTypes::Direct);
    EXPECT_EQ(
        traced([this] { unload(); }, {"driver", "module delete"}),
        (Calls{"driver deinitialize", "modules [A] proxies [] configurations []",
               "module delete /mods/libAxis.so", "driver gone", "modules [] proxies [] configurations []"}));
}

TEST_F(DriverRegistry, QueueDriverIsErasedBeforeTheWaitForItsQueues) {
    load(EInterfaceTypes::Queue);
    EXPECT_EQ(
        traced([this] { unload(); }, {"queue", "thread"}),
        (Calls{"queue send A_INQ DEINIT timeout -1", "thread shutdown -1", "thread ended",
               "modules [] proxies [A] configurations []", "queue destroyed A_OUTQ", "queue destroyed A_INQ",
               "modules [] proxies [] configurations []", "queue create A_INQ 256 1024 0",
               "queue close A_INQ", "queue create A_OUTQ 16384 1024 0", "queue close A_OUTQ"}));
}

TEST_F(DriverRegistry, UnloadErasesThatDriverAlone) {
    load(EInterfaceTypes::Direct, "A");
    load(EInterfaceTypes::Direct, "B");
    load(EInterfaceTypes::Queue, "C");
    unload("B");
    EXPECT_EQ(registered(), "modules [A] proxies [C] configurations [A C]");
    unload("C");
    EXPECT_EQ(registered(), "modules [A] proxies [] configurations [A]");
}

TEST_F(DriverRegistry, LookUpsOfUnknownDriversEnterNothing) {
    load(EInterfaceTypes::Queue);
    EXPECT_EQ(sut.getModule("A"), nullptr);
    EXPECT_EQ(sut.getModule("B"), nullptr);
    unload("B");
    EXPECT_EQ(registered(), "modules [] proxies [A] configurations [A]");
}

TEST_F(DriverRegistry, MissingModuleIsErasedWithoutBeingDeleted) {
    sut.m_modules["A"] = nullptr;
    EXPECT_EQ(traced([this] { unload(); }, {"module", "queue"}),
              Calls{"modules [] proxies [] configurations []"});
}

TEST_F(DriverRegistry, MissingProxyIsErasedAndItsQueuesAreWaitedFor) {
    sut.m_driverIPCIs["A"] = nullptr;
    EXPECT_EQ(traced([this] { unload(); }, {"module", "queue"}),
              (Calls{"modules [] proxies [] configurations []", "queue create A_INQ 256 1024 0",
                     "queue close A_INQ", "queue create A_OUTQ 16384 1024 0", "queue close A_OUTQ"}));
}

TEST_F(DriverRegistry, UnloadLeavesThePortWithItsTarget) {
    load(EInterfaceTypes::Direct);
    const MDMMainframeDriverPort* pPort = distributor.m_ports["A"];
    unload();
    ASSERT_EQ(distributor.m_ports.size(), 1u);
    EXPECT_EQ(distributor.m_ports["A"], pPort);
    EXPECT_EQ(pPort->m_pPanelState, static_cast<IPanelState*>(&distributor));
    EXPECT_EQ(pPort->m_pFunctionID, nullptr);
}

// Teardown.

TEST_F(DriverRegistry, TeardownDeinitializesInByteOrderThenDeletesModulesThenProxies) {
    RecordingDriver first("B.configuration");
    RecordingDriver second("a.configuration");
    sut.m_mfdConfigurations["a"] = &second;
    sut.m_mfdConfigurations["B"] = &first;
    sut.m_driverIPCIs["b"] = new NotingProxy("b");
    sut.m_driverIPCIs["C"] = new NotingProxy("C");
    sut.m_driverIPCIs["none"] = nullptr;
    sut.m_modules["none"] = nullptr;
    host.addModule("/mods/d", []() -> IInterface* { return new RecordingFunctionID("d"); });
    host.addModule("/mods/E", []() -> IInterface* { return new RecordingFunctionID("E"); });
    sal::ModuleLoader loader;
    sut.m_modules["d"] = loader.load(sal::ModuleLoader::eLoadDefault, "/mods/d");
    sut.m_modules["E"] = loader.load(sal::ModuleLoader::eLoadDefault, "/mods/E");
    host.journal().clear();
    EXPECT_EQ(fakehost::printedBy([this] { pSut.reset(); }),
              "Deinitializing MF driver ID: B...OK\nDeinitializing MF driver ID: a...OK\n");
    EXPECT_EQ(host.journal().lines(),
              (Calls{"B.configuration deinitialize", "a.configuration deinitialize", "module delete /mods/E",
                     "E gone", "module delete /mods/d", "d gone", "proxy C destroyed", "proxy b destroyed"}));
}

TEST_F(DriverRegistry, UnloadDeletesAProxyThroughItsVirtualDestructor) {
    sut.m_driverIPCIs["A"] = new NotingProxy("A");
    host.journal().clear();
    unload();
    EXPECT_EQ(host.journal().linesOf({"proxy"}), Calls{"proxy A destroyed"});
}

TEST_F(DriverRegistry, UnloadedDriversAreForgottenByTheTeardown) {
    load(EInterfaceTypes::Direct, "A");
    load(EInterfaceTypes::Queue, "B");
    unload("A");
    unload("B");
    host.journal().clear();
    EXPECT_EQ(fakehost::printedBy([this] { pSut.reset(); }), "");
    EXPECT_EQ(host.journal().lines(), Calls{});
}

// Ports.

TEST_F(DriverRegistry, FreshDistributorHoldsNothingButTheLogOutput) {
    const MDMFidDistributor fresh;
    EXPECT_TRUE(fresh.m_ports.empty());
    EXPECT_EQ(fresh.m_pPanelState, nullptr);
    EXPECT_EQ(fresh.m_pSystem, nullptr);
    EXPECT_EQ(fresh.m_pMacroSystem, nullptr);
    ASSERT_NE(fresh.m_pLog, nullptr);
    EXPECT_EQ(fresh.m_pLog->name(), "MDM");
}

TEST_F(DriverRegistry, DistributorHoldsTheInterfacesItWasGivenLast) {
    RecordingMacroSystem macros;
    distributor.setMacroSystem(&macros);
    EXPECT_EQ(distributor.m_pPanelState, static_cast<IPanelState*>(&panel));
    EXPECT_EQ(distributor.m_pSystem, static_cast<ISystem*>(&system));
    EXPECT_EQ(distributor.m_pMacroSystem, static_cast<IMacroSystem*>(&macros));
    distributor.setPanelStateInterface(nullptr);
    distributor.setSystemInterface(nullptr);
    distributor.setMacroSystem(nullptr);
    EXPECT_EQ(distributor.m_pPanelState, nullptr);
    EXPECT_EQ(distributor.m_pSystem, nullptr);
    EXPECT_EQ(distributor.m_pMacroSystem, nullptr);
}

TEST_F(DriverRegistry, FreshPortsAreWiredToNothing) {
    const MDMMainframeDriverPort nameless;
    EXPECT_EQ(nameless.m_driverID, "");
    EXPECT_EQ(nameless.m_pFunctionID, nullptr);
    EXPECT_EQ(nameless.m_pPanelState, nullptr);
    const MDMMainframeDriverPort named("A");
    EXPECT_EQ(named.m_driverID, "A");
    EXPECT_EQ(named.m_pFunctionID, nullptr);
    EXPECT_EQ(named.m_pPanelState, nullptr);
}

TEST_F(DriverRegistry, PortIsWiredToTheDistributorItselfAndToTheDriver) {
    RecordingFunctionID endpoint("endpoint");
    IPanelState* pAnswer = distributor.addDriverPort("A", &endpoint);
    ASSERT_EQ(distributor.m_ports.count("A"), 1u);
    const MDMMainframeDriverPort* pPort = distributor.m_ports["A"];
    EXPECT_EQ(pPort->m_driverID, "A");
    EXPECT_EQ(pPort->m_pPanelState, static_cast<IPanelState*>(&distributor));
    EXPECT_EQ(pPort->m_pFunctionID, static_cast<IFunctionID*>(&endpoint));
    EXPECT_EQ(pAnswer, static_cast<const IPanelState*>(pPort));
}

TEST_F(DriverRegistry, PortIsWiredToTheDistributorAlsoWithoutATarget) {
    distributor.setPanelStateInterface(nullptr);
    distributor.addDriverPort("A", nullptr);
    EXPECT_EQ(distributor.m_ports["A"]->m_pPanelState, static_cast<IPanelState*>(&distributor));
    EXPECT_EQ(distributor.m_ports["A"]->m_pFunctionID, nullptr);
}

TEST_F(DriverRegistry, ReplacedPortIsDestroyedThroughItsVirtualDestructor) {
    auto* pFormer = new NotingPort("A");
    distributor.m_ports["A"] = pFormer;
    distributor.m_ports["B"] = new NotingPort("B");
    host.journal().clear();
    distributor.addDriverPort("A", nullptr);
    EXPECT_EQ(host.journal().linesOf({"port"}), Calls{"port A destroyed"});
    EXPECT_EQ(keysOf(distributor.m_ports), "[A B]");
    EXPECT_EQ(dynamic_cast<NotingPort*>(distributor.m_ports["A"]), nullptr);
}

TEST_F(DriverRegistry, MissingPortIsReplaced) {
    distributor.m_ports["A"] = nullptr;
    EXPECT_NE(distributor.addDriverPort("A", nullptr), nullptr);
    EXPECT_NE(distributor.m_ports["A"], nullptr);
}

TEST_F(DriverRegistry, DistributorDestroysItsPortsInByteOrder) {
    auto pDistributor = std::make_unique<MDMFidDistributor>();
    for (const char* driverID : {"a", "B1", "B"})
        pDistributor->m_ports[driverID] = new NotingPort(driverID);
    host.journal().clear();
    pDistributor.reset();
    EXPECT_EQ(host.journal().lines(), (Calls{"port B destroyed", "port B1 destroyed", "port a destroyed"}));
}

TEST_F(DriverRegistry, LookUpsOfUnknownPortsEnterNothing) {
    distributor.dispatchFID("A.x", FIDParameterList());
    distributor.subscribe("B.x");
    distributor.releaseDriver("C");
    EXPECT_TRUE(distributor.m_ports.empty());
}

TEST_F(DriverRegistry, VirtualPanelKnowsNoDistributorAtFirst) {
    MDMVirtualPanelIPCI virtualPanel;
    EXPECT_EQ(virtualPanel.m_pDistributorFID, nullptr);
    virtualPanel.setDistributorFIDInterface(&distributor);
    EXPECT_EQ(virtualPanel.m_pDistributorFID, static_cast<IDistributorFID*>(&distributor));
}
