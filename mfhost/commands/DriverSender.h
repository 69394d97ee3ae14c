#pragma once

#include <atomic>

#include "FidTrail.h"
#include "IFunctionID.h"

/// Sends FIDs through the manager for drivers of the host's process, whose ISystem hands it out. Owned by
/// HostSystem. Any thread.
class DriverSender : public IFunctionID {
public:
    /// The manager's sender; null before its start-up and after its end.
    void setTarget(IFunctionID* pTarget) { m_pTarget = pTarget; }

    /// Where the FIDs are recorded, before other threads send; none by default.
    void setTrail(FidTrail* pTrail) { m_pTrail = pTrail; }

    IInterface* queryInterface(unsigned int id) override;
    bool sendFID(const std::string& fid, const FIDParameterList& parameters) const override;
    bool subscribe(const std::string& fid) const override;
    bool showState() const override;

private:
    std::atomic<IFunctionID*> m_pTarget = nullptr;
    FidTrail* m_pTrail = nullptr;
};
