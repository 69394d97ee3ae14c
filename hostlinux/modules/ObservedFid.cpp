#include "ObservedFid.h"

#include "ObservedCall.h"

namespace sal {

ObservedFid::ObservedFid(const std::string& driverID, const std::string& fid,
                         const FIDParameterList& parameters)
    : m_driverID(driverID), m_pObserver(driverID.empty() ? nullptr : ObservedCall::observer()) {
    if (m_pObserver)
        m_pObserver->fidBegins(m_driverID, fid, parameters);
}

ObservedFid::~ObservedFid() {
    if (m_pObserver)
        m_pObserver->fidEnded(m_driverID, m_isOk, m_exception.empty() ? nullptr : m_exception.c_str());
}

}  // namespace sal
