// The binary contract inside the classes: which members lie where. Built without access control, since the
// members are nobody else's business. What the module adds for itself lies behind the listed members.

#include <gtest/gtest.h>

#include <algorithm>
#include <concepts>
#include <cstddef>
#include <vector>

#include "FakeHost.h"
#include "MDMConfigDistributor.h"
#include "MDMConfigurationIPCI.h"
#include "MDMDriverIPCI.h"
#include "MDMFidCreator.h"
#include "MDMFidDistributor.h"
#include "MDMMainframeDriverPort.h"
#include "MDMModuleChecker.h"
#include "MDMModuleHandler.h"
#include "MDMModuleInfo.h"
#include "MDMModuleLoader.h"
#include "MDMModuleParser.h"
#include "MDMPanelConfigurationIPCI.h"
#include "MDMVirtualPanelIPCI.h"
#include "MfDriverManager.h"

namespace {

/// Where the members of an object lie, seen from its beginning.
template <class Class, class... Members>
std::vector<std::ptrdiff_t> offsets(const Class& object, const Members&... members) {
    const char* pBegin = reinterpret_cast<const char*>(&object);
    return {(reinterpret_cast<const char*>(&members) - pBegin)...};
}

constexpr std::ptrdiff_t g_word = sizeof(void*);
constexpr std::ptrdiff_t g_text = sizeof(std::string);

using Offsets = std::vector<std::ptrdiff_t>;

}  // namespace

TEST(MemberOrder, DriverManager) {
    const fakehost::FakeHost host;
    const MfDriverManager sut;
    EXPECT_EQ(offsets(sut, sut.m_pModuleHandler, sut.m_pFidDistributor, sut.m_pConfigDistributor,
                      sut.m_pVirtualPanelIPCI, sut.m_pPanelConfigIPCI, sut.m_pMDMConfigIPCI, sut.m_pLog),
              (Offsets{g_word, 2 * g_word, 3 * g_word, 4 * g_word, 5 * g_word, 6 * g_word, 7 * g_word}));
    EXPECT_EQ(sizeof sut, 8u * g_word);
}

TEST(MemberOrder, DriverManagerHoldsPlainPointers) {
    const fakehost::FakeHost host;
    const MfDriverManager sut;
    EXPECT_TRUE((std::same_as<decltype(sut.m_pModuleHandler), MDMModuleHandler*>));
    EXPECT_TRUE((std::same_as<decltype(sut.m_pFidDistributor), MDMFidDistributor*>));
    EXPECT_TRUE((std::same_as<decltype(sut.m_pConfigDistributor), MDMConfigDistributor*>));
    EXPECT_TRUE((std::same_as<decltype(sut.m_pVirtualPanelIPCI), MDMVirtualPanelIPCI*>));
    EXPECT_TRUE((std::same_as<decltype(sut.m_pPanelConfigIPCI), MDMPanelConfigurationIPCI*>));
    EXPECT_TRUE((std::same_as<decltype(sut.m_pMDMConfigIPCI), MDMConfigurationIPCI*>));
}

TEST(MemberOrder, ModuleHandler) {
    const fakehost::FakeHost host;
    const MDMModuleHandler sut;
    constexpr std::ptrdiff_t list = sizeof(std::list<MDMModuleInfo*>);
    EXPECT_EQ(offsets(sut, sut.m_pPanelState, sut.m_pMidCreator, sut.m_pModuleLoader, sut.m_pModuleChecker,
                      sut.m_pModuleParser, sut.m_modules, sut.m_pLog, sut.m_configurationPath),
              (Offsets{g_word, 2 * g_word, 3 * g_word, 4 * g_word, 5 * g_word, 6 * g_word, 6 * g_word + list,
                       7 * g_word + list}));
}

TEST(MemberOrder, ModuleInfo) {
    const MDMModuleInfo sut;
    EXPECT_EQ(offsets(sut, sut.m_filename, sut.m_type, sut.m_directory, sut.m_description, sut.m_version,
                      sut.m_pdlFile, sut.m_prefix),
              (Offsets{g_word, g_word + g_text, g_word + 2 * g_text, g_word + 3 * g_text, g_word + 4 * g_text,
                       g_word + 5 * g_text, g_word + 6 * g_text}));
    EXPECT_EQ(sizeof sut, static_cast<std::size_t>(g_word + 7 * g_text));
}

