// What host and drivers compile against: arguments, results and const of each operation, bases of each class,
// and which operations are virtual.

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <list>
#include <string>
#include <type_traits>

#include "FIDParameterList.h"
#include "IConfigState.h"
#include "IDistributorFID.h"
#include "IFunctionID.h"
#include "IMDMConfiguration.h"
#include "IMDMStatus.h"
#include "IMFDConfiguration.h"
#include "IMfDriverConfig.h"
#include "IPanelState.h"
#include "ISystem.h"
#include "MDMConfigDistributor.h"
#include "MDMConfigurationIPCI.h"
#include "MDMFidCreator.h"
#include "MDMFidDistributor.h"
#include "MDMModuleChecker.h"
#include "MDMModuleHandler.h"
#include "MDMModuleInfo.h"
#include "MDMModuleParser.h"
#include "MDMPanelConfigurationIPCI.h"
#include "MfDriverManager.h"
#include "Operation.h"
#include "sal/CmdProcessor.h"
#include "sal/CmdRegisterImpl.h"
#include "sal/Module.h"

namespace {

using Text = const std::string&;
using Parameters = const FIDParameterList&;

}  // namespace

TEST(Signature, Interface) {
    EXPECT_TRUE((has<IInterface* (IInterface::*)(unsigned int)>(&IInterface::queryInterface)));
    EXPECT_TRUE(std::has_virtual_destructor_v<IInterface>);
    EXPECT_TRUE(std::is_abstract_v<IInterface>);
}

TEST(Signature, PanelState) {
    EXPECT_TRUE((has<void (IPanelState::*)(Text, Text)>(&IPanelState::setStateValue)));
    EXPECT_TRUE((has<void (IPanelState::*)(Text, float)>(&IPanelState::setStateValueFloat)));
    EXPECT_TRUE((has<void (IPanelState::*)(Text, int)>(&IPanelState::setStateValueInt)));
    EXPECT_TRUE((has<void (IPanelState::*)(Text, bool)>(&IPanelState::setStateValueBool)));
    EXPECT_TRUE((has<void (IPanelState::*)(Text)>(&IPanelState::unsetStateValue)));
    EXPECT_TRUE((has<void (IPanelState::*)(Text, Text)>(&IPanelState::triggerEvent)));
    EXPECT_TRUE(std::is_abstract_v<IPanelState>);
}

TEST(Signature, FunctionID) {
    EXPECT_TRUE((has<bool (IFunctionID::*)(Text, Parameters) const>(&IFunctionID::sendFID)));
    EXPECT_TRUE((has<bool (IFunctionID::*)(Text) const>(&IFunctionID::subscribe)));
    EXPECT_TRUE((has<bool (IFunctionID::*)() const>(&IFunctionID::showState)));
    EXPECT_TRUE(std::is_abstract_v<IFunctionID>);
}

TEST(Signature, DistributorFID) {
    EXPECT_TRUE((has<void (IDistributorFID::*)(Text, Parameters) const>(&IDistributorFID::dispatchFID)));
    EXPECT_TRUE(std::is_abstract_v<IDistributorFID>);
}

TEST(Signature, DriverConfiguration) {
    EXPECT_TRUE((has<bool (IMFDConfiguration::*)(int, Text, Text, Text, Text, Text, Text)>(
        &IMFDConfiguration::setConfiguration)));
    EXPECT_TRUE((has<void (IMFDConfiguration::*)(IPanelState*)>(&IMFDConfiguration::setPanelStateInterface)));
    EXPECT_TRUE(
        (has<void (IMFDConfiguration::*)(IDistributorFID*)>(&IMFDConfiguration::setDistributorFIDInterface)));
    EXPECT_TRUE((has<void (IMFDConfiguration::*)(ISystem*)>(&IMFDConfiguration::setSystemInterface)));
    EXPECT_TRUE((has<bool (IMFDConfiguration::*)()>(&IMFDConfiguration::initializationCompleted)));
    EXPECT_TRUE((has<bool (IMFDConfiguration::*)()>(&IMFDConfiguration::deinitialize)));
    EXPECT_TRUE((has<bool (IMFDConfiguration::*)()>(&IMFDConfiguration::createFIDList)));
    EXPECT_TRUE(std::is_abstract_v<IMFDConfiguration>);
}

