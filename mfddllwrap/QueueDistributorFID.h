#pragma once

#include <string>

#include "IDistributorFID.h"
#include "QueueFunctionID.h"

/// The FID distributor as the driver sees it. Owned by DriverProcess; any thread of the driver.
class QueueDistributorFID : public IDistributorFID {
public:
    explicit QueueDistributorFID(const QueueFunctionID& sender);

    IInterface* queryInterface(unsigned int id) override;

    void dispatchFID(const std::string& fid, const FIDParameterList& parameters) const override;

private:
    const QueueFunctionID& m_sender;
};
