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

TEST_F(Wiring, HandlersInitEmptiesTheCatalogueWithoutDeletingIt) {
    MDMModuleHandler handler;
    MDMModuleInfo record;
    handler.m_modules.push_back(&record);
    handler.init();
    EXPECT_TRUE(handler.m_modules.empty());
}
