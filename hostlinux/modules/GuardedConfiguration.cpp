#include "GuardedConfiguration.h"

#include "ObservedCall.h"

namespace sal {

bool GuardedConfiguration::setConfiguration(int workplaceId, const std::string& driverID,
                                            const std::string& workingDirectory, const std::string& ipAddress,
                                            const std::string& networkAdapter,
                                            const std::string& virtualPanelAddress,
                                            const std::string& nvramDirectory) {
    m_guard.setDriverID(driverID);
    if (m_pSystem)
        m_pSystem->setDriverID(driverID);
    ObservedCall call(driverID, "setConfiguration");
    return call.setResult(m_guard.run("setConfiguration", false, [&] {
        return m_driver.setConfiguration(workplaceId, driverID, workingDirectory, ipAddress, networkAdapter,
                                         virtualPanelAddress, nvramDirectory);
    }));
}

void GuardedConfiguration::setPanelStateInterface(IPanelState* pPanelState) {
    m_guard.run("setPanelStateInterface", false, [&] {
        m_driver.setPanelStateInterface(pPanelState);
        return true;
    });
}

void GuardedConfiguration::setDistributorFIDInterface(IDistributorFID* pDistributorFID) {
    m_guard.run("setDistributorFIDInterface", false, [&] {
        m_driver.setDistributorFIDInterface(pDistributorFID);
        return true;
    });
}

void GuardedConfiguration::setSystemInterface(ISystem* pSystem) {
    // One of its own, so that what it sends and commands has its name.
    m_pSystem = pSystem ? &DriverSystem::make(*pSystem) : nullptr;
    if (m_pSystem)
        m_pSystem->setDriverID(m_guard.driverID());
    m_guard.run("setSystemInterface", false, [&] {
        m_driver.setSystemInterface(m_pSystem);
        return true;
    });
}

bool GuardedConfiguration::initializationCompleted() {
    ObservedCall call(m_guard.driverID(), "initializationCompleted");
    return call.setResult(
        m_guard.run("initializationCompleted", false, [&] { return m_driver.initializationCompleted(); }));
}

bool GuardedConfiguration::deinitialize() {
    ObservedCall call(m_guard.driverID(), "deinitialize");
    return call.setResult(m_guard.run("deinitialize", false, [&] { return m_driver.deinitialize(); }));
}

bool GuardedConfiguration::createFIDList() {
    return m_guard.run("createFIDList", false, [&] { return m_driver.createFIDList(); });
}

}  // namespace sal
