#pragma once

#include <set>
#include <string>

/// Which drivers an operator has parked: a file with an ID a line, so that they stay parked when the host is
/// started again. Owned by Workplace; command thread.
class ParkMarks {
public:
    /// A missing file parks nobody.
    explicit ParkMarks(std::string file) : m_file(std::move(file)) {}

    /// Reads the file. What of it cannot be read, and what follows, or empty. Nothing is written to a file
    /// that cannot be read at all: the marks in it would be lost.
    std::string read();

    const std::set<std::string>& driverIDs() const { return m_driverIDs; }
    bool contains(const std::string& driverID) const { return m_driverIDs.contains(driverID); }

    /// Adds or takes away one mark, first on disk. Why it could not be written, after which all is as before;
    /// empty on success.
    std::string set(const std::string& driverID, bool isParked);

private:
    std::string write(const std::set<std::string>& driverIDs) const;

    const std::string m_file;
    std::set<std::string> m_driverIDs;
    bool m_isUnread = false;
};
