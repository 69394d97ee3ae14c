#pragma once

#include <string>
#include <vector>

#include "DescriptorCatalogue.h"
#include "Finding.h"
#include "WorkplaceFile.h"

/// Compares a workplace file with the descriptors. An error is what would end the host, make it spin, or
/// break another driver; all else is a warning, and the module's own handling of it follows. Any thread.
class ConfigurationCheck {
public:
    /// The drivers' directories lie under workDirectory. All three outlive the check. The network adapters
    /// are those of this machine, unless the workplace will have others.
    ConfigurationCheck(const WorkplaceFile& workplace, const DescriptorCatalogue& catalogue,
                       const std::string& workDirectory, bool hasAdaptersOfThisMachine = true);

    /// What concerns a start with this file: the descriptors, then the file in the order of its lines, since
    /// what is wrong with a descriptor is the cause of what its drivers lack.
    std::vector<Finding> forStart() const;
    /// The same for "mfhost --check", which only asks: what the module ends a start for by itself is an error
    /// as well, and so is a file that starts nothing.
    std::vector<Finding> forQuestion() const;
    /// The same for a reload of one driver.
    std::vector<Finding> forReload(const std::string& driverID) const;

private:
    const WorkplaceFile& m_workplace;
    const DescriptorCatalogue& m_catalogue;
    const std::string& m_workDirectory;
    const bool m_hasAdaptersOfThisMachine;
};
