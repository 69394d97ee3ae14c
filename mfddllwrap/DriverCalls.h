#pragma once

#include <string>

#include "IFunctionID.h"
#include "IMFDConfiguration.h"
#include "MessageReader.h"

/// Turns the host's messages into calls of the driver. Both interfaces are borrowed and either may be null;
/// its messages then do nothing. Main thread only.
class DriverCalls {
public:
    /// With an ID, what the driver prints of its state names it.
    DriverCalls(IMFDConfiguration* pConfiguration, IFunctionID* pFunctionID, std::string driverID = {});

    /// Calls what the message says; a code that it does not know does nothing. False for the message that
    /// ends the driver, which it leaves to deinitialize().
    bool handle(protocol::MessageReader& message);

    /// Tells the driver to stop, the first time; later calls do nothing.
    void deinitialize();

private:
    void setConfiguration(protocol::MessageReader& message);
    void sendFID(protocol::MessageReader& message);
    void showState() const;

    IMFDConfiguration* m_pConfiguration;
    IFunctionID* m_pFunctionID;
    const std::string m_driverID;
};