TEST(Signature, ManagerConfiguration) {
    EXPECT_TRUE((has<void (IMDMConfiguration::*)(Text)>(&IMDMConfiguration::searchMfDriver)));
    EXPECT_TRUE((has<bool (IMDMConfiguration::*)(int, Text, Text, Text, Text, Text, Text, EInterfaceTypes)>(
        &IMDMConfiguration::startMfDriver)));
    EXPECT_TRUE((has<bool (IMDMConfiguration::*)(Text)>(&IMDMConfiguration::startMfDrivers)));
    EXPECT_TRUE((has<bool (IMDMConfiguration::*)(Text)>(&IMDMConfiguration::reloadMfDriver)));
    EXPECT_TRUE(
        (has<std::string (IMDMConfiguration::*)(std::string&) const>(&IMDMConfiguration::getPDLFilename)));
    EXPECT_TRUE(std::is_abstract_v<IMDMConfiguration>);
}

TEST(Signature, EndpointInterfaces) {
    EXPECT_TRUE((has<void (IMDMStatus::*)() const>(&IMDMStatus::statusMfDriver)));
    EXPECT_TRUE((has<void (IMfDriverConfig::*)() const>(&IMfDriverConfig::assignModule)));
    EXPECT_TRUE((has<void (IConfigState::*)() const>(&IConfigState::setGlobalColor)));
    EXPECT_TRUE(std::is_abstract_v<IMDMStatus>);
    EXPECT_TRUE(std::is_abstract_v<IMfDriverConfig>);
    EXPECT_TRUE(std::is_abstract_v<IConfigState>);
}

TEST(Signature, Endpoints) {
    EXPECT_TRUE((has<void (MDMConfigurationIPCI::*)() const>(&MDMConfigurationIPCI::statusMfDriver)));
    EXPECT_TRUE((has<void (MDMConfigDistributor::*)() const>(&MDMConfigDistributor::assignModule)));
    EXPECT_TRUE((has<void (MDMConfigDistributor::*)() const>(&MDMConfigDistributor::setGlobalColor)));
    EXPECT_TRUE((std::is_base_of_v<IMDMStatus, MDMConfigurationIPCI>));
    EXPECT_TRUE((std::is_base_of_v<IMfDriverConfig, MDMConfigDistributor>));
    EXPECT_TRUE((std::is_base_of_v<IConfigState, MDMConfigDistributor>));
    EXPECT_TRUE(std::is_default_constructible_v<MDMPanelConfigurationIPCI>);
}

TEST(Signature, DriverManager) {
    EXPECT_TRUE((std::is_base_of_v<IInterface, MfDriverManager>));
    EXPECT_TRUE(std::is_default_constructible_v<MfDriverManager>);
    EXPECT_TRUE((has<IInterface* (MfDriverManager::*)(unsigned int)>(&MfDriverManager::queryInterface)));
    EXPECT_TRUE((has<void (MfDriverManager::*)()>(&MfDriverManager::dontStartMFDs)));
    EXPECT_TRUE((has<void (MfDriverManager::*)()>(&MfDriverManager::init)));
    EXPECT_TRUE((has<void (MfDriverManager::*)(ISystem*)>(&MfDriverManager::setSystemInterface)));
    EXPECT_TRUE(
        (has<void (MfDriverManager::*)(IPanelState*)>(&MfDriverManager::setVirtualPanelStateInterface)));
    EXPECT_TRUE((has<void (MfDriverManager::*)()>(&MfDriverManager::onMfDriversStarted)));
    EXPECT_TRUE((has<void (MfDriverManager::*)()>(&MfDriverManager::showModules)));
    EXPECT_TRUE((std::is_same_v<decltype(g_debugStartMFDProcess), bool>));
}

TEST(Signature, DriverManagersOtherOperationsAreNotVirtual) {
    EXPECT_FALSE(isVirtual(&MfDriverManager::dontStartMFDs));
    EXPECT_FALSE(isVirtual(&MfDriverManager::init));
    EXPECT_FALSE(isVirtual(&MfDriverManager::setSystemInterface));
    EXPECT_FALSE(isVirtual(&MfDriverManager::setVirtualPanelStateInterface));
    EXPECT_FALSE(isVirtual(&MfDriverManager::onMfDriversStarted));
    EXPECT_FALSE(isVirtual(&MfDriverManager::showModules));
}

