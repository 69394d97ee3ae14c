// The binary contract between host, module and drivers: where each operation stands in its class's virtual
// table, in which order the bases lie, and the numbers of identifiers and interface types. Slots 0 and 1 are
// the two destructors.

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>

#include "EInterfaceTypes.h"
#include "IConfigState.h"
#include "IDistributorFID.h"
#include "IFunctionID.h"
#include "IMDMConfiguration.h"
#include "IMDMStatus.h"
#include "IMFDConfiguration.h"
#include "IMacroSystem.h"
#include "IMfDriverConfig.h"
#include "IPanelMFD.h"
#include "IPanelSettings.h"
#include "IPanelState.h"
#include "ISystem.h"
#include "InterfaceIds.h"
#include "MDMConfigDistributor.h"
#include "MDMConfigurationIPCI.h"
#include "MDMDriverIPCI.h"
#include "MDMFidDistributor.h"
#include "MDMMainframeDriverPort.h"
#include "MDMModuleHandler.h"
#include "MDMVirtualPanelIPCI.h"
#include "MfDriverManager.h"
#include "sal/CmdRegisterImpl.h"
#include "sal/Module.h"

namespace {

/// Where the compiler finds a virtual operation; -1 for one that is not virtual. A pointer to a virtual
/// member holds the byte offset into the virtual table, marked by an odd number.
template <class Operation>
int slotOf(Operation operation) {
    static_assert(sizeof(operation) == 2 * sizeof(std::intptr_t));
    std::intptr_t words[2];
    std::memcpy(words, &operation, sizeof words);
#ifdef __aarch64__
    return (words[1] & 1) != 0 ? static_cast<int>(words[0] / static_cast<int>(sizeof(void*))) : -1;
#else
    return (words[0] & 1) != 0 ? static_cast<int>((words[0] - 1) / static_cast<int>(sizeof(void*))) : -1;
#endif
}

/// Distance of a base from the beginning of its class, without an object.
template <class Base, class Class>
std::ptrdiff_t offsetOf() {
    // Any non-null address serves: a non-virtual base lies at a fixed distance.
    auto* pObject = reinterpret_cast<Class*>(std::uintptr_t{0x10000});
    return reinterpret_cast<char*>(static_cast<Base*>(pObject)) - reinterpret_cast<char*>(pObject);
}

/// A base that is not virtual can be cast down again without asking the object.
template <class T>
concept DerivesNonVirtually = requires(IInterface* pInterface) {
    static_cast<T*>(pInterface);
};

constexpr std::ptrdiff_t g_pointer = sizeof(void*);

}  // namespace

TEST(Abi, InterfaceBeginsWithQueryInterface) {
    EXPECT_EQ(slotOf(&IInterface::queryInterface), 2);
}

TEST(Abi, PanelStateSlots) {
    EXPECT_EQ(slotOf(&IPanelState::queryInterface), 2);
    EXPECT_EQ(slotOf(&IPanelState::setStateValue), 3);
    EXPECT_EQ(slotOf(&IPanelState::setStateValueFloat), 4);
    EXPECT_EQ(slotOf(&IPanelState::setStateValueInt), 5);
    EXPECT_EQ(slotOf(&IPanelState::setStateValueBool), 6);
    EXPECT_EQ(slotOf(&IPanelState::unsetStateValue), 7);
    EXPECT_EQ(slotOf(&IPanelState::triggerEvent), 8);
}

TEST(Abi, FunctionIDSlots) {
    EXPECT_EQ(slotOf(&IFunctionID::queryInterface), 2);
    EXPECT_EQ(slotOf(&IFunctionID::sendFID), 3);
    EXPECT_EQ(slotOf(&IFunctionID::subscribe), 4);
    EXPECT_EQ(slotOf(&IFunctionID::showState), 5);
}

TEST(Abi, DistributorFIDSlots) {
    EXPECT_EQ(slotOf(&IDistributorFID::dispatchFID), 3);
}

