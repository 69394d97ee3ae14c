#pragma once

#include <string>

#include "IPanelState.h"
#include "MDMExport.h"

class FIDParameterList;
class IDistributorFID;

/// Stands in for a panel until the host supplies its own: reports every state change and event on standard
/// output. Owned by MfDriverManager. Called on any thread; lines of several threads may interleave.
class MDM_API MDMVirtualPanelIPCI : public IPanelState {
public:
    MDMVirtualPanelIPCI();
    ~MDMVirtualPanelIPCI() override;

    /// Answers IID_IPanelState.
    IInterface* queryInterface(unsigned int id) override;

    void setStateValue(const std::string& stateID, const std::string& value) override;
    void setStateValueFloat(const std::string& stateID, float value) override;
    void setStateValueInt(const std::string& stateID, int value) override;
    void setStateValueBool(const std::string& stateID, bool value) override;
    void unsetStateValue(const std::string& stateID) override;
    void triggerEvent(const std::string& eventID, const std::string& value) override;
    virtual void showState() const;

    /// Injects a FID as if a driver had sent it. Does nothing without a distributor.
    void sendTestFID(const std::string& fid, const FIDParameterList& parameters) const;

    void setDistributorFIDInterface(IDistributorFID* pDistributorFID);

private:
    IDistributorFID* m_pDistributorFID = nullptr;
};
