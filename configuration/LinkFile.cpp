#include "LinkFile.h"

#include <tinyxml.h>

#include <algorithm>
#include <charconv>
#include <filesystem>

#include "DirectoryPath.h"
#include "Printable.h"
#include "RegularFile.h"
#include "UnreadParts.h"
#include "XmlInput.h"
#include "XmlLoader.h"

namespace {

constexpr std::size_t s_longestSite = 64;
constexpr std::size_t s_longestSecret = 4096;
constexpr int s_usualPort = 1883;
constexpr int s_usualSecurePort = 8883;
constexpr int s_longestExpiry = 3600;
constexpr int s_longestSpread = 600;

const XmlFormat& format() {
    static const XmlFormat s_broker{{"host", "port", "credentials", "authorities", "certificate", "key"}, {}};
    static const XmlFormat s_driver{{"driver"}, {}};
    static const XmlFormat s_link{
        {"site", "to", "expiry", "spread", "transit"},
        {{"broker", &s_broker}, {"export", &s_driver}, {"import", &s_driver}, {"allow", &s_driver}}};
    return s_link;
}

bool isOfThisMachine(const std::string& host) {
    return host == "localhost" || host == "::1" || host.starts_with("127.");
}

}  // namespace

/// One reading of a file.
class LinkFile::Reading {
public:
    Reading(const std::string& path, const std::string& driverID, std::vector<Finding>& findings)
        : m_path(path), m_directory(std::filesystem::path(path).parent_path()), m_findings(findings) {
        m_settings.farSite = driverID;
    }

    LinkSettings read() {
        const XmlInput input = XmlInput::read(m_path);
        TiXmlDocument document(m_path);
        if (input.finding) {
            m_findings.push_back(*input.finding);
            m_findings.back().severity = Finding::ESeverity::Error;
            return m_settings;
        }
        const XmlFault fault =
            input.bytes ? loadXml(document, *input.bytes) : XmlFault{0, "cannot be read: " + input.error};
        const TiXmlElement* const pRoot = document.RootElement();
        if (!fault.text.empty())
            error(fault.line, fault.text);
        else if (!pRoot)
            error(0, "holds no element; its root must be <link>");
        else if (pRoot->ValueStr() != "link")
            error(pRoot->Row(),
                  "the root is <" + base::printable(pRoot->ValueStr()) + ">; it must be <link>");
        else
            readLink(*pRoot);
        std::stable_sort(m_findings.begin(), m_findings.end(),
                         [](const Finding& left, const Finding& right) { return left.line < right.line; });
        return m_settings;
    }

private:
    void readLink(const TiXmlElement& link) {
        for (const UnreadPart& part : unreadParts(link, format()))
            error(part.line, part.text);
        m_settings.site = site(link, "site", {});
        m_settings.farSite = site(link, "to", m_settings.farSite);
        if (!m_settings.site.empty() && m_settings.site == m_settings.farSite)
            error(link.Row(), "the link leads from " + base::quoted(m_settings.site) +
                                  " to itself; to=\"...\" names the other site");
        m_settings.expiry = std::chrono::seconds(number(link, "expiry", 5, 1, s_longestExpiry));
        m_settings.spread = std::chrono::seconds(number(link, "spread", 5, 0, s_longestSpread));
        m_settings.hasTransit = flag(link, "transit");
        int brokers = 0;
        for (const TiXmlElement* pPart = link.FirstChildElement(); pPart;
             pPart = pPart->NextSiblingElement()) {
            const std::string& name = pPart->ValueStr();
            if (name == "broker" && ++brokers > 1)
                error(pPart->Row(), "a second <broker>; a link has one");
            else if (name == "broker")
                readBroker(*pPart);
            else if (name == "export")
                readDriver(*pPart, m_settings.exported);
            else if (name == "import")
                readDriver(*pPart, m_settings.imported);
            else if (name == "allow")
                readDriver(*pPart, m_settings.allowed);
        }
        if (brokers == 0)
            error(link.Row(), "the link has no broker; add <broker host=\"...\"/>");
    }

    void readBroker(const TiXmlElement& broker) {
        LinkSettings::Broker& found = m_settings.broker;
        found.host = text(broker, "host");
        if (found.host.empty())
            error(broker.Row(), "the broker has no host; give it a name or an address");
        else if (!base::isPrintable(found.host) || found.host.find(' ') != std::string::npos)
            error(broker.Row(),
                  "host=" + base::quoted(found.host) + " is no name and no address of a machine");
        found.authorities = file(broker, "authorities");
        found.certificate = file(broker, "certificate");
        found.key = file(broker, "key");
        if (!found.key.empty())
            static_cast<void>(secret(broker, "key", found.key));
        if (found.certificate.empty() != found.key.empty())
            error(broker.Row(), "certificate=\"...\" and key=\"...\" belong together; give both or none");
        if (!found.certificate.empty() && !found.isSecure())
            error(broker.Row(),
                  "a certificate needs authorities=\"...\", the file of those whose broker is trusted");
        found.port = number(broker, "port", found.isSecure() ? s_usualSecurePort : s_usualPort, 1, 65535);
        if (const std::string path = file(broker, "credentials"); !path.empty())
            found.password = password(broker, path);
        if (!found.isSecure() && !found.host.empty() && !isOfThisMachine(found.host))
            m_findings.push_back(
                {Finding::ESeverity::Warning, m_path, broker.Row(),
                 "what passes to " + base::quoted(found.host) +
                     " can be read and changed on its way; authorities=\"...\" gives it TLS"});
    }

