#pragma once

#include <string>
#include <vector>

#include "EInterfaceTypes.h"

/// The driver entries of a workplace configuration, as the module will meet them. Read for the operator's
/// lists and to catch entries that would stop the host. Command thread.
class WorkplaceFile {
public:
    struct Entry {
        int line = 0;
        std::string driverID;
        std::string driverType;
        std::string version;
        EInterfaceTypes interfaceType = EInterfaceTypes::None;
        bool hasAttributes = false;
        bool beginsWithDriverID = false;
    };

    /// Reads the entries up to the first fault. The file has passed FileGuard.
    explicit WorkplaceFile(const std::string& path);

    /// Whether the whole file was read and follows the format.
    bool isWhole() const { return m_isWhole; }
    const std::vector<Entry>& entries() const { return m_entries; }

    /// Why the workplace cannot be started with this file: line and what would be right. Empty when it can.
    std::string startRefusal() const;
    /// The same for a reload of one driver.
    std::string reloadRefusal(const std::string& driverID) const;

private:
    void read();

    std::string m_path;
    std::vector<Entry> m_entries;
    bool m_isWhole = false;
};
