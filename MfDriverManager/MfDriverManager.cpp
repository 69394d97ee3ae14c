#include "MfDriverManager.h"

#include <iostream>
#include <string>

#include "IDistributorFID.h"
#include "IFunctionID.h"
#include "IMDMConfiguration.h"
#include "IMacroSystem.h"
#include "IPanelMFD.h"
#include "IPanelSettings.h"
#include "IPanelState.h"
#include "InterfaceIds.h"
#include "MDMConfigDistributor.h"
#include "MDMConfigurationIPCI.h"
#include "MDMFidDistributor.h"
#include "MDMModuleHandler.h"
#include "MDMPanelConfigurationIPCI.h"
#include "MDMVirtualPanelIPCI.h"
#include "PanelNames.h"
#include "sal/Assert.h"
#include "sal/CmdProcessor.h"
#include "sal/CmdRegisterImpl.h"
#include "sal/LogManager.h"
#include "sal/Module.h"

bool g_debugStartMFDProcess = true;

namespace {

/// A component's interface of that identifier; null when it does not answer it.
template <class Interface, class Component>
Interface* getInterface(Component* pComponent, unsigned int id) {
    return dynamic_cast<Interface*>(pComponent->queryInterface(id));
}

template <class T>
void registerCommand(const std::string& name, const char* help, T* pObject,
                     bool (T::*handler)(sal::CmdParameters&)) {
    sal::CmdProcessor* pProcessor = sal::SingletonDll<sal::CmdProcessor>::getInstance();
    pProcessor->registerCmd(new sal::CmdRegisterImpl<T>(name, help, pObject, handler));
}

}  // namespace

MfDriverManager::MfDriverManager() {
    m_pLog = sal::SingletonDll<sal::LogManager>::getInstance()->getLogOutput("MDM");
    SAL_ASSERT(m_pLog);
}

MfDriverManager::~MfDriverManager() {
    delete m_pModuleHandler;
    m_pModuleHandler = nullptr;
    delete m_pFidDistributor;
    m_pFidDistributor = nullptr;
    delete m_pConfigDistributor;
    m_pConfigDistributor = nullptr;
    delete m_pVirtualPanelIPCI;
    m_pVirtualPanelIPCI = nullptr;
    delete m_pPanelConfigIPCI;
    m_pPanelConfigIPCI = nullptr;
    delete m_pMDMConfigIPCI;
    m_pMDMConfigIPCI = nullptr;
    m_pLog = nullptr;
}

void MfDriverManager::dontStartMFDs() {
    g_debugStartMFDProcess = false;
}

void MfDriverManager::init() {
    m_pModuleHandler = new MDMModuleHandler;
    SAL_ASSERT(m_pModuleHandler);
    m_pFidDistributor = new MDMFidDistributor;
    SAL_ASSERT(m_pFidDistributor);
    m_pConfigDistributor = new MDMConfigDistributor;
    SAL_ASSERT(m_pConfigDistributor);
    m_pVirtualPanelIPCI = new MDMVirtualPanelIPCI;
    SAL_ASSERT(m_pVirtualPanelIPCI);
    m_pPanelConfigIPCI = new MDMPanelConfigurationIPCI;
    SAL_ASSERT(m_pPanelConfigIPCI);
    m_pMDMConfigIPCI = new MDMConfigurationIPCI;
    SAL_ASSERT(m_pMDMConfigIPCI);

    m_pModuleHandler->init();
    m_pModuleHandler->setFidDistributor(m_pFidDistributor);
    m_pFidDistributor->setPanelStateInterface(
        getInterface<IPanelState>(m_pVirtualPanelIPCI, IID_IPanelState));
    m_pVirtualPanelIPCI->setDistributorFIDInterface(
        getInterface<IDistributorFID>(m_pFidDistributor, IID_IDistributorFID));
    m_pMDMConfigIPCI->setMDMConfiguration(
        getInterface<IMDMConfiguration>(m_pModuleHandler, IID_IMDMConfiguration));

    registerCommand("setStateValue",
                    "setStateValue <state ID> <state value>\n\tchange the value of an PanelState entry.",
                    m_pFidDistributor, &MDMFidDistributor::shellCmdSetStateValue);
    registerCommand("unsetStateValue", "unsetStateValue <state ID>\n\tremove a PanelState entry.",
                    m_pFidDistributor, &MDMFidDistributor::shellCmdUnsetStateValue);
    registerCommand("triggerEvent",
                    "triggerEvent <event ID> <event value>\n\tsend trigger event to PDL interpreter.",
                    m_pFidDistributor, &MDMFidDistributor::shellCmdTriggerEvent);
    registerCommand(
        "sendFID",
        "sendFID <FID> [<parameter name>=<parameter value> [...]]\n\tSend a FunctionID with optional "
        "parameters",
        m_pFidDistributor, &MDMFidDistributor::shellCmdSendFID);
    registerCommand("reloadDriver",
                    "reloadDriver <driver ID>\n\treloads an MF driver module (stop and restart).",
                    m_pModuleHandler, &MDMModuleHandler::shellCmdReloadDriver);
}

void MfDriverManager::setSystemInterface(ISystem* pSystem) {
    if (m_pFidDistributor)
        m_pFidDistributor->setSystemInterface(pSystem);
}

void MfDriverManager::setVirtualPanelStateInterface(IPanelState* pPanelState) {
    if (m_pFidDistributor)
        m_pFidDistributor->setPanelStateInterface(pPanelState);
    if (m_pModuleHandler)
        m_pModuleHandler->setPanelStateInterface(pPanelState);
}

IInterface* MfDriverManager::queryInterface(unsigned int id) {
    switch (id) {
        case IID_IFunctionID:
            return getInterface<IFunctionID>(m_pFidDistributor, id);
        case IID_IMDMConfiguration:
            return getInterface<IMDMConfiguration>(m_pModuleHandler, id);
        case IID_IPanelSettings:
        case IID_IMacroSystem:
        case IID_IPanelMFD:
            return queryPanelDriver(id);
        default:
            return nullptr;
    }
}

void MfDriverManager::onMfDriversStarted() {
    if (m_pFidDistributor)
        m_pFidDistributor->setMacroSystem(dynamic_cast<IMacroSystem*>(queryInterface(IID_IMacroSystem)));
}

void MfDriverManager::showModules() {
    if (!m_pModuleHandler || !m_pFidDistributor)
        return;
    std::cout << "Available MfDriver Modules" << std::endl << std::endl;
    m_pModuleHandler->showModules();
    std::cout << "Used MfDriver Modules" << std::endl;
    m_pFidDistributor->showUsedModules();
}

IInterface* MfDriverManager::queryPanelDriver(unsigned int id) {
    if (!m_pModuleHandler)
        return nullptr;
    sal::Module* pPanel = m_pModuleHandler->getModule(protocol::panelDriverID);
    if (!pPanel)
        return nullptr;
    switch (id) {
        case IID_IPanelSettings:
            return getInterface<IPanelSettings>(pPanel, id);
        case IID_IMacroSystem:
            return getInterface<IMacroSystem>(pPanel, id);
        default:
            return getInterface<IPanelMFD>(pPanel, id);
    }
}
