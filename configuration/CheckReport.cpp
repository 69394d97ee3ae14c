#include "CheckReport.h"

#include <algorithm>
#include <utility>

#include "Printable.h"

namespace {

std::string counted(std::size_t count, const std::string& what) {
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

const char* word(Finding::ESeverity severity) {
    return severity == Finding::ESeverity::Error ? "error" : "warning";
}

}  // namespace

CheckReport::CheckReport(std::string file, std::vector<Finding> findings)
    : m_file(std::move(file)), m_findings(std::move(findings)) {}

std::size_t CheckReport::count(Finding::ESeverity severity) const {
    return static_cast<std::size_t>(
        std::count_if(m_findings.begin(), m_findings.end(),
                      [&](const Finding& finding) { return finding.severity == severity; }));
}

void CheckReport::writeText(std::ostream& out) const {
    for (const Finding& finding : m_findings)
        out << word(finding.severity) << ": " << base::printable(finding.inWords()) << "\n";
    out << base::printable(m_file) << ": " << counted(count(Finding::ESeverity::Error), "error") << ", "
        << counted(count(Finding::ESeverity::Warning), "warning") << std::endl;
}

void CheckReport::writeJson(std::ostream& out) const {
    out << "{\"file\": " << base::jsonText(m_file) << ", \"errors\": " << count(Finding::ESeverity::Error)
        << ", \"warnings\": " << count(Finding::ESeverity::Warning) << ", \"findings\": [";
    const char* separator = "\n";
    for (const Finding& finding : m_findings) {
        out << separator << "  {\"severity\": \"" << word(finding.severity)
            << "\", \"file\": " << base::jsonText(finding.file)
            << ", \"line\": " << (finding.line > 0 ? std::to_string(finding.line) : "null")
            << ", \"text\": " << base::jsonText(finding.text) << "}";
        separator = ",\n";
    }
    out << (m_findings.empty() ? "]}" : "\n]}") << std::endl;
}
