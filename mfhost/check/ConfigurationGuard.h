#pragma once

#include <set>
#include <string>
#include <vector>

#include "DescriptorCatalogue.h"
#include "Finding.h"

/// Stands before the host's start and its reloads: checks the files, logs each finding once, and refuses on
/// an error. Owned by the host, used on its command thread.
class ConfigurationGuard {
public:
    /// The configuration file may be empty: the panel driver alone.
    ConfigurationGuard(std::vector<std::string> driverDirectories, std::string configuration);

    /// Whether the workplace may be started; each error and warning is logged. Reads the descriptors.
    bool acceptsStart();
    /// Why the driver must not be reloaded; empty when it may. What else is found is logged, unless it was
    /// before. The descriptors are those of the start, as the module has them.
    std::string reloadRefusal(const std::string& driverID);

private:
    const std::vector<std::string> m_driverDirectories;
    const std::string m_configuration;
    DescriptorCatalogue m_catalogue;
    std::set<std::string> m_logged;
};
