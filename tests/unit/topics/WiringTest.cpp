// Who knows whom once the manager stands. Most of it shows from outside; what does not is looked at here,
// built without access control.

#include <gtest/gtest.h>

#include "FakeHost.h"
#include "MDMConfigurationIPCI.h"
#include "MDMFidDistributor.h"
#include "MDMModuleHandler.h"
#include "MDMModuleInfo.h"
#include "MDMModuleLoader.h"
#include "MDMVirtualPanelIPCI.h"
#include "MfDriverManager.h"
#include "RecordingMacroSystem.h"
#include "RecordingPanelState.h"
#include "RecordingSystem.h"
#include "StandardOutput.h"

namespace {

struct Wiring : testing::Test {
    fakehost::FakeHost host;
    MfDriverManager sut;
};

}  // namespace

TEST_F(Wiring, NothingExistsBeforeInit) {
    EXPECT_EQ(sut.m_pModuleHandler, nullptr);
    EXPECT_EQ(sut.m_pFidDistributor, nullptr);
    EXPECT_EQ(sut.m_pConfigDistributor, nullptr);
    EXPECT_EQ(sut.m_pVirtualPanelIPCI, nullptr);
    EXPECT_EQ(sut.m_pPanelConfigIPCI, nullptr);
    EXPECT_EQ(sut.m_pMDMConfigIPCI, nullptr);
}

TEST_F(Wiring, InitMakesEveryComponent) {
    sut.init();
    EXPECT_NE(sut.m_pModuleHandler, nullptr);
    EXPECT_NE(sut.m_pFidDistributor, nullptr);
    EXPECT_NE(sut.m_pConfigDistributor, nullptr);
    EXPECT_NE(sut.m_pVirtualPanelIPCI, nullptr);
    EXPECT_NE(sut.m_pPanelConfigIPCI, nullptr);
    EXPECT_NE(sut.m_pMDMConfigIPCI, nullptr);
}

TEST_F(Wiring, VirtualPanelIsTheDistributorsFirstTarget) {
    sut.init();
    EXPECT_EQ(sut.m_pFidDistributor->m_pPanelState, static_cast<IPanelState*>(sut.m_pVirtualPanelIPCI));
}

TEST_F(Wiring, VirtualPanelKnowsTheDistributor) {
    sut.init();
    EXPECT_EQ(sut.m_pVirtualPanelIPCI->m_pDistributorFID,
              static_cast<IDistributorFID*>(sut.m_pFidDistributor));
}

TEST_F(Wiring, StatusEndpointKnowsTheHandler) {
    sut.init();
    EXPECT_EQ(sut.m_pMDMConfigIPCI->m_pMDMConfiguration,
              static_cast<IMDMConfiguration*>(sut.m_pModuleHandler));
}

TEST_F(Wiring, LoaderKnowsTheDistributor) {
    sut.init();
    EXPECT_EQ(sut.m_pModuleHandler->m_pModuleLoader->m_pFidDistributor, sut.m_pFidDistributor);
}

TEST_F(Wiring, HandlerHasNoPanelStateOfItsOwnAfterInit) {
    sut.init();
    EXPECT_EQ(sut.m_pModuleHandler->m_pPanelState, nullptr);
}

TEST_F(Wiring, DistributorHasNeitherSystemNorMacroSystemAfterInit) {
    sut.init();
    EXPECT_EQ(sut.m_pFidDistributor->m_pSystem, nullptr);
    EXPECT_EQ(sut.m_pFidDistributor->m_pMacroSystem, nullptr);
}

TEST_F(Wiring, LogOutputIsTheOneNamedMdm) {
    sal::LogOutput* pLog = sal::LogManager::getInstance()->getLogOutput("MDM");
    sut.init();
    EXPECT_EQ(sut.m_pLog, pLog);
    EXPECT_EQ(sut.m_pModuleHandler->m_pLog, pLog);
}