TEST(Abi, DriverConfigurationSlots) {
    EXPECT_EQ(slotOf(&IMFDConfiguration::setConfiguration), 3);
    EXPECT_EQ(slotOf(&IMFDConfiguration::setPanelStateInterface), 4);
    EXPECT_EQ(slotOf(&IMFDConfiguration::setDistributorFIDInterface), 5);
    EXPECT_EQ(slotOf(&IMFDConfiguration::setSystemInterface), 6);
    EXPECT_EQ(slotOf(&IMFDConfiguration::initializationCompleted), 7);
    EXPECT_EQ(slotOf(&IMFDConfiguration::deinitialize), 8);
    EXPECT_EQ(slotOf(&IMFDConfiguration::createFIDList), 9);
}

TEST(Abi, ManagerConfigurationSlots) {
    EXPECT_EQ(slotOf(&IMDMConfiguration::searchMfDriver), 3);
    EXPECT_EQ(slotOf(&IMDMConfiguration::startMfDriver), 4);
    EXPECT_EQ(slotOf(&IMDMConfiguration::startMfDrivers), 5);
    EXPECT_EQ(slotOf(&IMDMConfiguration::reloadMfDriver), 6);
    EXPECT_EQ(slotOf(&IMDMConfiguration::getPDLFilename), 7);
}

TEST(Abi, StatusAndConfigurationEndpointSlots) {
    EXPECT_EQ(slotOf(&IMDMStatus::statusMfDriver), 3);
    EXPECT_EQ(slotOf(&IMfDriverConfig::assignModule), 3);
    EXPECT_EQ(slotOf(&IConfigState::setGlobalColor), 3);
    EXPECT_EQ(slotOf(&MDMConfigDistributor::queryInterface), 2);
    EXPECT_EQ(slotOf(&MDMConfigDistributor::assignModule), 3);
    EXPECT_EQ(slotOf(&MDMConfigDistributor::setGlobalColor), 4);
}

TEST(Abi, SystemCommandIsTheFirstOperation) {
    EXPECT_EQ(slotOf(&ISystem::executeCommand), 3);
}

TEST(Abi, MacroNotificationIsTheFourteenthOperation) {
    EXPECT_EQ(slotOf(&IMacroSystem::startRecording), 2 + 1);
    EXPECT_EQ(slotOf(&IMacroSystem::stopRecording), 2 + 2);
    EXPECT_EQ(slotOf(&IMacroSystem::cancelRecording), 2 + 3);
    EXPECT_EQ(slotOf(&IMacroSystem::isRecording), 2 + 4);
    EXPECT_EQ(slotOf(&IMacroSystem::play), 2 + 5);
    EXPECT_EQ(slotOf(&IMacroSystem::stopPlaying), 2 + 6);
    EXPECT_EQ(slotOf(&IMacroSystem::isPlaying), 2 + 7);
    EXPECT_EQ(slotOf(&IMacroSystem::macroNames), 2 + 8);
    EXPECT_EQ(slotOf(&IMacroSystem::macroSteps), 2 + 9);
    EXPECT_EQ(slotOf(&IMacroSystem::remove), 2 + 10);
    EXPECT_EQ(slotOf(&IMacroSystem::rename), 2 + 11);
    EXPECT_EQ(slotOf(&IMacroSystem::load), 2 + 12);
    EXPECT_EQ(slotOf(&IMacroSystem::save), 2 + 13);
    EXPECT_EQ(slotOf(&IMacroSystem::fidDispatched), 2 + 14);
}

TEST(Abi, CommandRecordSlots) {
    EXPECT_EQ(slotOf(&sal::CmdRegister::call), 2);
    EXPECT_EQ(slotOf(&sal::CmdRegisterImpl<MDMFidDistributor>::call), 2);
}

TEST(Abi, ManagerHasQueryInterfaceAlone) {
    EXPECT_EQ(slotOf(&MfDriverManager::queryInterface), 2);
    EXPECT_EQ(slotOf(&MfDriverManager::init), -1);
    EXPECT_EQ(slotOf(&MfDriverManager::onMfDriversStarted), -1);
    EXPECT_EQ(slotOf(&MfDriverManager::showModules), -1);
}

