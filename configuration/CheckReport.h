#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "Finding.h"

/// What the check of a configuration has found, for people and for programs. Any thread.
class CheckReport {
public:
    /// The report on a workplace file.
    CheckReport(std::string file, std::vector<Finding> findings);

    bool hasErrors() const { return count(Finding::ESeverity::Error) > 0; }
    bool hasWarnings() const { return count(Finding::ESeverity::Warning) > 0; }
    /// A line for each finding ("error: FILE line N: ..."), and one that counts them.
    void writeText(std::ostream& out) const;
    /// An object with "file", "errors", "warnings" and "findings", each of these with "severity", "file",
    /// "line" (null for a whole file) and "text". Bytes that are no UTF-8 are written as U+FFFD.
    void writeJson(std::ostream& out) const;

private:
    std::size_t count(Finding::ESeverity severity) const;

    std::string m_file;
    std::vector<Finding> m_findings;
};
