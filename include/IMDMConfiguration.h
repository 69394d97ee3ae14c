#pragma once

#include <string>

#include "EInterfaceTypes.h"
#include "IInterface.h"

/// How the host brings drivers up. Obtained from the manager with IID_IMDMConfiguration after its init(). All
/// calls come on one host thread, never overlapping.
class IMDMConfiguration : public virtual IInterface {
public:
    /// Adds the driver descriptors (*.xml) of a directory to the catalogue and publishes the whole catalogue
    /// as "PANEL.MFDDEF..." values. Changes the process's working directory while it runs. A directory that
    /// cannot be entered adds nothing; a broken descriptor is reported on standard output and skipped.
    virtual void searchMfDriver(const std::string& directory) = 0;

    /// Loads one driver. False when its directories, link, module or process could not be had; true also when
    /// no catalogue entry matches.
    virtual bool startMfDriver(int workplaceId, const std::string& driverID, const std::string& driverType,
                               const std::string& version, const std::string& workingDirectory,
                               const std::string& ipAddress, const std::string& networkAdapter,
                               EInterfaceTypes interfaceType) = 0;

    /// Starts the driver "PANEL", then every driver of the configuration file (none for an empty path).
    /// Returns true when start-up came to its end or the file could not be read; false when the panel driver,
    /// its directory or its link failed, or the file is at fault. What was loaded by then stays loaded.
    virtual bool startMfDrivers(const std::string& configurationPath) = 0;

    /// Unloads a driver and loads it again with what the configuration file now says. False when there is no
    /// file or no entry; nothing is unloaded then. True says that the entry was handled, not that the driver
    /// runs.
    virtual bool reloadMfDriver(const std::string& driverID) = 0;

    /// PDL file name of the first catalogue entry of that type; empty when there is none.
    virtual std::string getPDLFilename(std::string& driverType) const = 0;
};
