#include "MDMModuleLoader.h"

#include <iostream>

#include "IDistributorFID.h"
#include "IFunctionID.h"
#include "IMFDConfiguration.h"
#include "IPanelState.h"
#include "InterfaceIds.h"
#include "MDMDriverIPCI.h"
#include "MDMFidDistributor.h"
#include "MDMModuleInfo.h"
#include "PanelNames.h"
#include "sal/Directory.h"
#include "sal/File.h"
#include "sal/ModuleLoader.h"
#include "sal/NetworkAdapter.h"
#include "sal/Path.h"

namespace {

const char* const g_linkDirectory = "/var/data";
const char* const g_netmask = "255.255.255.0";

sal::Path joined(sal::Path path, const std::string& text) {
    path.expand(text);
    return path;
}

bool failed() {
    std::cout << "FAILED!" << std::endl;
    return false;
}

}  // namespace

MDMMfLoaderInfo::MDMMfLoaderInfo() = default;

MDMMfLoaderInfo::~MDMMfLoaderInfo() {
    m_pComInterface = nullptr;
}

void MDMMfLoaderInfo::setMFDriverType(const std::string& type) {
    m_type = type;
}

void MDMMfLoaderInfo::setMFDriverDirectory(const std::string& directory) {
    m_directory = directory;
}

void MDMMfLoaderInfo::setInterfaceType(EInterfaceTypes interfaceType) {
    m_interfaceType = interfaceType;
}

void MDMMfLoaderInfo::setComInterface(IFunctionID* pComInterface) {
    m_pComInterface = pComInterface;
}

const std::string& MDMMfLoaderInfo::getMFDriverType() const {
    return m_type;
}

const std::string& MDMMfLoaderInfo::getMFDriverDirectory() const {
    return m_directory;
}

EInterfaceTypes MDMMfLoaderInfo::getInterfaceType() const {
    return m_interfaceType;
}

IFunctionID* MDMMfLoaderInfo::getComInterface() const {
    return m_pComInterface;
}

/// What a driver is told of its place.
struct MDMModuleLoader::Settings {
    int workplaceId;
    std::string driverID;
    std::string workingDirectory;  ///< as configured
    std::string ipAddress;
    std::string networkAdapter;
    std::string virtualPanelAddress;
    std::string nvramDirectory;

    void handTo(IMFDConfiguration& driver) const {
        driver.setConfiguration(workplaceId, driverID, workingDirectory, ipAddress, networkAdapter,
                                virtualPanelAddress, nvramDirectory);
    }
};

MDMModuleLoader::MDMModuleLoader() = default;

MDMModuleLoader::~MDMModuleLoader() noexcept(false) {
    for (const auto& [driverID, pConfiguration] : m_mfdConfigurations) {
        std::cout << "Deinitializing MF driver ID: " << driverID << "...";
        pConfiguration->deinitialize();
        std::cout << "OK" << std::endl;
    }
    for (const auto& [driverID, pModule] : m_modules)
        releaseDriver(driverID);
    for (const auto& [driverID, pProxy] : m_driverIPCIs)
        releaseDriver(driverID);
    for (const auto& [driverID, pModule] : m_modules)
        delete pModule;
    for (const auto& [driverID, pProxy] : m_driverIPCIs)
        delete pProxy;
    m_pFidDistributor = nullptr;
}

void MDMModuleLoader::setFidDistributor(MDMFidDistributor* distributor) {
    m_pFidDistributor = distributor;
}

bool MDMModuleLoader::loadMfModule(const std::list<MDMModuleInfo*>& modules, int workplaceId,
                                   const std::string& driverID, const std::string& driverType,
                                   const std::string& version, const std::string& workingDirectory,
                                   const std::string& ipAddress, const std::string& networkAdapter,
                                   EInterfaceTypes interfaceType, MDMModuleInfo*& moduleInfo) {
    std::string virtualPanelAddress;
    std::string virtualPanelAdapter;
    if (!checkAndAddModuleIP("", "", virtualPanelAddress, virtualPanelAdapter)) {
        std::cout << "Failed to determine virtual panel IP address" << std::endl;
        return false;
    }

    for (MDMModuleInfo* pInfo : modules) {
        if (!pInfo->compareString(version, driverType))
            continue;
        moduleInfo = pInfo;

        const sal::Path workingPath = joined(sal::Path::getCurrentWorkingDirPath(), workingDirectory);
        if (!sal::Directory(workingPath).createDirectory()) {
            std::cout << "Failed to create working directory " << workingDirectory << " for MF driver "
                      << driverID << std::endl;
            return false;
        }

        const sal::Path nvramPath = joined(joined(sal::Path::getCurrentWorkingDirPath(), "nvram"), driverID);
        if (!sal::Directory(nvramPath).createDirectory()) {
            std::cout << "Failed to create NVRAM directory " << nvramPath.getPathString() << " for MF driver "
                      << driverID << std::endl;
            return false;
        }

        const sal::Path linkPath = joined(sal::Path(g_linkDirectory), driverID);
        if (!sal::File::symlink(workingPath, linkPath, true)) {
            std::cout << "Failed to create symlink to file driver working directory "
                      << workingPath.getPathString() << " -> " << linkPath.getPathString()
                      << " for MF driver " << driverID << std::endl;
            return false;
        }

        std::string driverAddress;
        std::string driverAdapter;
        if (!checkAndAddModuleIP(ipAddress, networkAdapter, driverAddress, driverAdapter)) {
            std::cout << "FAILED! (IP address problem)" << std::endl;
            continue;
        }

        if (interfaceType != EInterfaceTypes::Direct && interfaceType != EInterfaceTypes::Queue)
            continue;

        const std::string modulePath =
            joined(sal::Path(pInfo->getMFDriverDirectory()), pInfo->getMFDriverFilename()).getPathString();
        const Settings settings{workplaceId,
                                driverID,
                                workingDirectory,
                                driverAddress,
                                driverAdapter,
                                virtualPanelAddress,
                                nvramPath.getPathString()};
        std::cout << "Loading MF driver " << modulePath << " (ID: " << driverID << ")...";
        const bool loaded = interfaceType == EInterfaceTypes::Direct ? loadDirect(modulePath, settings)
                                                                     : loadQueue(modulePath, settings);
        if (!loaded)
            return false;
    }
    return true;
}

