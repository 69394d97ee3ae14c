#pragma once

#include "MDMExport.h"

/// Placeholder for the panel's configuration: made by MfDriverManager, answers nothing.
class MDM_API MDMPanelConfigurationIPCI {
public:
    MDMPanelConfigurationIPCI();
    virtual ~MDMPanelConfigurationIPCI();
};
