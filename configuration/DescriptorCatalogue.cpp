#include "DescriptorCatalogue.h"

#include <sys/stat.h>
#include <tinyxml.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <tuple>
#include <utility>

#include "Printable.h"
#include "UnreadParts.h"
#include "XmlInput.h"
#include "XmlLoader.h"
#include "sal/Directory.h"
#include "sal/Path.h"

namespace {

std::string joined(const std::string& directory, const std::string& name) {
    sal::Path path(directory);
    path.expand(name);
    return path.getPathString();
}

/// Line ends and tabs, as a description may have them, do no harm.
bool isShowable(std::string text) {
    std::erase_if(text, [](char c) { return c == '\n' || c == '\r' || c == '\t'; });
    return base::isPrintable(text);
}

}  // namespace

DescriptorCatalogue::DescriptorCatalogue(const std::vector<std::string>& directories) {
    std::set<std::pair<dev_t, ino_t>> searched;
    for (const std::string& directory : directories) {
        struct stat status {};
        if (::stat(directory.c_str(), &status) != 0)
            warn(directory, 0,
                 std::string("cannot be searched: ") + std::strerror(errno) + "; no drivers are found there");
        else if (!S_ISDIR(status.st_mode))
            warn(directory, 0, "is not a directory; no drivers are found there");
        else if (searched.emplace(status.st_dev, status.st_ino).second)
            readDirectory(directory);
    }
}

void DescriptorCatalogue::readDirectory(const std::string& directory) {
    for (const std::string& name :
         sal::Directory(sal::Path(directory)).getFileList("xml", sal::Directory::eSortByName))
        readFile(directory, joined(directory, name));
}

void DescriptorCatalogue::readFile(const std::string& directory, const std::string& file) {
    const XmlInput input = XmlInput::read(file);
    if (input.finding) {
        warn(file, input.finding->line, input.finding->text + "; the descriptor is left out");
        return;
    }
    if (!input.bytes) {
        warn(file, 0, "cannot be read: " + input.error + "; the descriptor is skipped");
        return;
    }
    TiXmlDocument document(file);
    if (const XmlFault fault = loadXml(document, *input.bytes); !fault.text.empty())
        warn(file, fault.line, fault.text + "; the descriptor is skipped");
    else
        readDocument(document, directory, file);
}

void DescriptorCatalogue::readDocument(const TiXmlDocument& document, const std::string& directory,
                                       const std::string& file) {
    const TiXmlElement* pRoot = document.FirstChildElement();
    if (!pRoot || pRoot->ValueStr() != "mfDriverModule") {
        warn(file, pRoot ? pRoot->Row() : 0,
             std::string(pRoot ? "the root is <" + pRoot->ValueStr() + ">" : "holds no element") +
                 "; a descriptor's root must be <mfDriverModule>, and without it the file is skipped");
        return;
    }
    for (const UnreadPart& part : unreadParts(*pRoot, XmlFormat::descriptor()))
        warn(file, part.line, part.text);
    for (const TiXmlNode* pNode = pRoot->FirstChild(); pNode; pNode = pNode->NextSibling()) {
        const TiXmlElement* pType = pNode->ToElement();
        if (!pType || pType->ValueStr() != "module_type") {
            warn(file, pNode->Row(), "only <module_type> may stand here; the file is read up to this line");
            return;
        }
        // The module prints what a descriptor says itself, past all that makes text printable.
        for (const TiXmlAttribute* pAttribute = pType->FirstAttribute(); pAttribute;
             pAttribute = pAttribute->Next()) {
            if (!isShowable(pAttribute->ValueStr()))
                warn(file, pType->Row(),
                     "the " + std::string(pAttribute->Name()) + " " + base::quoted(pAttribute->ValueStr()) +
                         " holds a character that cannot be shown, and \"modules\" prints it as it is");
        }
        const auto attribute = [&](const char* name) {
            const std::string* pValue = pType->Attribute(std::string(name));
            return pValue ? *pValue : std::string();
        };
        const std::string name = attribute("name");
        m_records.push_back({file, pType->Row(), name, joined(directory, name), attribute("type"),
                             attribute("version"), attribute("description"), attribute("pdlFile"),
                             attribute("prefix")});
    }
}

bool DescriptorCatalogue::Record::isSame(const Record& other) const {
    return std::tie(module, type, version, description, pdlFile, prefix) ==
           std::tie(other.module, other.type, other.version, other.description, other.pdlFile, other.prefix);
}

const DescriptorCatalogue::Record* DescriptorCatalogue::find(const std::string& type,
                                                             const std::string& version) const {
    const auto found = std::find_if(m_records.begin(), m_records.end(), [&](const Record& record) {
        return record.type == type && record.version == version;
    });
    return found == m_records.end() ? nullptr : &*found;
}

void DescriptorCatalogue::add(const DescriptorCatalogue& other, const std::set<std::string>& files) {
    const auto isOfThese = [&](const auto& item) { return files.contains(item.file); };
    std::copy_if(other.m_records.begin(), other.m_records.end(), std::back_inserter(m_records), isOfThese);
    std::copy_if(other.m_findings.begin(), other.m_findings.end(), std::back_inserter(m_findings), isOfThese);
}

std::vector<Finding> DescriptorCatalogue::findings() const {
    std::vector<Finding> found = m_findings;
    for (const Record& record : m_records) {
        if (const std::string fault = moduleFault(record); !fault.empty())
            found.push_back({Finding::ESeverity::Warning, record.file, record.line, fault});
    }
    return found;
}

std::string DescriptorCatalogue::moduleFault(const Record& record) {
    if (record.name.empty())
        return "the module_type has no name; it is the file name of the driver module";
    const std::string module = "the module file " + record.module;
    struct stat status {};
    if (::stat(record.module.c_str(), &status) != 0)
        return module + " cannot be loaded: " + std::strerror(errno);
    return S_ISREG(status.st_mode) ? std::string() : module + " is no regular file";
}

void DescriptorCatalogue::warn(const std::string& file, int line, const std::string& text) {
    m_findings.push_back({Finding::ESeverity::Warning, file, line, text});
}
