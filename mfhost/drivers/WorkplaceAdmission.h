#pragma once

#include <set>
#include <string>
#include <vector>

#include "DescriptorCatalogue.h"
#include "Finding.h"

class WorkplaceFile;

/// Decides on the host's start and its reloads: checks the workplace file as the host has read it and the
/// descriptors, logs each finding once, and refuses on an error. Owned by Workplace, used on the command
/// thread.
class WorkplaceAdmission {
public:
    explicit WorkplaceAdmission(std::vector<std::string> driverDirectories);

    /// Whether the workplace may be started; each error and warning is logged. Reads the descriptors.
    bool acceptsStart(const WorkplaceFile& workplace);
    /// Why the driver must not be reloaded; empty when it may. What else is found is logged, unless it was
    /// before. The descriptors are those that the module has.
    std::string reloadRefusal(const WorkplaceFile& workplace, const std::string& driverID);

    /// The descriptors as they were when the module searched for them.
    const DescriptorCatalogue& catalogue() const { return m_catalogue; }
    /// The module has searched for more.
    void setCatalogue(const DescriptorCatalogue& catalogue) { m_catalogue = catalogue; }

    /// For sal::Directory::setFileFilter: false for a descriptor that must not reach the XML library, with a
    /// log line the first time, and for one that the thread's search is not for. Any thread.
    static bool acceptsDescriptor(const std::string& path);

private:
    const std::vector<std::string> m_driverDirectories;
    DescriptorCatalogue m_catalogue;
    std::set<std::string> m_logged;
};
