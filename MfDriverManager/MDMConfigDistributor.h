#pragma once

#include "IConfigState.h"
#include "IMfDriverConfig.h"
#include "MDMExport.h"

/// Configuration endpoint of the module. Made and owned by MfDriverManager; its operations do nothing yet.
class MDM_API MDMConfigDistributor : public IMfDriverConfig, public IConfigState {
public:
    MDMConfigDistributor();
    ~MDMConfigDistributor() override;

    /// Answers IID_IMfDriverConfig and IID_IConfigState.
    IInterface* queryInterface(unsigned int id) override;
    void assignModule() const override;
    void setGlobalColor() const override;
};
