#include "ParkMarks.h"

#include <sys/stat.h>

#include <cerrno>
#include <sstream>
#include <utility>

#include "FileReplacement.h"
#include "PanelNames.h"
#include "Printable.h"
#include "RegularFile.h"

std::string ParkMarks::read() {
    m_driverIDs.clear();
    m_isUnread = false;
    struct stat status {};
    if (::lstat(m_file.c_str(), &status) != 0 && errno == ENOENT)
        return {};
    const auto file = base::RegularFile::read(m_file);
    if (!file) {
        m_isUnread = true;
        return m_file + " cannot be read: " + file.reason + "; no driver is taken for parked";
    }
    std::string reason;
    std::istringstream lines(file.bytes);
    int number = 0;
    for (std::string line; std::getline(lines, line);) {
        ++number;
        if (line.ends_with('\r'))
            line.pop_back();
        if (line.empty() || line.starts_with('#'))
            continue;
        // The module would find two entries of the one that it starts by itself.
        const bool isPanel = line == protocol::panelDriverID;
        if (base::isPrintable(line) && !isPanel)
            m_driverIDs.insert(line);
        else if (reason.empty())
            reason =
                m_file + " line " + std::to_string(number) + ": " +
                (isPanel ? "the panel driver cannot be parked" : base::quoted(line) + " is no driver ID") +
                "; the line is left out";
    }
    return reason;
}

std::string ParkMarks::set(const std::string& driverID, bool isParked) {
    if (driverID.empty() || driverID.starts_with('#') || !base::isPrintable(driverID))
        return "its ID cannot be written as a line of " + m_file;
    // By now they may be there again.
    if (m_isUnread)
        static_cast<void>(read());
    if (m_isUnread)
        return m_file + " cannot be written: what is in it could not be read, and must not be lost";
    std::set<std::string> driverIDs = m_driverIDs;
    if (isParked)
        driverIDs.insert(driverID);
    else
        driverIDs.erase(driverID);
    std::string reason = write(driverIDs);
    if (reason.empty())
        m_driverIDs = std::move(driverIDs);
    return reason;
}

/// A host that is killed meanwhile, or whose machine loses its power, leaves the marks from before or those
/// from after.
std::string ParkMarks::write(const std::set<std::string>& driverIDs) const {
    std::string text =
        "# Drivers that are parked, an ID a line: stopDriver adds one, startDriver takes it away.\n";
    for (const std::string& driverID : driverIDs)
        text += driverID + "\n";
    const std::string reason = base::replaceFile(m_file, text);
    return reason.empty() ? reason : m_file + " cannot be written: " + reason;
}
