#pragma once

#include <string>
#include <vector>

#include "EInterfaceTypes.h"

class TiXmlElement;

/// The driver entries of a workplace configuration, as the module will meet them. Read for the operator's
/// lists and for the check of the configuration. Any thread.
class WorkplaceFile {
public:
    struct Entry {
        int line = 0;
        std::string driverID;
        std::string driverType;
        std::string version;
        std::string workingDirectory;
        std::string ipAddress;
        std::string networkAdapter;
        std::string interfaceWord;
        EInterfaceTypes interfaceType = EInterfaceTypes::None;
        bool hasAttributes = false;
        bool beginsWithDriverID = false;

        /// Whether a driver is loaded for it, in whichever process.
        bool isLoaded() const {
            return interfaceType == EInterfaceTypes::Direct || interfaceType == EInterfaceTypes::Queue;
        }
    };
    /// Where the file is not what it should be, and what follows.
    struct Fault {
        int line = 0;  ///< 0 for the file as a whole
        std::string text;
    };

    /// Reads the file, which has passed FileGuard. An empty path has no entries and no faults.
    explicit WorkplaceFile(const std::string& path);

    const std::string& path() const { return m_path; }
    /// Whether the whole file was read and follows the format.
    bool isWhole() const { return m_isWhole; }
    /// The entries up to the first fault: those that a start and a reload reach.
    const std::vector<Entry>& entries() const { return m_entries; }
    /// The entries behind it.
    const std::vector<Entry>& unreachedEntries() const { return m_unreachedEntries; }
    const std::vector<Fault>& faults() const { return m_faults; }

    /// The entry on which a reload of this driver would spin, since it begins with another attribute; null
    /// when there is none.
    const Entry* spinningEntry(const std::string& driverID) const;
    /// Why the driver cannot be reloaded with this file: line and what would be right. Empty when it can.
    std::string reloadRefusal(const std::string& driverID) const;

private:
    void read();
    void readWorkplace(const TiXmlElement& workplace);
    /// Nothing behind it is reached.
    void stopAt(int line, const std::string& text);

    std::string m_path;
    std::vector<Entry> m_entries;
    std::vector<Entry> m_unreachedEntries;
    std::vector<Fault> m_faults;
    bool m_isWhole = false;
};
