// What the operations on loaded drivers look like to who compiles against them: arguments, results, const,
// static, and which of them are virtual.

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <list>
#include <string>
#include <type_traits>

#include "FIDParameterList.h"
#include "MDMDriverIPCI.h"
#include "MDMFidDistributor.h"
#include "MDMMainframeDriverPort.h"
#include "MDMModuleInfo.h"
#include "MDMModuleLoader.h"
#include "MDMVirtualPanelIPCI.h"
#include "Operation.h"
#include "sal/CmdParameters.h"
#include "sal/Module.h"

namespace {

using Text = const std::string&;
using Parameters = const FIDParameterList&;

/// A base that is not virtual can be cast down again without asking the object.
template <class Base, class Class>
concept IsStaticBase = requires(Base* pBase) {
    static_cast<Class*>(pBase);
};

}  // namespace

TEST(DriverSignature, LoaderOperations) {
    using Sut = MDMModuleLoader;
    EXPECT_TRUE(std::is_default_constructible_v<Sut>);
    EXPECT_TRUE((has<void (Sut::*)(MDMFidDistributor*)>(&Sut::setFidDistributor)));
    EXPECT_TRUE((has<bool (Sut::*)(const std::list<MDMModuleInfo*>&, int, Text, Text, Text, Text, Text, Text,
                                   EInterfaceTypes, MDMModuleInfo*&)>(&Sut::loadMfModule)));
    EXPECT_TRUE(
        (has<bool (Sut::*)(Text, Text, std::string&, std::string&) const>(&Sut::checkAndAddModuleIP)));
    EXPECT_TRUE((has<sal::Module* (Sut::*)(Text)>(&Sut::getModule)));
    EXPECT_TRUE((has<void (Sut::*)(Text)>(&Sut::unLoadMfModule)));
}

TEST(DriverSignature, LoaderIsNoInterfaceAndHasNoVirtualOperations) {
    using Sut = MDMModuleLoader;
    EXPECT_FALSE((std::is_base_of_v<IInterface, Sut>));
    EXPECT_TRUE(std::has_virtual_destructor_v<Sut>);
    EXPECT_FALSE(isVirtual(&Sut::setFidDistributor));
    EXPECT_FALSE(isVirtual(&Sut::loadMfModule));
    EXPECT_FALSE(isVirtual(&Sut::checkAndAddModuleIP));
    EXPECT_FALSE(isVirtual(&Sut::getModule));
    EXPECT_FALSE(isVirtual(&Sut::unLoadMfModule));
}

TEST(DriverSignature, LoaderInfo) {
    using Sut = MDMMfLoaderInfo;
    EXPECT_TRUE(std::is_default_constructible_v<Sut>);
    EXPECT_TRUE(std::has_virtual_destructor_v<Sut>);
    EXPECT_FALSE((std::is_base_of_v<IInterface, Sut>));
    EXPECT_TRUE((has<void (Sut::*)(Text)>(&Sut::setMFDriverType)));
    EXPECT_TRUE((has<void (Sut::*)(Text)>(&Sut::setMFDriverDirectory)));
    EXPECT_TRUE((has<void (Sut::*)(EInterfaceTypes)>(&Sut::setInterfaceType)));
    EXPECT_TRUE((has<void (Sut::*)(IFunctionID*)>(&Sut::setComInterface)));
    EXPECT_FALSE(isVirtual(&Sut::setMFDriverType));
    EXPECT_FALSE(isVirtual(&Sut::setMFDriverDirectory));
    EXPECT_FALSE(isVirtual(&Sut::setInterfaceType));
    EXPECT_FALSE(isVirtual(&Sut::setComInterface));
}

