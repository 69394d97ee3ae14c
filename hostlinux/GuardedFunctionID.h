#pragma once

#include "DriverGuard.h"
#include "IFunctionID.h"

namespace sal {

/// A driver's IFunctionID behind a guard against exceptions. Owned by its Module, whose answers it gives for
/// other interfaces; borrows the driver. Any thread.
class GuardedFunctionID : public IFunctionID {
public:
    GuardedFunctionID(IInterface& module, IFunctionID& driver, const DriverGuard& guard)
        : m_module(module), m_driver(driver), m_guard(guard) {}

    IInterface* queryInterface(unsigned int id) override { return m_module.queryInterface(id); }
    bool sendFID(const std::string& fid, const FIDParameterList& parameters) const override;
    bool subscribe(const std::string& fid) const override;
    bool showState() const override;

private:
    IInterface& m_module;
    IFunctionID& m_driver;
    const DriverGuard& m_guard;
};

}  // namespace sal