    std::string password(const TiXmlElement& broker, const std::string& path) {
        const std::string bytes = secret(broker, "credentials", path);
        std::string first = bytes.substr(0, bytes.find('\n'));
        if (!bytes.empty() && (first.empty() || first.find('\0') != std::string::npos))
            error(broker.Row(), "the file " + path + " has no password in its first line");
        return first;
    }

    /// The bytes of a file that nobody else may read.
    std::string secret(const TiXmlElement& element, const std::string& name, const std::string& path) {
        const base::RegularFile read = base::RegularFile::read(path, s_longestSecret * 4);
        if (!read)
            return {};
        if ((read.mode & 077) != 0)
            error(element.Row(), name + ": others may read the file " + path + "; chmod 0600 " + path);
        if (read.bytes.empty())
            error(element.Row(), name + ": the file " + path + " is empty");
        return read.bytes;
    }

    /// The path of a file that can be read; empty where none is named.
    std::string file(const TiXmlElement& element, const std::string& name) {
        const std::string given = text(element, name);
        if (given.empty())
            return {};
        std::string path = (m_directory / given).string();
        const base::RegularFile read = base::RegularFile::read(path);
        if (!read)
            error(element.Row(),
                  name + ": the file " + base::printable(path) + " cannot be read: " + read.reason);
        return path;
    }

    void readDriver(const TiXmlElement& element, LinkSettings::Drivers& drivers) {
        const std::string id = text(element, "driver");
        if (id == "*")
            drivers.areAll = true;
        else if (id.empty())
            error(element.Row(),
                  "<" + element.ValueStr() + "> names no driver; write driver=\"ID\" or driver=\"*\"");
        else if (!isID(id))
            error(element.Row(), "driver=" + base::quoted(id) + " is no driver ID, which has no \".\"");
        else
            drivers.ids.insert(id);
    }

    std::string site(const TiXmlElement& link, const std::string& name, const std::string& usual) {
        std::string found = text(link, name);
        if (found.empty())
            found = usual;
        if (found.empty())
            error(link.Row(), "the link has no " + name + "; give this workplace a name that no other has");
        else if (!isID(found) || found.size() > s_longestSite || found.find(',') != std::string::npos ||
                 found.front() == ' ' || found.back() == ' ')
            error(link.Row(), name + "=" + base::quoted(found) +
                                  " is no name of a site: at most 64 bytes, none of \".\", \",\" and control "
                                  "characters, no blank at either end");
        return found;
    }

    static bool isID(const std::string& id) {
        return base::isPrintable(id) && id.find('.') == std::string::npos;
    }

    int number(const TiXmlElement& element, const std::string& name, int usual, int lowest, int highest) {
        const std::string given = text(element, name);
        int found = usual;
        if (given.empty())
            return found;
        const auto [end, fault] = std::from_chars(given.data(), given.data() + given.size(), found);
        if (fault != std::errc() || end != given.data() + given.size() || found < lowest || found > highest) {
            error(element.Row(), name + "=" + base::quoted(given) + " is not a whole number from " +
                                     std::to_string(lowest) + " to " + std::to_string(highest));
            return usual;
        }
        return found;
    }

    bool flag(const TiXmlElement& element, const std::string& name) {
        const std::string given = text(element, name);
        if (!given.empty() && given != "true" && given != "false")
            error(element.Row(), name + "=" + base::quoted(given) + R"( is neither "true" nor "false")");
        return given == "true";
    }

    static std::string text(const TiXmlElement& element, const std::string& name) {
        const std::string* const pText = element.Attribute(name);
        return pText ? *pText : std::string();
    }

    void error(int line, const std::string& what) {
        m_findings.push_back({Finding::ESeverity::Error, m_path, line, what});
    }

    const std::string m_path;
    const std::filesystem::path m_directory;
    std::vector<Finding>& m_findings;
    LinkSettings m_settings;
};

std::string LinkFile::place(const std::string& workDirectory, const std::string& workingDirectory) {
    return joinedPath(directoryPath(workDirectory, workingDirectory), s_name);
}

LinkFile::LinkFile(const std::string& path, const std::string& driverID) {
    LinkSettings settings = Reading(path, driverID, m_findings).read();
    if (std::none_of(m_findings.begin(), m_findings.end(),
                     [](const Finding& found) { return found.isError(); }))
        m_settings = std::move(settings);
}
