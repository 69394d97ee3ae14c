#pragma once

#include <string>

#include "IInterface.h"

class FIDParameterList;

/// Routes a FID to the driver named before its first ".". Given to drivers in a process of their own; a
/// driver in the host's process asks ISystem for IFunctionID instead.
class IDistributorFID : public virtual IInterface {
public:
    /// Any thread. A FID that nobody takes is logged and dropped; the sender learns nothing.
    virtual void dispatchFID(const std::string& fid, const FIDParameterList& parameters) const = 0;
};