// A module that does not answer the configuration interface stays loaded and registered, connected to
// nothing.
bool MDMModuleLoader::loadDirect(const std::string& modulePath, const Settings& settings) {
    sal::ModuleLoader loader;
    sal::Module* pModule = loader.load(sal::ModuleLoader::eLoadDefault, modulePath);
    if (!pModule)
        return failed();
    std::cout << "OK" << std::endl;
    m_modules[settings.driverID] = pModule;

    auto* pConfiguration = dynamic_cast<IMFDConfiguration*>(pModule->queryInterface(IID_IMFDConfiguration));
    if (!pConfiguration || !m_pFidDistributor)
        return true;
    m_mfdConfigurations[settings.driverID] = pConfiguration;

    auto* pFunctionID = dynamic_cast<IFunctionID*>(pModule->queryInterface(IID_IFunctionID));
    if (IPanelState* pPort = m_pFidDistributor->addDriverPort(settings.driverID, pFunctionID))
        pConfiguration->setPanelStateInterface(pPort);
    pConfiguration->setSystemInterface(m_pFidDistributor->getSystemInterface());
    settings.handTo(*pConfiguration);
    pConfiguration->initializationCompleted();
    return true;
}

// A proxy that fails stays registered: the next unload or the teardown releases it.
bool MDMModuleLoader::loadQueue(const std::string& modulePath, const Settings& settings) {
    auto* pProxy = new MDMDriverIPCI(modulePath, settings.driverID);
    m_driverIPCIs[settings.driverID] = pProxy;
    if (!pProxy || !m_pFidDistributor)
        return failed();

    auto* pConfiguration = dynamic_cast<IMFDConfiguration*>(pProxy->queryInterface(IID_IMFDConfiguration));
    if (!pConfiguration)
        return failed();
    m_mfdConfigurations[settings.driverID] = pConfiguration;

    auto* pFunctionID = dynamic_cast<IFunctionID*>(pProxy->queryInterface(IID_IFunctionID));
    IPanelState* pPort = m_pFidDistributor->addDriverPort(settings.driverID, pFunctionID);
    if (!pPort)
        return failed();

    pConfiguration->setPanelStateInterface(pPort);
    pConfiguration->setDistributorFIDInterface(m_pFidDistributor);
    pConfiguration->setSystemInterface(m_pFidDistributor->getSystemInterface());
    if (!pProxy->init())
        return failed();

    settings.handTo(*pConfiguration);
    pConfiguration->initializationCompleted();
    std::cout << "OK" << std::endl;
    return true;
}

bool MDMModuleLoader::checkAndAddModuleIP(const std::string& ipAddress, const std::string& networkAdapter,
                                          std::string& outIpAddress, std::string& outNetworkAdapter) const {
    if (!networkAdapter.empty()) {
        outNetworkAdapter = networkAdapter;
    } else {
        outNetworkAdapter = "eth0";
        for (const std::string& name : sal::NetworkAdapter::getAdapterNameList()) {
            if (name.starts_with("eth")) {
                outNetworkAdapter = name;
                break;
            }
        }
    }

    sal::NetworkAdapter adapter;
    if (!adapter.open(outNetworkAdapter))
        return false;
    if (ipAddress.empty()) {
        outIpAddress = adapter.getMainIpAddress().getAddressString();
        return true;
    }

    outIpAddress = ipAddress;
    if (adapter.getMainIpAddress().getAddressString() == ipAddress)
        return true;
    // Added again even when present: whatever netmask it had, it has ours then.
    const sal::HostAddress address(ipAddress);
    if (adapter.hasIpAddress(address))
        adapter.deleteIpAddress(address);
    return adapter.addIpAddress(address, sal::HostAddress(g_netmask));
}

sal::Module* MDMModuleLoader::getModule(const std::string& driverID) {
    const auto found = m_modules.find(driverID);
    return found == m_modules.end() ? nullptr : found->second;
}

void MDMModuleLoader::unLoadMfModule(const std::string& driverID) {
    const auto configuration = m_mfdConfigurations.find(driverID);
    if (configuration != m_mfdConfigurations.end()) {
        std::cout << "Deinitializing MF driver ID: " << driverID << "...";
        configuration->second->deinitialize();
        std::cout << "OK" << std::endl;
        m_mfdConfigurations.erase(configuration);
    }

    const auto module = m_modules.find(driverID);
    const auto proxy = m_driverIPCIs.find(driverID);
    if (module != m_modules.end() || proxy != m_driverIPCIs.end())
        releaseDriver(driverID);

    if (module != m_modules.end()) {
        delete module->second;
        m_modules.erase(module);
    }

    if (proxy != m_driverIPCIs.end()) {
        delete proxy->second;
        m_driverIPCIs.erase(proxy);
        MDMDriverIPCI::waitForQueues(driverID);
    }
}

/// Other drivers may still send meanwhile: after this has returned no call reaches the driver any more.
void MDMModuleLoader::releaseDriver(const std::string& driverID) {
    if (!m_pFidDistributor)
        return;
    m_pFidDistributor->releaseDriver(driverID);
    if (driverID == protocol::panelDriverID)
        m_pFidDistributor->setMacroSystem(nullptr);
}
