// In which order the components come and go. Built without access control, since who they are is nobody
// else's business.

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>

#include "AllocationLog.h"
#include "FakeHost.h"
#include "MDMConfigDistributor.h"
#include "MDMConfigurationIPCI.h"
#include "MDMFidCreator.h"
#include "MDMFidDistributor.h"
#include "MDMModuleChecker.h"
#include "MDMModuleHandler.h"
#include "MDMModuleInfo.h"
#include "MDMModuleLoader.h"
#include "MDMModuleParser.h"
#include "MDMPanelConfigurationIPCI.h"
#include "MDMVirtualPanelIPCI.h"
#include "MfDriverManager.h"

namespace {

using Blocks = std::vector<const void*>;

/// Of all blocks those that are wanted, in their order.
Blocks among(const Blocks& blocks, const Blocks& wanted) {
    Blocks result;
    for (const void* pBlock : blocks) {
        if (std::find(wanted.begin(), wanted.end(), pBlock) != wanted.end())
            result.push_back(pBlock);
    }
    return result;
}

/// The wanted blocks, each where it was handed out last: earlier owners of the same memory do not count.
Blocks lastAmong(Blocks blocks, const Blocks& wanted) {
    std::reverse(blocks.begin(), blocks.end());
    Blocks result;
    for (const void* pBlock : among(blocks, wanted)) {
        if (std::find(result.begin(), result.end(), pBlock) == result.end())
            result.push_back(pBlock);
    }
    std::reverse(result.begin(), result.end());
    return result;
}

struct Lifecycle : testing::Test {
    fakehost::FakeHost host;
    std::unique_ptr<MfDriverManager> pSut = std::make_unique<MfDriverManager>();

    void SetUp() override {
        if (!AllocationLog::available())
            GTEST_SKIP() << "the sanitizer has operator new to itself";
    }

    Blocks ofManager() const {
        return {pSut->m_pModuleHandler,    pSut->m_pFidDistributor,  pSut->m_pConfigDistributor,
                pSut->m_pVirtualPanelIPCI, pSut->m_pPanelConfigIPCI, pSut->m_pMDMConfigIPCI};
    }
    static Blocks ofHandler(const MDMModuleHandler& handler) {
        return {handler.m_pMidCreator, handler.m_pModuleLoader, handler.m_pModuleChecker,
                handler.m_pModuleParser};
    }
};

}  // namespace

TEST_F(Lifecycle, InitMakesTheManagersComponentsInOrderAndThenTheHandlers) {
    const AllocationLog log;
    pSut->init();
    const Blocks made = log.allocated();
    Blocks expected = ofManager();
    for (const void* pBlock : ofHandler(*pSut->m_pModuleHandler))
        expected.push_back(pBlock);
    EXPECT_EQ(lastAmong(made, expected), expected);
}

TEST_F(Lifecycle, ConstructionMakesNoComponent) {
    const MDMModuleHandler handler;
    EXPECT_EQ(ofHandler(handler), (Blocks{nullptr, nullptr, nullptr, nullptr}));
    EXPECT_EQ(handler.m_pPanelState, nullptr);
    EXPECT_TRUE(handler.m_modules.empty());
    EXPECT_EQ(handler.m_configurationPath, "");
}

TEST_F(Lifecycle, HandlersInitMakesItsComponentsInOrder) {
    MDMModuleHandler handler;
    const AllocationLog log;
    handler.init();
    const Blocks made = log.allocated();
    EXPECT_EQ(lastAmong(made, ofHandler(handler)), ofHandler(handler));
}

TEST_F(Lifecycle, DestructionDeletesEachComponentOnceAndInOrder) {
    pSut->init();
    const Blocks expected = ofManager();
    const AllocationLog log;
    pSut.reset();
    EXPECT_EQ(among(log.freed(), expected), expected);
}

TEST_F(Lifecycle, HandlerDeletesItsRecordsAndThenItsComponentsInOrder) {
    pSut->init();
    host.writeFile("/mods/a.xml",
                   "<mfDriverModule><module_type type=\"A\"/><module_type type=\"B\"/></mfDriverModule>");
    MDMModuleHandler& handler = *pSut->m_pModuleHandler;
    handler.searchMfDriver("/mods");
    ASSERT_EQ(handler.m_modules.size(), 2u);
    Blocks expected{handler.m_modules.front(), handler.m_modules.back()};
    for (const void* pBlock : ofHandler(handler))
        expected.push_back(pBlock);
    expected.push_back(&handler);
    const AllocationLog log;
    pSut.reset();
    EXPECT_EQ(among(log.freed(), expected), expected);
}

TEST_F(Lifecycle, EveryRecordOfADescriptorIsABlockOfItsOwn) {
    pSut->init();
    host.writeFile("/mods/a.xml",
                   "<mfDriverModule><module_type type=\"A\"/><module_type type=\"B\"/></mfDriverModule>");
    const std::list<MDMModuleInfo*>& modules = pSut->m_pModuleHandler->m_modules;
    const AllocationLog log;
    pSut->m_pModuleHandler->searchMfDriver("/mods");
    const Blocks made = log.allocated();
    const Blocks expected(modules.begin(), modules.end());
    ASSERT_EQ(expected.size(), 2u);
    EXPECT_EQ(lastAmong(made, expected), expected);
}
