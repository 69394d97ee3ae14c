#pragma once

#include <string>

#include "IFunctionID.h"
#include "IPanelState.h"
#include "MDMCallGate.h"
#include "MDMExport.h"
#include "MDMUseCount.h"

/// Stands between one driver and the distributor. To the driver it is the IPanelState that puts the driver ID
/// before each name; to the distributor it is the IFunctionID that leads to the driver. Made, wired and owned
/// by MDMFidDistributor. Called on any thread; holds no lock.
class MDM_API MDMMainframeDriverPort : public IPanelState, public IFunctionID {
public:
    MDMMainframeDriverPort();
    explicit MDMMainframeDriverPort(const std::string& driverID);
    ~MDMMainframeDriverPort() override;

    /// Answers IID_IPanelState alone: nobody asks a port for IFunctionID.
    IInterface* queryInterface(unsigned int id) override;

    void setStateValue(const std::string& stateID, const std::string& value) override;
    void setStateValueFloat(const std::string& stateID, float value) override;
    void setStateValueInt(const std::string& stateID, int value) override;
    void setStateValueBool(const std::string& stateID, bool value) override;
    void unsetStateValue(const std::string& stateID) override;
    void triggerEvent(const std::string& eventID, const std::string& value) override;

    /// Both return what the driver's endpoint returns; false without an endpoint.
    bool sendFID(const std::string& fid, const FIDParameterList& parameters) const override;
    bool subscribe(const std::string& fid) const override;
    bool showState() const override;

    /// Writes the driver ID to standard output and lets the driver report after it.
    void showPortState() const;

    void setFunctionIDInterface(IFunctionID* pFunctionID);
    void setPanelStateInterface(IPanelState* pPanelState);

    /// Takes the driver's endpoint out and returns once the calls inside it have: the driver may go then.
    /// A FID that comes later is swallowed.
    void releaseFunctionID();

private:
    friend class MDMFidDistributor;

    std::string key(const std::string& id) const;

    IFunctionID* m_pFunctionID = nullptr;  ///< the driver's endpoint; where it is null, FIDs are swallowed
    IPanelState* m_pPanelState = nullptr;  ///< the distributor's
    std::string m_driverID;

    mutable MDMCallGate m_functionIDGate;  ///< guards m_pFunctionID
    mutable MDMUseCount m_dispatching;     ///< calls of the distributor that keep this port alive
};
