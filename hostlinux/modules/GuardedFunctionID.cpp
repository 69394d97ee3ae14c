#include "GuardedFunctionID.h"

#include "LogLine.h"
#include "NestedCall.h"
#include "sal/LogOutput.h"

namespace sal {

template <class Call>
bool GuardedFunctionID::runNested(const char* operation, const std::string& fid, const Call& call) const {
    NestedCall nested(m_guard, fid);
    const auto verdict = nested.judge();
    if (verdict == NestedCall::EVerdict::Allowed)
        return m_guard.run(operation, fid, false, call);
    if (verdict == NestedCall::EVerdict::Refused && m_circles.passes())
        logLine("MODULE", LogOutput::eError,
                "driver " + m_guard.name() + ": " + operation + "(" + fid +
                    ") is refused: drivers call each other in a circle, " + std::to_string(nested.depth()) +
                    " calls deep: " + nested.circle());
    return false;
}

bool GuardedFunctionID::sendFID(const std::string& fid, const FIDParameterList& parameters) const {
    return runNested("sendFID", fid, [&] { return m_driver.sendFID(fid, parameters); });
}

bool GuardedFunctionID::subscribe(const std::string& fid) const {
    return runNested("subscribe", fid, [&] { return m_driver.subscribe(fid); });
}

bool GuardedFunctionID::showState() const {
    return m_guard.run("showState", false, [&] { return m_driver.showState(); });
}

}  // namespace sal
