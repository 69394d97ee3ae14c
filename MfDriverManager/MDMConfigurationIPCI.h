#pragma once

#include "IMDMStatus.h"
#include "MDMExport.h"

class IMDMConfiguration;

/// Status endpoint of the module. Made and owned by MfDriverManager; its operation does nothing yet.
class MDM_API MDMConfigurationIPCI : public IMDMStatus {
public:
    MDMConfigurationIPCI();
    ~MDMConfigurationIPCI() override;

    /// Answers IID_IMDMStatus.
    IInterface* queryInterface(unsigned int id) override;
    void statusMfDriver() const override;

    void setMDMConfiguration(IMDMConfiguration* pMDMConfiguration);

private:
    IMDMConfiguration* m_pMDMConfiguration = nullptr;  ///< the module handler's; set once, used by nothing
};
