#pragma once

#include <functional>
#include <string>
#include <vector>

#include "AdapterFault.h"
#include "DescriptorCatalogue.h"
#include "Finding.h"
#include "WorkplaceFile.h"

/// Compares a workplace file with the descriptors. An error is what would end the host, make it spin, or
/// break another driver; all else is a warning, and the module's own handling of it follows. Any thread.
class ConfigurationCheck {
public:
    /// What the files are compared with beside each other.
    struct Machine {
        /// As adapterFault(), of the adapters that the workplace will have.
        std::function<std::string(const std::string& networkAdapter)> adapterFault = &::adapterFault;
        /// Why the driver module in this file cannot be loaded; empty when it can. Asked where the check is
        /// only a question; modules are not tried where there is none.
        std::function<std::string(const std::string& module)> loadFault = nullptr;
    };

    /// The drivers' directories lie under workDirectory. All three outlive the check.
    ConfigurationCheck(const WorkplaceFile& workplace, const DescriptorCatalogue& catalogue,
                       const std::string& workDirectory);
    ConfigurationCheck(const WorkplaceFile& workplace, const DescriptorCatalogue& catalogue,
                       const std::string& workDirectory, Machine machine);

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
    const Machine m_machine;
};