TEST(Abi, DistributorSlots) {
    EXPECT_EQ(slotOf(&MDMFidDistributor::queryInterface), 2);
    EXPECT_EQ(slotOf(&MDMFidDistributor::dispatchFID), 3);
    EXPECT_EQ(slotOf(&MDMFidDistributor::setStateValue), 4);
    EXPECT_EQ(slotOf(&MDMFidDistributor::setStateValueFloat), 5);
    EXPECT_EQ(slotOf(&MDMFidDistributor::setStateValueInt), 6);
    EXPECT_EQ(slotOf(&MDMFidDistributor::setStateValueBool), 7);
    EXPECT_EQ(slotOf(&MDMFidDistributor::unsetStateValue), 8);
    EXPECT_EQ(slotOf(&MDMFidDistributor::triggerEvent), 9);
    EXPECT_EQ(slotOf(&MDMFidDistributor::sendFID), 10);
    EXPECT_EQ(slotOf(&MDMFidDistributor::subscribe), 11);
    EXPECT_EQ(slotOf(&MDMFidDistributor::showState), 12);
}

TEST(Abi, DriverPortSlots) {
    EXPECT_EQ(slotOf(&MDMMainframeDriverPort::queryInterface), 2);
    EXPECT_EQ(slotOf(&MDMMainframeDriverPort::setStateValue), 3);
    EXPECT_EQ(slotOf(&MDMMainframeDriverPort::triggerEvent), 8);
    EXPECT_EQ(slotOf(&MDMMainframeDriverPort::sendFID), 9);
    EXPECT_EQ(slotOf(&MDMMainframeDriverPort::subscribe), 10);
    EXPECT_EQ(slotOf(&MDMMainframeDriverPort::showState), 11);
    EXPECT_EQ(slotOf(&MDMMainframeDriverPort::showPortState), -1);
}

TEST(Abi, VirtualPanelLinkSlots) {
    EXPECT_EQ(slotOf(&MDMVirtualPanelIPCI::setStateValue), 3);
    EXPECT_EQ(slotOf(&MDMVirtualPanelIPCI::triggerEvent), 8);
    EXPECT_EQ(slotOf(&MDMVirtualPanelIPCI::showState), 9);
    EXPECT_EQ(slotOf(&MDMVirtualPanelIPCI::sendTestFID), -1);
}

TEST(Abi, DriverProxySlots) {
    EXPECT_EQ(slotOf(&MDMDriverIPCI::queryInterface), 2);
    EXPECT_EQ(slotOf(&MDMDriverIPCI::sendFID), 3);
    EXPECT_EQ(slotOf(&MDMDriverIPCI::subscribe), 4);
    EXPECT_EQ(slotOf(&MDMDriverIPCI::showState), 5);
    EXPECT_EQ(slotOf(&MDMDriverIPCI::setConfiguration), 6);
    EXPECT_EQ(slotOf(&MDMDriverIPCI::setPanelStateInterface), 7);
    EXPECT_EQ(slotOf(&MDMDriverIPCI::setDistributorFIDInterface), 8);
    EXPECT_EQ(slotOf(&MDMDriverIPCI::setSystemInterface), 9);
    EXPECT_EQ(slotOf(&MDMDriverIPCI::initializationCompleted), 10);
    EXPECT_EQ(slotOf(&MDMDriverIPCI::deinitialize), 11);
    EXPECT_EQ(slotOf(&MDMDriverIPCI::createFIDList), 12);
    EXPECT_EQ(slotOf(&MDMDriverIPCI::run), 13);
    EXPECT_EQ(slotOf(&MDMDriverIPCI::init), -1);
    EXPECT_EQ(slotOf(&MDMDriverIPCI::lookAhead), -1);
    EXPECT_EQ(slotOf(&MDMDriverIPCI::flushLAQueue), -1);
}

