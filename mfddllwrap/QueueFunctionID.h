#pragma once

#include <string>

#include "DriverOutput.h"
#include "IFunctionID.h"

/// Sends FIDs of the driver to the host, which dispatches them. What ISystem answers for IFunctionID. Owned
/// by DriverProcess; any thread of the driver.
class QueueFunctionID : public IFunctionID {
public:
    explicit QueueFunctionID(DriverOutput& output);

    IInterface* queryInterface(unsigned int id) override;

    /// fid is whole ("PANEL.ALARM"). False when it is too long or the host does not take it.
    bool sendFID(const std::string& fid, const FIDParameterList& parameters) const override;
    /// False: the host takes no subscriptions from a driver process.
    bool subscribe(const std::string& fid) const override;
    bool showState() const override;

private:
    DriverOutput& m_output;
};
