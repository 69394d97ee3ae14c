#pragma once

#include "IInterface.h"

/// Reserved for the panel's configuration state. The operation does nothing.
class IConfigState : public virtual IInterface {
public:
    virtual void setGlobalColor() const = 0;
};