TEST(DriverSignature, ProxyOperations) {
    using Sut = MDMDriverIPCI;
    EXPECT_TRUE((std::is_constructible_v<Sut, Text, Text>));
    EXPECT_FALSE(std::is_default_constructible_v<Sut>);
    EXPECT_TRUE((has<IInterface* (Sut::*)(unsigned int)>(&Sut::queryInterface)));
    EXPECT_TRUE((has<bool (Sut::*)()>(&Sut::init)));
    EXPECT_TRUE((has<bool (Sut::*)(Text, Parameters) const>(&Sut::sendFID)));
    EXPECT_TRUE((has<bool (Sut::*)(Text) const>(&Sut::subscribe)));
    EXPECT_TRUE((has<bool (Sut::*)() const>(&Sut::showState)));
    EXPECT_TRUE((has<bool (Sut::*)(int, Text, Text, Text, Text, Text, Text)>(&Sut::setConfiguration)));
    EXPECT_TRUE((has<void (Sut::*)(IPanelState*)>(&Sut::setPanelStateInterface)));
    EXPECT_TRUE((has<void (Sut::*)(IDistributorFID*)>(&Sut::setDistributorFIDInterface)));
    EXPECT_TRUE((has<void (Sut::*)(ISystem*)>(&Sut::setSystemInterface)));
    EXPECT_TRUE((has<bool (Sut::*)()>(&Sut::initializationCompleted)));
    EXPECT_TRUE((has<bool (Sut::*)()>(&Sut::deinitialize)));
    EXPECT_TRUE((has<bool (Sut::*)()>(&Sut::createFIDList)));
    EXPECT_TRUE((has<void (Sut::*)()>(&Sut::run)));
    EXPECT_TRUE((has<void (Sut::*)(const Sut::QueueCmd&)>(&Sut::lookAhead)));
    EXPECT_TRUE((has<void (Sut::*)()>(&Sut::flushLAQueue)));
}

TEST(DriverSignature, ProxysQueueWaitNeedsNoObject) {
    EXPECT_TRUE((std::is_same_v<decltype(&MDMDriverIPCI::waitForQueues), void (*)(Text)>));
}

TEST(DriverSignature, ProxyHasThreeBasesAndOneInterfacePart) {
    EXPECT_TRUE((std::is_convertible_v<MDMDriverIPCI*, IFunctionID*>));
    EXPECT_TRUE((std::is_convertible_v<MDMDriverIPCI*, IMFDConfiguration*>));
    EXPECT_TRUE((std::is_convertible_v<MDMDriverIPCI*, sal::Thread*>));
    EXPECT_TRUE((std::is_convertible_v<MDMDriverIPCI*, IInterface*>));
    EXPECT_FALSE((IsStaticBase<IInterface, MDMDriverIPCI>));
    EXPECT_TRUE(std::has_virtual_destructor_v<MDMDriverIPCI>);
}

TEST(DriverSignature, PendingCallKinds) {
    using Command = MDMDriverIPCI::QueueCmd;
    EXPECT_EQ(static_cast<int>(Command::Unset), 0);
    EXPECT_EQ(static_cast<int>(Command::SetString), 1);
    EXPECT_EQ(static_cast<int>(Command::SetInt), 2);
    EXPECT_EQ(static_cast<int>(Command::SetFloat), 3);
    EXPECT_EQ(static_cast<int>(Command::SetBool), 4);
    EXPECT_EQ(static_cast<int>(Command::Trigger), 5);
    EXPECT_TRUE((std::is_same_v<decltype(Command::name), std::string>));
    EXPECT_TRUE((std::is_same_v<decltype(Command::strValue), std::string>));
}