TEST(Abi, HandlerSlots) {
    EXPECT_EQ(slotOf(&MDMModuleHandler::queryInterface), 2);
    EXPECT_EQ(slotOf(&MDMModuleHandler::searchMfDriver), 3);
    EXPECT_EQ(slotOf(&MDMModuleHandler::getPDLFilename), 7);
    EXPECT_EQ(slotOf(&MDMModuleHandler::getModule), -1);
    EXPECT_EQ(slotOf(&MDMModuleHandler::shellCmdLoadDriver), -1);
}

TEST(Abi, BasesLieInOrder) {
    EXPECT_EQ((offsetOf<IFunctionID, MDMDriverIPCI>()), 0);
    EXPECT_EQ((offsetOf<IMFDConfiguration, MDMDriverIPCI>()), g_pointer);
    EXPECT_EQ((offsetOf<sal::Thread, MDMDriverIPCI>()), 2 * g_pointer);
    EXPECT_EQ((offsetOf<IDistributorFID, MDMFidDistributor>()), 0);
    EXPECT_EQ((offsetOf<IPanelState, MDMFidDistributor>()), g_pointer);
    EXPECT_EQ((offsetOf<IFunctionID, MDMFidDistributor>()), 2 * g_pointer);
    EXPECT_EQ((offsetOf<IPanelState, MDMMainframeDriverPort>()), 0);
    EXPECT_EQ((offsetOf<IFunctionID, MDMMainframeDriverPort>()), g_pointer);
    EXPECT_EQ((offsetOf<IMfDriverConfig, MDMConfigDistributor>()), 0);
    EXPECT_EQ((offsetOf<IConfigState, MDMConfigDistributor>()), g_pointer);
}

TEST(Abi, ManagerModuleAndMacroSystemDeriveNonVirtually) {
    EXPECT_TRUE(DerivesNonVirtually<MfDriverManager>);
    EXPECT_TRUE(DerivesNonVirtually<sal::Module>);
    EXPECT_TRUE(DerivesNonVirtually<IMacroSystem>);
}

TEST(Abi, EveryOtherInterfaceDerivesVirtually) {
    EXPECT_FALSE(DerivesNonVirtually<IPanelState>);
    EXPECT_FALSE(DerivesNonVirtually<IFunctionID>);
    EXPECT_FALSE(DerivesNonVirtually<IDistributorFID>);
    EXPECT_FALSE(DerivesNonVirtually<IMFDConfiguration>);
    EXPECT_FALSE(DerivesNonVirtually<IMDMConfiguration>);
    EXPECT_FALSE(DerivesNonVirtually<IMDMStatus>);
    EXPECT_FALSE(DerivesNonVirtually<IMfDriverConfig>);
    EXPECT_FALSE(DerivesNonVirtually<IConfigState>);
    EXPECT_FALSE(DerivesNonVirtually<ISystem>);
    EXPECT_FALSE(DerivesNonVirtually<IPanelSettings>);
    EXPECT_FALSE(DerivesNonVirtually<IPanelMFD>);
}

TEST(Abi, IdentifiersKeepTheirNumbers) {
    EXPECT_EQ(IID_IPanelSettings, 1012u);
    EXPECT_EQ(IID_IFunctionID, 1100u);
    EXPECT_EQ(IID_IPanelState, 1101u);
    EXPECT_EQ(IID_IMfDriverConfig, 1102u);
    EXPECT_EQ(IID_IConfigState, 1103u);
    EXPECT_EQ(IID_IMDMConfiguration, 1104u);
    EXPECT_EQ(IID_IMDMStatus, 1105u);
    EXPECT_EQ(IID_IDistributorFID, 1106u);
    EXPECT_EQ(IID_IMacroSystem, 1107u);
    EXPECT_EQ(IID_IPanelMFD, 1109u);
    EXPECT_EQ(IID_IMFDConfiguration, 1201u);
}

TEST(Abi, InterfaceTypesKeepTheirNumbers) {
    EXPECT_EQ(static_cast<int>(EInterfaceTypes::None), 0);
    EXPECT_EQ(static_cast<int>(EInterfaceTypes::Direct), 1);
    EXPECT_EQ(static_cast<int>(EInterfaceTypes::Queue), 2);
    EXPECT_EQ(static_cast<int>(EInterfaceTypes::Socket), 3);
}
