#pragma once

#include "IInterface.h"

/// Reserved for status reports of the manager. The operation does nothing.
class IMDMStatus : public virtual IInterface {
public:
    virtual void statusMfDriver() const = 0;
};
