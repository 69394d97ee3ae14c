#pragma once

#include <map>
#include <string>

/// Which drivers an operator has parked: a file with an ID a line, so that they stay parked when the host is
/// started again. A line "# parked by NAME" before an ID says who has parked it elsewhere than at the
/// console. Owned by Workplace; command thread.
class ParkMarks {
public:
    /// A missing file parks nobody.
    explicit ParkMarks(std::string file) : m_file(std::move(file)) {}

    /// Reads the file. What of it cannot be read, and what follows, or empty. Nothing is written to a file
    /// that cannot be read at all: the marks in it would be lost.
    std::string read();

    /// The drivers' IDs, each with who has parked it; nobody is named for the console.
    using Marks = std::map<std::string, std::string>;
    const Marks& marks() const { return m_marks; }
    bool contains(const std::string& driverID) const { return m_marks.contains(driverID); }

    /// Adds or takes away one mark, first on disk. Why it could not be written, after which all is as before;
    /// empty on success.
    std::string add(const std::string& driverID, const std::string& who);
    std::string remove(const std::string& driverID);

private:
    std::string mayChange(const std::string& driverID);
    std::string write(Marks marks);

    const std::string m_file;
    Marks m_marks;
    bool m_isUnread = false;
};
