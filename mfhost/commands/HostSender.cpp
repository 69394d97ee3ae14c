#include "HostSender.h"

#include "InterfaceIds.h"

IInterface* HostSender::queryInterface(unsigned int id) {
    return id == IID_IFunctionID ? this : nullptr;
}

bool HostSender::sendFID(const std::string& fid, const FIDParameterList& parameters) const {
    const IFunctionID* pTarget = m_pTarget;
    return pTarget && pTarget->sendFID(fid, parameters);
}

bool HostSender::subscribe(const std::string& fid) const {
    const IFunctionID* pTarget = m_pTarget;
    return pTarget && pTarget->subscribe(fid);
}

bool HostSender::showState() const {
    return true;
}
