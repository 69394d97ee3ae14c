#pragma once

#include <memory>
#include <string>

#include "IInterface.h"
#include "sal/Export.h"

namespace sal {

/// A driver module in this process. Made by ModuleLoader::load; whoever gets it owns it. Deleting it destroys
/// the driver and unmaps its code, with a log line when the code stays mapped and why.
///
/// IID_IFunctionID and IID_IMFDConfiguration are answered with guards round the driver's operations: an
/// exception that leaves the driver is caught there and logged with the driver ID, and the operation returns
/// false. Every other identifier is answered by the driver itself.
class SAL_API Module : public IInterface {
public:
    ~Module() override;
    Module(const Module&) = delete;
    Module& operator=(const Module&) = delete;

    IInterface* queryInterface(unsigned int id) override;

private:
    friend class ModuleLoader;
    struct Impl;
    explicit Module(std::unique_ptr<Impl> pImpl);

    std::unique_ptr<Impl> m_pImpl;
};

}  // namespace sal
