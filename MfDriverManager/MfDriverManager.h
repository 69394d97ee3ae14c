#pragma once

#include "IInterface.h"
#include "MDMExport.h"

class IPanelState;
class ISystem;
class MDMConfigDistributor;
class MDMConfigurationIPCI;
class MDMFidDistributor;
class MDMModuleHandler;
class MDMPanelConfigurationIPCI;
class MDMVirtualPanelIPCI;

namespace sal {
class LogOutput;
}

/// False lets the module make the queues of driver processes without starting them, so that they can be
/// started by hand, under a debugger say. Cleared by MfDriverManager::dontStartMFDs, never set again.
extern MDM_API bool g_debugStartMFDProcess;

/// Root of the module. The host makes one, calls dontStartMFDs() if it likes, then init(), then hands in its
/// interfaces, asks for IMDMConfiguration and starts the drivers; onMfDriversStarted() comes after that.
/// Owns all components. All calls come on the host's command thread.
class MDM_API MfDriverManager : public IInterface {
public:
    /// Asserts that the log output "MDM" is there. Makes no component.
    MfDriverManager();
    /// Deinitialises and unloads all drivers. The console commands stay registered and must not be run any
    /// more.
    ~MfDriverManager() override;

    /// Answers IFunctionID and IMDMConfiguration, and passes IPanelSettings, IMacroSystem and IPanelMFD
    /// through from the driver "PANEL" in this process. Null for every other and where there is no such
    /// driver. IFunctionID and IMDMConfiguration may be asked for only after init().
    IInterface* queryInterface(unsigned int id) override;

    /// To be called before drivers are started.
    void dontStartMFDs();

    /// Makes and wires the components and registers the console commands.
    void init();

    /// The host's interfaces, borrowed until the manager is destroyed. Ignored before init().
    void setSystemInterface(ISystem* pSystem);
    void setVirtualPanelStateInterface(IPanelState* pPanelState);

    /// The drivers have been started, or "PANEL" was reloaded: fetches the panel's macro system, which is
    /// told of every FID from now on. Ignored before init().
    void onMfDriversStarted();

    /// Lists the catalogue and the drivers in use on standard output. Does nothing before init().
    void showModules();

private:
    IInterface* queryPanelDriver(unsigned int id);

    MDMModuleHandler* m_pModuleHandler = nullptr;
    MDMFidDistributor* m_pFidDistributor = nullptr;
    MDMConfigDistributor* m_pConfigDistributor = nullptr;
    MDMVirtualPanelIPCI* m_pVirtualPanelIPCI = nullptr;
    MDMPanelConfigurationIPCI* m_pPanelConfigIPCI = nullptr;
    MDMConfigurationIPCI* m_pMDMConfigIPCI = nullptr;
    sal::LogOutput* m_pLog = nullptr;  ///< the log manager's
};
