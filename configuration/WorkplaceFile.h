#pragma once

#include <string>
#include <vector>

#include "EInterfaceTypes.h"
#include "XmlInput.h"

class TiXmlElement;

/// The driver entries of a workplace configuration, as the module will meet them. Read for the operator's
/// lists and for the check of the configuration. Any thread.
class WorkplaceFile {
public:
    struct Entry {
        int line = 0;
        int workplaceID = 0;  ///< of the workplace that it stands in
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

    /// Reads the entries from what was read of the file, which has passed XmlInput. An empty path has no
    /// entries and no faults.
    WorkplaceFile(const std::string& path, const XmlInput& input);

    const std::string& path() const { return m_path; }
    /// Whether the whole file was read and follows the format.
    bool isWhole() const { return m_isWhole; }
    /// Why it is not whole, with file and line; empty when it is.
    const std::string& obstacle() const { return m_obstacle; }
    /// The entries up to the first fault: those that a start and a reload reach.
    const std::vector<Entry>& entries() const { return m_entries; }
    /// The entries after it.
    const std::vector<Entry>& unreachedEntries() const { return m_unreachedEntries; }
    const std::vector<Fault>& faults() const { return m_faults; }

    /// The entry on which a reload of this driver would spin, since it begins with another attribute; null
    /// when there is none.
    const Entry* spinningEntry(const std::string& driverID) const;
    /// Why the driver cannot be reloaded with this file: line and what would be right; the obstacle where the
    /// file is not whole and the driver may come after the fault. Empty when it can.
    std::string entryFault(const std::string& driverID) const;

private:
    void read(const XmlInput& input);
    void readWorkplace(const TiXmlElement& workplace);
    /// Nothing after it is reached.
    void stopAt(int line, const std::string& text, const std::string& consequence = {});

    std::string m_path;
    std::vector<Entry> m_entries;
    std::vector<Entry> m_unreachedEntries;
    std::vector<Fault> m_faults;
    std::string m_obstacle;
    bool m_isWhole = false;
};
