#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Finding.h"
#include "LinkSettings.h"

/// The file of a link between workplaces, as the link driver and the check of a configuration read it. Read
/// once, within the limits of XmlInput; a file that says something unknown or wrong is not used at all. Any
/// thread.
class LinkFile {
public:
    /// The driver's type in workplace files and its descriptor.
    static constexpr const char* s_driverType = "Link";
    /// Where the file lies in the driver's working directory.
    static constexpr const char* s_name = "link.xml";

    /// The file of a driver whose working directory a workplace file names, in the host's.
    static std::string place(const std::string& workDirectory, const std::string& workingDirectory);

    /// Reads the file and those that it names, which lie beside it unless their paths are absolute. The far
    /// site has the driver's ID unless the file says otherwise.
    LinkFile(const std::string& path, const std::string& driverID);

    /// Nothing when there is an error.
    const std::optional<LinkSettings>& settings() const { return m_settings; }
    /// In the order of the file's lines. Warnings do not keep the link from working.
    const std::vector<Finding>& findings() const { return m_findings; }

private:
    class Reading;

    std::optional<LinkSettings> m_settings;
    std::vector<Finding> m_findings;
};