TEST(Signature, ModuleHandler) {
    EXPECT_TRUE((std::is_base_of_v<IMDMConfiguration, MDMModuleHandler>));
    EXPECT_TRUE(std::is_default_constructible_v<MDMModuleHandler>);
    EXPECT_TRUE((has<void (MDMModuleHandler::*)()>(&MDMModuleHandler::init)));
    EXPECT_TRUE((has<void (MDMModuleHandler::*)(MDMFidDistributor*)>(&MDMModuleHandler::setFidDistributor)));
    EXPECT_TRUE((has<sal::Module* (MDMModuleHandler::*)(Text)>(&MDMModuleHandler::getModule)));
    EXPECT_TRUE((has<void (MDMModuleHandler::*)()>(&MDMModuleHandler::showModules)));
    EXPECT_TRUE((has<bool (MDMModuleHandler::*)(int, TiXmlNode*, MDMModuleInfo*&)>(
        &MDMModuleHandler::parseMainframeDriver)));
    EXPECT_TRUE((std::is_base_of_v<IInterface, sal::Module>));
}

TEST(Signature, ModuleHandlersOtherOperationsAreNotVirtual) {
    EXPECT_FALSE(isVirtual(&MDMModuleHandler::init));
    EXPECT_FALSE(isVirtual(&MDMModuleHandler::setFidDistributor));
    EXPECT_FALSE(isVirtual(&MDMModuleHandler::getModule));
    EXPECT_FALSE(isVirtual(&MDMModuleHandler::showModules));
    EXPECT_FALSE(isVirtual(&MDMModuleHandler::parseMainframeDriver));
    EXPECT_FALSE(isVirtual(&MDMModuleHandler::shellCmdReloadDriver));
    EXPECT_FALSE(isVirtual(&MDMModuleHandler::shellCmdScanDirectory));
    EXPECT_FALSE(isVirtual(&MDMModuleHandler::shellCmdListAvailables));
    EXPECT_FALSE(isVirtual(&MDMModuleHandler::shellCmdLoadDriver));
}

TEST(Signature, CommandFunctions) {
    using OfHandler = bool (MDMModuleHandler::*)(sal::CmdParameters&);
    EXPECT_TRUE(has<OfHandler>(&MDMModuleHandler::shellCmdReloadDriver));
    EXPECT_TRUE(has<OfHandler>(&MDMModuleHandler::shellCmdScanDirectory));
    EXPECT_TRUE(has<OfHandler>(&MDMModuleHandler::shellCmdListAvailables));
    EXPECT_TRUE(has<OfHandler>(&MDMModuleHandler::shellCmdLoadDriver));
    using OfDistributor = bool (MDMFidDistributor::*)(sal::CmdParameters&);
    EXPECT_TRUE(has<OfDistributor>(&MDMFidDistributor::shellCmdSetStateValue));
    EXPECT_TRUE(has<OfDistributor>(&MDMFidDistributor::shellCmdUnsetStateValue));
    EXPECT_TRUE(has<OfDistributor>(&MDMFidDistributor::shellCmdTriggerEvent));
    EXPECT_TRUE(has<OfDistributor>(&MDMFidDistributor::shellCmdSendFID));
    EXPECT_TRUE(has<OfDistributor>(&MDMFidDistributor::shellCmdListDrivers));
}

TEST(Signature, CommandRecord) {
    using Record = sal::CmdRegisterImpl<MDMModuleHandler>;
    EXPECT_TRUE((std::is_base_of_v<sal::CmdRegister, Record>));
    EXPECT_TRUE(std::is_abstract_v<sal::CmdRegister>);
    EXPECT_TRUE(std::has_virtual_destructor_v<sal::CmdRegister>);
    EXPECT_TRUE((has<bool (sal::CmdRegister::*)(sal::CmdParameters&)>(&sal::CmdRegister::call)));
    EXPECT_TRUE((has<bool (Record::*)(sal::CmdParameters&)>(&Record::call)));
    EXPECT_TRUE((has<void (sal::CmdProcessor::*)(sal::CmdRegister*)>(&sal::CmdProcessor::registerCmd)));
}

