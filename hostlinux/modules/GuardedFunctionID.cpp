#include "GuardedFunctionID.h"

#include "LogLine.h"
#include "NestedCall.h"
#include "ObservedCall.h"
#include "ObservedFid.h"
#include "sal/LogOutput.h"

namespace sal {

bool GuardedFunctionID::mayCall(NestedCall& nested, const char* operation, const std::string& fid) const {
    const auto verdict = nested.judge();
    if (verdict == NestedCall::EVerdict::Refused && m_circles.passes())
        logLine("MODULE", LogOutput::eError,
                "driver " + m_guard.name() + ": " + operation + "(" + fid +
                    ") is refused: drivers call each other in a circle, " + std::to_string(nested.depth()) +
                    " calls deep: " + nested.circle());
    return verdict == NestedCall::EVerdict::Allowed;
}

bool GuardedFunctionID::sendFID(const std::string& fid, const FIDParameterList& parameters) const {
    NestedCall nested(m_guard, fid);
    if (!mayCall(nested, "sendFID", fid))
        return false;
    ObservedFid observed(m_guard.driverID(), fid, parameters);
    const bool isOk = m_guard.run(
        "sendFID", fid, false, [&] { return m_driver.sendFID(fid, parameters); }, observed.exception());
    observed.setResult(isOk);
    return isOk;
}

bool GuardedFunctionID::subscribe(const std::string& fid) const {
    NestedCall nested(m_guard, fid);
    return mayCall(nested, "subscribe", fid) &&
           m_guard.run("subscribe", fid, false, [&] { return m_driver.subscribe(fid); });
}

bool GuardedFunctionID::showState() const {
    const ObservedCall observed(m_guard.driverID(), "showState");
    return m_guard.run("showState", false, [&] { return m_driver.showState(); });
}

}  // namespace sal