TEST(DriverSignature, DistributorOperations) {
    using Sut = MDMFidDistributor;
    EXPECT_TRUE(std::is_default_constructible_v<Sut>);
    EXPECT_TRUE((has<IInterface* (Sut::*)(unsigned int)>(&Sut::queryInterface)));
    EXPECT_TRUE((has<void (Sut::*)(Text, Parameters) const>(&Sut::dispatchFID)));
    EXPECT_TRUE((has<void (Sut::*)(Text, Text)>(&Sut::setStateValue)));
    EXPECT_TRUE((has<void (Sut::*)(Text, float)>(&Sut::setStateValueFloat)));
    EXPECT_TRUE((has<void (Sut::*)(Text, int)>(&Sut::setStateValueInt)));
    EXPECT_TRUE((has<void (Sut::*)(Text, bool)>(&Sut::setStateValueBool)));
    EXPECT_TRUE((has<void (Sut::*)(Text)>(&Sut::unsetStateValue)));
    EXPECT_TRUE((has<void (Sut::*)(Text, Text)>(&Sut::triggerEvent)));
    EXPECT_TRUE((has<bool (Sut::*)(Text, Parameters) const>(&Sut::sendFID)));
    EXPECT_TRUE((has<bool (Sut::*)(Text) const>(&Sut::subscribe)));
    EXPECT_TRUE((has<bool (Sut::*)() const>(&Sut::showState)));
    EXPECT_TRUE((has<IPanelState* (Sut::*)(Text, IFunctionID*)>(&Sut::addDriverPort)));
    EXPECT_TRUE((has<void (Sut::*)()>(&Sut::showUsedModules)));
}

TEST(DriverSignature, DistributorsOtherOperationsAreNotVirtual) {
    using Sut = MDMFidDistributor;
    EXPECT_FALSE(isVirtual(&Sut::addDriverPort));
    EXPECT_FALSE(isVirtual(&Sut::showUsedModules));
    EXPECT_FALSE(isVirtual(&Sut::shellCmdSetStateValue));
    EXPECT_FALSE(isVirtual(&Sut::shellCmdUnsetStateValue));
    EXPECT_FALSE(isVirtual(&Sut::shellCmdTriggerEvent));
    EXPECT_FALSE(isVirtual(&Sut::shellCmdSendFID));
    EXPECT_FALSE(isVirtual(&Sut::shellCmdListDrivers));
}

TEST(DriverSignature, DistributorsCommandFunctions) {
    using Handler = bool (MDMFidDistributor::*)(sal::CmdParameters&);
    EXPECT_TRUE(has<Handler>(&MDMFidDistributor::shellCmdSetStateValue));
    EXPECT_TRUE(has<Handler>(&MDMFidDistributor::shellCmdUnsetStateValue));
    EXPECT_TRUE(has<Handler>(&MDMFidDistributor::shellCmdTriggerEvent));
    EXPECT_TRUE(has<Handler>(&MDMFidDistributor::shellCmdSendFID));
    EXPECT_TRUE(has<Handler>(&MDMFidDistributor::shellCmdListDrivers));
}

TEST(DriverSignature, DistributorHasThreeBasesAndOneInterfacePart) {
    EXPECT_TRUE((std::is_convertible_v<MDMFidDistributor*, IDistributorFID*>));
    EXPECT_TRUE((std::is_convertible_v<MDMFidDistributor*, IPanelState*>));
    EXPECT_TRUE((std::is_convertible_v<MDMFidDistributor*, IFunctionID*>));
    EXPECT_TRUE((std::is_convertible_v<MDMFidDistributor*, IInterface*>));
    EXPECT_FALSE((IsStaticBase<IInterface, MDMFidDistributor>));
}

TEST(DriverSignature, SegmentPointers) {
    EXPECT_TRUE(std::has_virtual_destructor_v<SegmentPointerBase>);
    EXPECT_TRUE(std::has_virtual_destructor_v<FIDSegmentPointer>);
    EXPECT_TRUE((IsStaticBase<SegmentPointerBase, FIDSegmentPointer>));
    EXPECT_FALSE((std::is_base_of_v<IInterface, FIDSegmentPointer>));
}

