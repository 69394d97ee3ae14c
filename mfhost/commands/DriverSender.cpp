#include "DriverSender.h"

#include "InterfaceIds.h"

IInterface* DriverSender::queryInterface(unsigned int id) {
    return id == IID_IFunctionID ? this : nullptr;
}

bool DriverSender::sendFID(const std::string& fid, const FIDParameterList& parameters) const {
    const FidTrail::Sending sending(m_pTrail, fid, parameters);
    const IFunctionID* pTarget = m_pTarget;
    return pTarget && pTarget->sendFID(fid, parameters);
}

bool DriverSender::subscribe(const std::string& fid) const {
    const IFunctionID* pTarget = m_pTarget;
    return pTarget && pTarget->subscribe(fid);
}

bool DriverSender::showState() const {
    return true;
}
