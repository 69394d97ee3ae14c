#pragma once

#include <string>

#include "IInterface.h"

class FIDParameterList;

/// Takes function IDs. Every driver implements it; so do its port, its process proxy and the FID distributor.
/// Called on the thread of whoever sends, several at a time; a driver returns soon and never waits for the
/// sender.
class IFunctionID : public virtual IInterface {
public:
    /// A driver gets the function part alone ("MOVE" of "AXIS1.MOVE"); the distributor and the host's sender
    /// take the whole FID. Returns false when it could not be handed on (no endpoint, queue gone); nobody
    /// upstream of a port looks at it.
    virtual bool sendFID(const std::string& fid, const FIDParameterList& parameters) const = 0;

    /// Somebody wants to be told of this function; what that means is the driver's own. Same results.
    virtual bool subscribe(const std::string& fid) const = 0;

    /// Reports on standard output what the driver wishes an operator to see. True when there is nothing to
    /// do.
    virtual bool showState() const = 0;
};
