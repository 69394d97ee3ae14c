#include "ParkMarks.h"

#include <sys/stat.h>

#include <cerrno>
#include <sstream>
#include <string_view>
#include <utility>

#include "FileReplacement.h"
#include "PanelNames.h"
#include "Printable.h"
#include "RegularFile.h"

namespace {

constexpr std::string_view s_by = "# parked by ";

}  // namespace

std::string ParkMarks::read() {
    m_marks.clear();
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
    std::string who;
    int number = 0;
    for (std::string line; std::getline(lines, line);) {
        ++number;
        if (line.ends_with('\r'))
            line.pop_back();
        if (line.empty() || line.starts_with('#')) {
            who = line.starts_with(s_by) ? base::printable(line.substr(s_by.size())) : "";
            continue;
        }
        // The module would find two entries of the one that it starts by itself.
        const bool isPanel = line == protocol::panelDriverID;
        if (base::isPrintable(line) && !isPanel)
            m_marks.emplace(line, who);
        else if (reason.empty())
            reason =
                m_file + " line " + std::to_string(number) + ": " +
                (isPanel ? "the panel driver cannot be parked" : base::quoted(line) + " is no driver ID") +
                "; the line is left out";
        who.clear();
    }
    return reason;
}

std::string ParkMarks::add(const std::string& driverID, const std::string& who) {
    if (std::string reason = mayChange(driverID); !reason.empty())
        return reason;
    Marks marks = m_marks;
    marks.insert_or_assign(driverID, base::printable(who));
    return write(std::move(marks));
}

std::string ParkMarks::remove(const std::string& driverID) {
    if (std::string reason = mayChange(driverID); !reason.empty())
        return reason;
    Marks marks = m_marks;
    marks.erase(driverID);
    return write(std::move(marks));
}

/// Why the file cannot have another mark of this driver, or empty.
std::string ParkMarks::mayChange(const std::string& driverID) {
    if (driverID.empty() || driverID.starts_with('#') || !base::isPrintable(driverID))
        return "its ID cannot be written as a line of " + m_file;
    // By now they may be there again.
    if (m_isUnread)
        static_cast<void>(read());
    if (m_isUnread)
        return m_file + " cannot be written: what is in it could not be read, and must not be lost";
    return {};
}

/// A host that is killed meanwhile, or whose machine loses its power, leaves the marks from before or those
/// from after.
std::string ParkMarks::write(Marks marks) {
    std::string text =
        "# Drivers that are parked, an ID a line: stopDriver adds one, startDriver takes it away.\n";
    for (const auto& [driverID, who] : marks)
        text += (who.empty() ? "" : std::string(s_by) + who + "\n") + driverID + "\n";
    if (const std::string reason = base::replaceFile(m_file, text); !reason.empty())
        return m_file + " cannot be written: " + reason;
    m_marks = std::move(marks);
    return {};
}
