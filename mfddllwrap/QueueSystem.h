#pragma once

#include <string>

#include "DriverOutput.h"
#include "ISystem.h"
#include "QueueFunctionID.h"

/// The host as the driver sees it: commands become messages, IID_IFunctionID answers the sender of FIDs, so
/// that a driver's source is the same here and in the host's process. Owned by DriverProcess; any thread of
/// the driver.
class QueueSystem : public ISystem {
public:
    QueueSystem(DriverOutput& output, QueueFunctionID& sender);

    IInterface* queryInterface(unsigned int id) override;

    void executeCommand(const std::string& command, const std::string& arguments) override;

private:
    DriverOutput& m_output;
    QueueFunctionID& m_sender;
};
