#include "DriverCalls.h"

#include <optional>
#include <string>
#include <utility>

#include "NamedOutput.h"

DriverCalls::DriverCalls(IMFDConfiguration* pConfiguration, IFunctionID* pFunctionID, std::string driverID)
    : m_pConfiguration(pConfiguration), m_pFunctionID(pFunctionID), m_driverID(std::move(driverID)) {}

bool DriverCalls::handle(protocol::MessageReader& message) {
    if (message.hasCode(protocol::deinitialize))
        return false;

    if (m_pFunctionID) {
        if (message.hasCode(protocol::sendFID))
            sendFID(message);
        else if (message.hasCode(protocol::subscribe))
            m_pFunctionID->subscribe(message.string());
        else if (message.hasCode(protocol::showState))
            showState();
    }
    if (m_pConfiguration) {
        if (message.hasCode(protocol::setConfiguration))
            setConfiguration(message);
        else if (message.hasCode(protocol::createFIDList))
            m_pConfiguration->createFIDList();
        else if (message.hasCode(protocol::initializationCompleted))
            m_pConfiguration->initializationCompleted();
    }
    return true;
}

void DriverCalls::deinitialize() {
    if (auto* pConfiguration = std::exchange(m_pConfiguration, nullptr))
        pConfiguration->deinitialize();
}

void DriverCalls::setConfiguration(protocol::MessageReader& message) {
    // Read one after another: the order in which arguments are evaluated is not fixed.
    const int workplaceId = message.int32();
    const std::string driverID = message.string();
    const std::string workingDirectory = message.string();
    const std::string ipAddress = message.string();
    const std::string networkAdapter = message.string();
    const std::string virtualPanelAddress = message.string();
    const std::string nvramDirectory = message.string();
    m_pConfiguration->setConfiguration(workplaceId, driverID, workingDirectory, ipAddress, networkAdapter,
                                       virtualPanelAddress, nvramDirectory);
}

void DriverCalls::sendFID(protocol::MessageReader& message) {
    const std::string fid = message.string();
    m_pFunctionID->sendFID(fid, message.parameters());
}

void DriverCalls::showState() const {
    std::optional<NamedOutput> output;
    if (!m_driverID.empty())
        output.emplace(m_driverID);
    m_pFunctionID->showState();
}
