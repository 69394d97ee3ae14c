#pragma once

#include "MDMExport.h"

/// Placeholder: the handler makes one and uses it for nothing.
class MDM_API MDMModuleChecker {
public:
    MDMModuleChecker();
    virtual ~MDMModuleChecker();
};
