#include "GuardedFunctionID.h"

namespace sal {

bool GuardedFunctionID::sendFID(const std::string& fid, const FIDParameterList& parameters) const {
    return m_guard.run("sendFID", fid, false, [&] { return m_driver.sendFID(fid, parameters); });
}

bool GuardedFunctionID::subscribe(const std::string& fid) const {
    return m_guard.run("subscribe", fid, false, [&] { return m_driver.subscribe(fid); });
}

bool GuardedFunctionID::showState() const {
    return m_guard.run("showState", false, [&] { return m_driver.showState(); });
}

}  // namespace sal