TEST(DriverSignature, PortOperations) {
    using Sut = MDMMainframeDriverPort;
    EXPECT_TRUE(std::is_default_constructible_v<Sut>);
    EXPECT_TRUE((std::is_constructible_v<Sut, Text>));
    EXPECT_TRUE((has<IInterface* (Sut::*)(unsigned int)>(&Sut::queryInterface)));
    EXPECT_TRUE((has<void (Sut::*)(Text, Text)>(&Sut::setStateValue)));
    EXPECT_TRUE((has<void (Sut::*)(Text, float)>(&Sut::setStateValueFloat)));
    EXPECT_TRUE((has<void (Sut::*)(Text, int)>(&Sut::setStateValueInt)));
    EXPECT_TRUE((has<void (Sut::*)(Text, bool)>(&Sut::setStateValueBool)));
    EXPECT_TRUE((has<void (Sut::*)(Text)>(&Sut::unsetStateValue)));
    EXPECT_TRUE((has<void (Sut::*)(Text, Text)>(&Sut::triggerEvent)));
    EXPECT_TRUE((has<bool (Sut::*)(Text, Parameters) const>(&Sut::sendFID)));
    EXPECT_TRUE((has<bool (Sut::*)(Text) const>(&Sut::subscribe)));
    EXPECT_TRUE((has<bool (Sut::*)() const>(&Sut::showState)));
    EXPECT_TRUE((has<void (Sut::*)() const>(&Sut::showPortState)));
    EXPECT_FALSE(isVirtual(&Sut::showPortState));
}

TEST(DriverSignature, PortHasTwoBasesAndOneInterfacePart) {
    EXPECT_TRUE((std::is_convertible_v<MDMMainframeDriverPort*, IPanelState*>));
    EXPECT_TRUE((std::is_convertible_v<MDMMainframeDriverPort*, IFunctionID*>));
    EXPECT_TRUE((std::is_convertible_v<MDMMainframeDriverPort*, IInterface*>));
    EXPECT_FALSE((IsStaticBase<IInterface, MDMMainframeDriverPort>));
    EXPECT_FALSE((std::is_base_of_v<IDistributorFID, MDMMainframeDriverPort>));
}

TEST(DriverSignature, VirtualPanelOperations) {
    using Sut = MDMVirtualPanelIPCI;
    EXPECT_TRUE(std::is_default_constructible_v<Sut>);
    EXPECT_TRUE((has<IInterface* (Sut::*)(unsigned int)>(&Sut::queryInterface)));
    EXPECT_TRUE((has<void (Sut::*)(Text, Text)>(&Sut::setStateValue)));
    EXPECT_TRUE((has<void (Sut::*)(Text, float)>(&Sut::setStateValueFloat)));
    EXPECT_TRUE((has<void (Sut::*)(Text, int)>(&Sut::setStateValueInt)));
    EXPECT_TRUE((has<void (Sut::*)(Text, bool)>(&Sut::setStateValueBool)));
    EXPECT_TRUE((has<void (Sut::*)(Text)>(&Sut::unsetStateValue)));
    EXPECT_TRUE((has<void (Sut::*)(Text, Text)>(&Sut::triggerEvent)));
    EXPECT_TRUE((has<void (Sut::*)() const>(&Sut::showState)));
    EXPECT_TRUE((has<void (Sut::*)(Text, Parameters) const>(&Sut::sendTestFID)));
    EXPECT_TRUE(isVirtual(&Sut::showState));
    EXPECT_FALSE(isVirtual(&Sut::sendTestFID));
}

TEST(DriverSignature, VirtualPanelIsAPanelStateAndNothingElse) {
    EXPECT_TRUE((std::is_convertible_v<MDMVirtualPanelIPCI*, IPanelState*>));
    EXPECT_TRUE((IsStaticBase<IPanelState, MDMVirtualPanelIPCI>));
    EXPECT_FALSE((IsStaticBase<IInterface, MDMVirtualPanelIPCI>));
    EXPECT_FALSE((std::is_base_of_v<IFunctionID, MDMVirtualPanelIPCI>));
}
