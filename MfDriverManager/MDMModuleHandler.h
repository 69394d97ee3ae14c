#pragma once

#include <functional>
#include <list>
#include <string>

#include "IMDMConfiguration.h"
#include "MDMExport.h"

class IPanelState;
class MDMFidCreator;
class MDMFidDistributor;
class MDMModuleChecker;
class MDMModuleInfo;
class MDMModuleLoader;
class MDMModuleParser;
class TiXmlDocument;
class TiXmlNode;

namespace sal {
class CmdParameters;
class LogOutput;
class Module;
}  // namespace sal

/// Reads the workplace configuration, starts and reloads drivers, and keeps and publishes the catalogue of
/// driver modules. Owned by MfDriverManager; owns the parser, the loader and the catalogue's records. All
/// calls come on the command thread and never overlap.
class MDM_API MDMModuleHandler : public IMDMConfiguration {
public:
    /// Asserts that the log output "MDM" is there.
    MDMModuleHandler();
    /// Deinitialises and unloads all drivers. No exception may come out of a driver meanwhile, since it
    /// would end the process: the host's sal::Module catches what a driver throws.
    ~MDMModuleHandler() override;

    /// Answers IID_IMDMConfiguration.
    IInterface* queryInterface(unsigned int id) override;

    void searchMfDriver(const std::string& directory) override;
    bool startMfDriver(int workplaceId, const std::string& driverID, const std::string& driverType,
                       const std::string& version, const std::string& workingDirectory,
                       const std::string& ipAddress, const std::string& networkAdapter,
                       EInterfaceTypes interfaceType) override;
    bool startMfDrivers(const std::string& configurationPath) override;
    bool reloadMfDriver(const std::string& driverID) override;
    std::string getPDLFilename(std::string& driverType) const override;

    /// Makes the handler's own components; to be called once.
    void init();
    void setFidDistributor(MDMFidDistributor* distributor);
    /// Where the catalogue is published; null publishes nothing.
    void setPanelStateInterface(IPanelState* pPanelState);

    /// The module of a driver in this process; null for every other.
    sal::Module* getModule(const std::string& driverID);

    /// Lists the catalogue on standard output.
    void showModules();

    /// Reads one "mainframeDriver" element and loads the driver at once. A driver that fails to load is
    /// logged and still true, so that the others start; false only without a loader.
    bool parseMainframeDriver(int workplaceId, TiXmlNode* driverElement, MDMModuleInfo*& moduleInfo);

    bool shellCmdReloadDriver(sal::CmdParameters& parameters);
    bool shellCmdScanDirectory(sal::CmdParameters& parameters);
    bool shellCmdListAvailables(sal::CmdParameters& parameters);
    bool shellCmdLoadDriver(sal::CmdParameters& parameters);

private:
    /// What a walk through the file does after an entry.
    enum class EWalk { Continue, Succeed, Fail };
    using EntryAction = std::function<EWalk(int workplaceId, TiXmlNode* pDriverElement)>;

    bool loadConfiguration(TiXmlDocument& document, const std::string& path) const;
    EWalk walkConfiguration(TiXmlDocument& document, const std::string& path,
                            const EntryAction& action) const;
    EWalk parseError(const std::string& path, int line) const;

    IPanelState* m_pPanelState = nullptr;
    MDMFidCreator* m_pMidCreator = nullptr;
    MDMModuleLoader* m_pModuleLoader = nullptr;
    MDMModuleChecker* m_pModuleChecker = nullptr;
    MDMModuleParser* m_pModuleParser = nullptr;
    std::list<MDMModuleInfo*> m_modules;  ///< the catalogue, in the order found
    sal::LogOutput* m_pLog = nullptr;
    std::string m_configurationPath;  ///< of the last start; read again for each reload
};