TEST(Signature, ModuleParser) {
    using Modules = std::list<MDMModuleInfo*>&;
    EXPECT_TRUE(std::is_default_constructible_v<MDMModuleParser>);
    EXPECT_TRUE((has<void (MDMModuleParser::*)(Modules, Text) const>(&MDMModuleParser::parseDirectory)));
    EXPECT_TRUE((has<void (MDMModuleParser::*)(Modules, Text, Text) const>(&MDMModuleParser::parseXML)));
    EXPECT_TRUE(
        (has<bool (MDMModuleParser::*)(Modules, TiXmlNode*, Text) const>(&MDMModuleParser::parseModuleType)));
    EXPECT_FALSE(isVirtual(&MDMModuleParser::parseDirectory));
    EXPECT_FALSE(isVirtual(&MDMModuleParser::parseXML));
    EXPECT_FALSE(isVirtual(&MDMModuleParser::parseModuleType));
}

TEST(Signature, ModuleInfosSetters) {
    using Setter = void (MDMModuleInfo::*)(Text);
    EXPECT_TRUE(has<Setter>(&MDMModuleInfo::setMFDriverFilename));
    EXPECT_TRUE(has<Setter>(&MDMModuleInfo::setMFDriverType));
    EXPECT_TRUE(has<Setter>(&MDMModuleInfo::setMFDriverDirectory));
    EXPECT_TRUE(has<Setter>(&MDMModuleInfo::setMfDriverDescription));
    EXPECT_TRUE(has<Setter>(&MDMModuleInfo::setMfDriverVersion));
    EXPECT_TRUE(has<Setter>(&MDMModuleInfo::setMfDriverPDLFile));
    EXPECT_TRUE(has<Setter>(&MDMModuleInfo::setMfDriverPrefix));
}

TEST(Signature, ModuleInfosAccessors) {
    using Accessor = Text (MDMModuleInfo::*)() const;
    EXPECT_TRUE(has<Accessor>(&MDMModuleInfo::getMFDriverFilename));
    EXPECT_TRUE(has<Accessor>(&MDMModuleInfo::getMFDriverType));
    EXPECT_TRUE(has<Accessor>(&MDMModuleInfo::getMFDriverDirectory));
    EXPECT_TRUE(has<Accessor>(&MDMModuleInfo::getMfDriverDescription));
    EXPECT_TRUE(has<Accessor>(&MDMModuleInfo::getMfDriverVersion));
    EXPECT_TRUE(has<Accessor>(&MDMModuleInfo::getMfDriverPDLFile));
    EXPECT_TRUE(has<Accessor>(&MDMModuleInfo::getMfDriverPrefix));
}

TEST(Signature, ModuleInfo) {
    EXPECT_TRUE(std::is_default_constructible_v<MDMModuleInfo>);
    EXPECT_FALSE((std::is_base_of_v<IInterface, MDMModuleInfo>));
    EXPECT_TRUE((has<bool (MDMModuleInfo::*)(Text, Text) const>(&MDMModuleInfo::compareString)));
    EXPECT_TRUE((has<void (MDMModuleInfo::*)() const>(&MDMModuleInfo::showState)));
    EXPECT_FALSE(isVirtual(&MDMModuleInfo::compareString));
    EXPECT_FALSE(isVirtual(&MDMModuleInfo::showState));
    EXPECT_FALSE(isVirtual(&MDMModuleInfo::setMFDriverFilename));
    EXPECT_FALSE(isVirtual(&MDMModuleInfo::getMFDriverFilename));
}

TEST(Signature, PlaceholdersAreNoInterfaces) {
    EXPECT_FALSE((std::is_base_of_v<IInterface, MDMFidCreator>));
    EXPECT_FALSE((std::is_base_of_v<IInterface, MDMModuleChecker>));
    EXPECT_FALSE((std::is_base_of_v<IInterface, MDMModuleParser>));
    EXPECT_FALSE((std::is_base_of_v<IInterface, MDMPanelConfigurationIPCI>));
    EXPECT_TRUE(std::is_default_constructible_v<MDMFidCreator>);
    EXPECT_TRUE(std::is_default_constructible_v<MDMModuleChecker>);
}

TEST(Signature, ParameterList) {
    EXPECT_TRUE((has<void (FIDParameterList::*)(Text, Text)>(&FIDParameterList::add)));
    EXPECT_TRUE((has<int (FIDParameterList::*)(char*, int) const>(&FIDParameterList::serialize)));
}
