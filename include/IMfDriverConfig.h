#pragma once

#include "IInterface.h"

/// Reserved for assigning modules to drivers. The operation does nothing.
class IMfDriverConfig : public virtual IInterface {
public:
    virtual void assignModule() const = 0;
};