TEST_F(Wiring, SystemInterfaceIsStoredInTheDistributor) {
    RecordingSystem system;
    sut.init();
    sut.setSystemInterface(&system);
    EXPECT_EQ(sut.m_pFidDistributor->m_pSystem, static_cast<ISystem*>(&system));
}

TEST_F(Wiring, PanelStateIsStoredInDistributorAndHandler) {
    RecordingPanelState panel;
    sut.init();
    sut.setVirtualPanelStateInterface(&panel);
    EXPECT_EQ(sut.m_pFidDistributor->m_pPanelState, static_cast<IPanelState*>(&panel));
    EXPECT_EQ(sut.m_pModuleHandler->m_pPanelState, static_cast<IPanelState*>(&panel));
}

TEST_F(Wiring, PanelStateIsStoredInTheHandlerWithoutADistributor) {
    RecordingPanelState panel;
    sut.m_pModuleHandler = new MDMModuleHandler;
    sut.setVirtualPanelStateInterface(&panel);
    EXPECT_EQ(sut.m_pModuleHandler->m_pPanelState, static_cast<IPanelState*>(&panel));
}

TEST_F(Wiring, PanelStateIsStoredInTheDistributorWithoutAHandler) {
    RecordingPanelState panel;
    sut.m_pFidDistributor = new MDMFidDistributor;
    sut.setVirtualPanelStateInterface(&panel);
    EXPECT_EQ(sut.m_pFidDistributor->m_pPanelState, static_cast<IPanelState*>(&panel));
}

TEST_F(Wiring, SystemInterfaceNeedsTheDistributorAlone) {
    RecordingSystem system;
    sut.m_pFidDistributor = new MDMFidDistributor;
    sut.setSystemInterface(&system);
    EXPECT_EQ(sut.m_pFidDistributor->m_pSystem, static_cast<ISystem*>(&system));
}

TEST_F(Wiring, DriversStartedStoresNullWithoutAHandler) {
    RecordingMacroSystem macros;
    sut.m_pFidDistributor = new MDMFidDistributor;
    sut.m_pFidDistributor->m_pMacroSystem = &macros;
    sut.onMfDriversStarted();
    EXPECT_EQ(sut.m_pFidDistributor->m_pMacroSystem, nullptr);
}

TEST_F(Wiring, ReportNeedsTheDistributorToo) {
    sut.m_pModuleHandler = new MDMModuleHandler;
    EXPECT_EQ(fakehost::printedBy([&] { sut.showModules(); }), "");
}

TEST_F(Wiring, ReportNeedsTheHandlerToo) {
    sut.m_pFidDistributor = new MDMFidDistributor;
    EXPECT_EQ(fakehost::printedBy([&] { sut.showModules(); }), "");
}

TEST_F(Wiring, PanelDriverIsNotLookedUpWithoutALoader) {
    sut.m_pModuleHandler = new MDMModuleHandler;
    for (unsigned int id : {1012u, 1107u, 1109u})
        EXPECT_EQ(sut.queryInterface(id), nullptr) << id;
}

TEST_F(Wiring, StatusEndpointKnowsNobodyAtFirst) {
    const MDMConfigurationIPCI endpoint;
    EXPECT_EQ(endpoint.m_pMDMConfiguration, nullptr);
}

TEST_F(Wiring, HandlersDistributorIsTheLoadersAndMayBeTakenAway) {
    sut.init();
    sut.m_pModuleHandler->setFidDistributor(nullptr);
    EXPECT_EQ(sut.m_pModuleHandler->m_pModuleLoader->m_pFidDistributor, nullptr);
}

TEST_F(Wiring, HandlersInitEmptiesTheCatalogueWithoutDeletingIt) {
    MDMModuleHandler handler;
    MDMModuleInfo record;
    handler.m_modules.push_back(&record);
    handler.init();
    EXPECT_TRUE(handler.m_modules.empty());
}
