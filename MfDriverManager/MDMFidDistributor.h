#pragma once

#include <map>
#include <string>

#include "IDistributorFID.h"
#include "IFunctionID.h"
#include "IPanelState.h"
#include "MDMCallGate.h"
#include "MDMExport.h"
#include "MDMReadersMutex.h"

class IMacroSystem;
class ISystem;
class MDMMainframeDriverPort;

namespace sal {
class CmdParameters;
class LogOutput;
}  // namespace sal

/// Base of FIDSegmentPointer. Points into a FID that its caller keeps; owns nothing.
class MDM_API SegmentPointerBase {
public:
    virtual ~SegmentPointerBase();

protected:
    const char* m_pSegment = nullptr;
};

/// Points at one segment of a FID.
class MDM_API FIDSegmentPointer : public SegmentPointerBase {
public:
    ~FIDSegmentPointer() override;
};

/// The hub between drivers and panel. Routes each FID to the port of the driver named before its first ".",
/// passes state changes on to the panel-state target, and carries the host's system and macro interfaces.
/// Made and owned by MfDriverManager; owns the ports. Called on any thread, ports may be added meanwhile; no
/// lock is held while a port, the target or the macro system is called.
class MDM_API MDMFidDistributor : public IDistributorFID, public IPanelState, public IFunctionID {
public:
    /// Asserts that the log output "MDM" is there.
    MDMFidDistributor();
    ~MDMFidDistributor() override;

    /// Answers IID_IFunctionID, IID_IPanelState and IID_IDistributorFID.
    IInterface* queryInterface(unsigned int id) override;

    void dispatchFID(const std::string& fid, const FIDParameterList& parameters) const override;

    /// Handed unchanged to the panel-state target; dropped without one.
    void setStateValue(const std::string& stateID, const std::string& value) override;
    void setStateValueFloat(const std::string& stateID, float value) override;
    void setStateValueInt(const std::string& stateID, int value) override;
    void setStateValueBool(const std::string& stateID, bool value) override;
    void unsetStateValue(const std::string& stateID) override;
    void triggerEvent(const std::string& eventID, const std::string& value) override;

    /// The same as dispatchFID; always true.
    bool sendFID(const std::string& fid, const FIDParameterList& parameters) const override;
    /// Goes to the driver named in the FID, without a log line. False when there is none.
    bool subscribe(const std::string& fid) const override;
    bool showState() const override;

    /// Makes the port of one driver and returns what the driver reports to. A port that had the same driver
    /// ID is gone afterwards. functionId may be null: then FIDs for the driver are swallowed. Command thread.
    IPanelState* addDriverPort(const std::string& driverID, IFunctionID* functionId);

    /// The driver is about to be deleted: takes its endpoint out of its port and returns after the calls
    /// inside the driver have returned. The port stays. Command thread.
    void releaseDriver(const std::string& driverID);

    /// Lets every port report on standard output, in byte order of the driver IDs. Only the port that is
    /// being called is kept meanwhile: others may be added and replaced, also from inside a driver's report.
    void showUsedModules();

    /// Null is allowed. Calls that are inside the former target go on.
    void setPanelStateInterface(IPanelState* pPanelState);
    void setSystemInterface(ISystem* pSystem);
    ISystem* getSystemInterface() const;
    /// Returns after the calls inside the former macro system have returned: it may be deleted then. Neither
    /// changes anything nor waits when the pointer is the one already set.
    void setMacroSystem(IMacroSystem* pMacroSystem);

    bool shellCmdSetStateValue(sal::CmdParameters& parameters);
    bool shellCmdUnsetStateValue(sal::CmdParameters& parameters);
    bool shellCmdTriggerEvent(sal::CmdParameters& parameters);
    bool shellCmdSendFID(sal::CmdParameters& parameters);
    bool shellCmdListDrivers(sal::CmdParameters& parameters);

private:
    class PortUse;

    std::map<std::string, MDMMainframeDriverPort*> m_ports;
    IPanelState* m_pPanelState = nullptr;
    ISystem* m_pSystem = nullptr;
    IMacroSystem* m_pMacroSystem = nullptr;
    sal::LogOutput* m_pLog = nullptr;

    mutable MDMReadersMutex m_portsMutex;  ///< guards m_ports; held for the look-up only
    mutable MDMCallGate m_macroGate;       ///< guards m_pMacroSystem
};
