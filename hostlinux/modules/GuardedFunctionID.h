#pragma once

#include "DriverGuard.h"
#include "IFunctionID.h"
#include "Throttle.h"

namespace sal {

class NestedCall;

/// A driver's IFunctionID with a guard against exceptions and against circles of drivers: a call that is
/// too deep inside others is refused, with a log line that names the circle. Owned by its Module, whose
/// answers it gives for other interfaces; borrows the driver. Any thread.
class GuardedFunctionID : public IFunctionID {
public:
    GuardedFunctionID(IInterface& module, IFunctionID& driver, const DriverGuard& guard)
        : m_module(module), m_driver(driver), m_guard(guard) {}

    IInterface* queryInterface(unsigned int id) override { return m_module.queryInterface(id); }
    bool sendFID(const std::string& fid, const FIDParameterList& parameters) const override;
    bool subscribe(const std::string& fid) const override;
    bool showState() const override;

private:
    bool mayCall(NestedCall& nested, const char* operation, const std::string& fid) const;

    IInterface& m_module;
    IFunctionID& m_driver;
    const DriverGuard& m_guard;
    mutable base::Throttle m_circles;
};

}  // namespace sal