TEST(MemberOrder, ModuleLoader) {
    const MDMModuleLoader sut;
    constexpr std::ptrdiff_t map = sizeof(std::map<std::string, void*>);
    EXPECT_EQ(offsets(sut, sut.m_pFidDistributor, sut.m_modules, sut.m_driverIPCIs, sut.m_mfdConfigurations),
              (Offsets{g_word, 2 * g_word, 2 * g_word + map, 2 * g_word + 2 * map}));
}

TEST(MemberOrder, LoaderInfo) {
    const MDMMfLoaderInfo sut;
    EXPECT_EQ(offsets(sut, sut.m_type, sut.m_directory, sut.m_interfaceType, sut.m_pComInterface),
              (Offsets{g_word, g_word + g_text, g_word + 2 * g_text, 2 * g_word + 2 * g_text}));
    EXPECT_EQ(sizeof sut, static_cast<std::size_t>(3 * g_word + 2 * g_text));
}

TEST(MemberOrder, DriverProxy) {
    const fakehost::FakeHost host;
    const MDMDriverIPCI sut("", "");
    const Offsets found =
        offsets(sut, sut.m_laQueue, sut.m_moduleFileName, sut.m_driverID, sut.m_pIPanelState,
                sut.m_pIDistributorFID, sut.m_pISystem, sut.m_inQueue, sut.m_outQueue, sut.m_running);
    EXPECT_TRUE(std::is_sorted(found.begin(), found.end()));
    EXPECT_EQ(found.front(), static_cast<std::ptrdiff_t>(2 * g_word + sizeof(sal::Thread)));
    EXPECT_TRUE((std::same_as<decltype(sut.m_laQueue), std::list<MDMDriverIPCI::QueueCmd>>));
}

TEST(MemberOrder, PendingPanelCall) {
    const MDMDriverIPCI::QueueCmd sut;
    EXPECT_EQ(offsets(sut, sut.name, sut.cmdType, sut.strValue, sut.numValue),
              (Offsets{0, g_text, g_text + g_word, 2 * g_text + g_word}));
    EXPECT_EQ(sizeof sut.numValue, 4u);
    EXPECT_TRUE((std::same_as<decltype(sut.cmdType), int>));
}

TEST(MemberOrder, Distributor) {
    const fakehost::FakeHost host;
    const MDMFidDistributor sut;
    constexpr std::ptrdiff_t map = sizeof(std::map<std::string, void*>);
    EXPECT_EQ(offsets(sut, sut.m_ports, sut.m_pPanelState, sut.m_pSystem, sut.m_pMacroSystem, sut.m_pLog),
              (Offsets{3 * g_word, 3 * g_word + map, 4 * g_word + map, 5 * g_word + map, 6 * g_word + map}));
}

TEST(MemberOrder, DriverPort) {
    const MDMMainframeDriverPort sut;
    EXPECT_EQ(offsets(sut, sut.m_pFunctionID, sut.m_pPanelState, sut.m_driverID),
              (Offsets{2 * g_word, 3 * g_word, 4 * g_word}));
}

TEST(MemberOrder, EndpointsHoldOnePointer) {
    const MDMVirtualPanelIPCI virtualPanel;
    EXPECT_EQ(offsets(virtualPanel, virtualPanel.m_pDistributorFID), (Offsets{g_word}));
    EXPECT_EQ(sizeof virtualPanel, 2u * g_word);
    const MDMConfigurationIPCI configuration;
    EXPECT_EQ(offsets(configuration, configuration.m_pMDMConfiguration), (Offsets{g_word}));
    EXPECT_EQ(sizeof configuration, 2u * g_word);
    const FIDSegmentPointer segment;
    EXPECT_EQ(offsets(segment, segment.m_pSegment), (Offsets{g_word}));
    EXPECT_EQ(sizeof segment, 2u * g_word);
}

TEST(MemberOrder, ClassesWithoutDataHoldNone) {
    EXPECT_EQ(sizeof(MDMFidCreator), static_cast<std::size_t>(g_word));
    EXPECT_EQ(sizeof(MDMModuleChecker), static_cast<std::size_t>(g_word));
    EXPECT_EQ(sizeof(MDMModuleParser), static_cast<std::size_t>(g_word));
    EXPECT_EQ(sizeof(MDMPanelConfigurationIPCI), static_cast<std::size_t>(g_word));
    EXPECT_EQ(sizeof(MDMConfigDistributor), static_cast<std::size_t>(2 * g_word));
}
