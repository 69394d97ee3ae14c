#include "GuardedConfiguration.h"

#include "ObservedCall.h"

namespace sal {

bool GuardedConfiguration::setConfiguration(int workplaceId, const std::string& driverID,
                                            const std::string& workingDirectory, const std::string& ipAddress,
                                            const std::string& networkAdapter,
                                            const std::string& virtualPanelAddress,
                                            const std::string& nvramDirectory) {
    m_guard.setDriverID(driverID);
    const ObservedCall call(driverID, "setConfiguration");
    return m_guard.run("setConfiguration", false, [&] {
        return m_driver.setConfiguration(workplaceId, driverID, workingDirectory, ipAddress, networkAdapter,
                                         virtualPanelAddress, nvramDirectory);
    });
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
    m_guard.run("setSystemInterface", false, [&] {
        m_driver.setSystemInterface(pSystem);
        return true;
    });
}

bool GuardedConfiguration::initializationCompleted() {
    const ObservedCall call(m_guard.driverID(), "initializationCompleted");
    return m_guard.run("initializationCompleted", false, [&] { return m_driver.initializationCompleted(); });
}

bool GuardedConfiguration::deinitialize() {
    const ObservedCall call(m_guard.driverID(), "deinitialize");
    return m_guard.run("deinitialize", false, [&] { return m_driver.deinitialize(); });
}

bool GuardedConfiguration::createFIDList() {
    return m_guard.run("createFIDList", false, [&] { return m_driver.createFIDList(); });
}

}  // namespace sal
