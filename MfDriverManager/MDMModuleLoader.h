#pragma once

#include <list>
#include <map>
#include <string>

#include "EInterfaceTypes.h"
#include "MDMExport.h"

class IFunctionID;
class IMFDConfiguration;
class MDMDriverIPCI;
class MDMFidDistributor;
class MDMModuleInfo;

namespace sal {
class Module;
}

/// How one driver is reached. Declared for the loader's users; the loader itself keeps its three registries.
class MDM_API MDMMfLoaderInfo {
public:
    MDMMfLoaderInfo();
    virtual ~MDMMfLoaderInfo();

    void setMFDriverType(const std::string& type);
    void setMFDriverDirectory(const std::string& directory);
    void setInterfaceType(EInterfaceTypes interfaceType);
    void setComInterface(IFunctionID* pComInterface);

    const std::string& getMFDriverType() const;
    const std::string& getMFDriverDirectory() const;
    EInterfaceTypes getInterfaceType() const;
    IFunctionID* getComInterface() const;

private:
    std::string m_type;
    std::string m_directory;
    EInterfaceTypes m_interfaceType = EInterfaceTypes::None;
    IFunctionID* m_pComInterface = nullptr;  ///< not owned
};

/// Loads drivers and owns every one of them: modules in the host's process and the proxies of those in a
/// process of their own. Owned by MDMModuleHandler. All calls come on the command thread and never overlap.
/// Progress and failures go to standard output.
class MDM_API MDMModuleLoader {
public:
    MDMModuleLoader();
    /// Deinitialises all drivers, then deletes them: those in this process first. Catches nothing: an
    /// exception out of a driver's deinitialize() would end the process at the destructor of the handler.
    /// None comes, since the host's sal::Module catches what a driver throws.
    virtual ~MDMModuleLoader() noexcept(false);

    /// Set before drivers are loaded.
    void setFidDistributor(MDMFidDistributor* distributor);

    /// Prepares directories, link and address and loads the driver from every record of that version and
    /// type. moduleInfo is the record handled last, untouched when none matches. False on a failure, which
    /// leaves what was done by then in place; true also when nothing matches or the driver's own address
    /// fails.
    bool loadMfModule(const std::list<MDMModuleInfo*>& modules, int workplaceId, const std::string& driverID,
                      const std::string& driverType, const std::string& version,
                      const std::string& workingDirectory, const std::string& ipAddress,
                      const std::string& networkAdapter, EInterfaceTypes interfaceType,
                      MDMModuleInfo*& moduleInfo);

    /// Makes sure that an adapter has the address, with netmask 255.255.255.0, and tells both. Without a name
    /// the first adapter beginning with "eth" is taken, without an address the adapter's main one is told and
    /// nothing changes. False when there is no such adapter (outIpAddress untouched) or the system refuses.
    bool checkAndAddModuleIP(const std::string& ipAddress, const std::string& networkAdapter,
                             std::string& outIpAddress, std::string& outNetworkAdapter) const;

    /// The module of a driver in this process; null for every other.
    sal::Module* getModule(const std::string& driverID);

    /// Deinitialises and deletes one driver; does nothing for an unknown one. For a driver in a process of
    /// its own it returns after that process has let go of its queues. Catches nothing either: a driver
    /// whose deinitialize() throws stays registered.
    void unLoadMfModule(const std::string& driverID);

private:
    struct Settings;

    bool loadDirect(const std::string& modulePath, const Settings& settings);
    bool loadQueue(const std::string& modulePath, const Settings& settings);
    void releaseDriver(const std::string& driverID);

    MDMFidDistributor* m_pFidDistributor = nullptr;
    std::map<std::string, sal::Module*> m_modules;
    std::map<std::string, MDMDriverIPCI*> m_driverIPCIs;
    std::map<std::string, IMFDConfiguration*> m_mfdConfigurations;  ///< belong to the modules and proxies
};
