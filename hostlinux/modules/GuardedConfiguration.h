#pragma once

#include "DriverGuard.h"
#include "DriverSystem.h"
#include "IMFDConfiguration.h"

namespace sal {

/// A driver's IMFDConfiguration with a guard against exceptions, which learns the driver ID here. Owned by
/// its Module, whose answers it gives for other interfaces; borrows the driver. Called on the loader's
/// thread.
class GuardedConfiguration : public IMFDConfiguration {
public:
    GuardedConfiguration(IInterface& module, IMFDConfiguration& driver, DriverGuard& guard)
        : m_module(module), m_driver(driver), m_guard(guard) {}

    IInterface* queryInterface(unsigned int id) override { return m_module.queryInterface(id); }
    bool setConfiguration(int workplaceId, const std::string& driverID, const std::string& workingDirectory,
                          const std::string& ipAddress, const std::string& networkAdapter,
                          const std::string& virtualPanelAddress, const std::string& nvramDirectory) override;
    void setPanelStateInterface(IPanelState* pPanelState) override;
    void setDistributorFIDInterface(IDistributorFID* pDistributorFID) override;
    void setSystemInterface(ISystem* pSystem) override;
    bool initializationCompleted() override;
    bool deinitialize() override;
    bool createFIDList() override;

private:
    IInterface& m_module;
    IMFDConfiguration& m_driver;
    DriverGuard& m_guard;
    DriverSystem* m_pSystem = nullptr;  ///< stays beyond this object
};

}  // namespace sal
