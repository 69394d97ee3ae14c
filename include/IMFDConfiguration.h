#pragma once

#include <string>

#include "IInterface.h"

class IDistributorFID;
class IPanelState;
class ISystem;

/// The life of a driver. The loader calls these one after another on the host's command thread (in a driver
/// process: on its main thread), in this order: the interfaces, setConfiguration, initializationCompleted;
/// then FIDs come; deinitialize is the last call before the object is deleted. The interfaces handed in are
/// borrowed and hold until deinitialize() returns.
class IMFDConfiguration : public virtual IInterface {
public:
    /// workplaceId 0 to 7; workingDirectory as configured, relative to the host's working directory;
    /// ipAddress is the driver's own or, when none is configured, the main address of networkAdapter;
    /// nvramDirectory is the full path of a directory that is this driver's alone and survives restarts.
    /// The loader does not look at the result.
    virtual bool setConfiguration(int workplaceId, const std::string& driverID,
                                  const std::string& workingDirectory, const std::string& ipAddress,
                                  const std::string& networkAdapter, const std::string& virtualPanelAddress,
                                  const std::string& nvramDirectory) = 0;

    /// Where the driver reports its state values and events.
    virtual void setPanelStateInterface(IPanelState* pPanelState) = 0;

    /// Where the driver sends FIDs. Called for a driver in a process of its own only; a driver in the host's
    /// process gets the same from ISystem::queryInterface(IID_IFunctionID).
    virtual void setDistributorFIDInterface(IDistributorFID* pDistributorFID) = 0;

    /// The host. Null is possible when the embedding host has none.
    virtual void setSystemInterface(ISystem* pSystem) = 0;

    /// Everything is set; the driver starts its work here. Not called when the load failed before.
    virtual bool initializationCompleted() = 0;

    /// Stop all threads, report nothing any more. Blocks an unload until it returns. May come without
    /// initializationCompleted() when the start failed half way.
    virtual bool deinitialize() = 0;

    /// Reserved: the loader calls it for no driver.
    virtual bool createFIDList() = 0;
};
