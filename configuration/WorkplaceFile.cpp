#include "WorkplaceFile.h"

#include <tinyxml.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>

#include "Printable.h"
#include "UnreadParts.h"
#include "XmlLoader.h"

namespace {

WorkplaceFile::Entry readEntry(const TiXmlElement& element, int workplaceID) {
    WorkplaceFile::Entry entry;
    entry.line = element.Row();
    entry.workplaceID = workplaceID;
    for (const TiXmlAttribute* pAttribute = element.FirstAttribute(); pAttribute;
         pAttribute = pAttribute->Next()) {
        const std::string name = pAttribute->Name();
        const std::string value = pAttribute->ValueStr();
        if (!entry.hasAttributes)
            entry.beginsWithDriverID = name == "driverID";
        entry.hasAttributes = true;
        if (name == "driverID")
            entry.driverID = value;
        else if (name == "driverType")
            entry.driverType = value;
        else if (name == "version")
            entry.version = value;
        else if (name == "workingDirectory")
            entry.workingDirectory = value;
        else if (name == "ipAddress")
            entry.ipAddress = value;
        else if (name == "networkAdapter")
            entry.networkAdapter = value;
        else if (name == "interfaceType")
            entry.interfaceWord = value;
    }
    entry.interfaceType = entry.interfaceWord == "direct"   ? EInterfaceTypes::Direct
                          : entry.interfaceWord == "queue"  ? EInterfaceTypes::Queue
                          : entry.interfaceWord == "socket" ? EInterfaceTypes::Socket
                                                            : EInterfaceTypes::None;
    return entry;
}

std::string kindOf(const TiXmlNode& node) {
    if (node.ToElement())
        return "an element <" + node.ValueStr() + ">";
    return node.ToComment() ? "a comment" : node.ToText() ? "text" : "markup that is no element";
}

}  // namespace

WorkplaceFile::WorkplaceFile(const std::string& path, const XmlInput& input) : m_path(path) {
    if (!path.empty())
        read(input);
}

void WorkplaceFile::stopAt(int line, const std::string& text, const std::string& consequence) {
    m_isWhole = false;
    m_faults.push_back({line, consequence.empty() ? text : text + "; " + consequence});
    if (m_obstacle.empty())
        m_obstacle = Finding{Finding::ESeverity::Warning, m_path, line, text}.inWords();
}

void WorkplaceFile::read(const XmlInput& input) {
    TiXmlDocument document(m_path);
    const XmlFault fault =
        input.bytes ? loadXml(document, *input.bytes) : XmlFault{0, "cannot be read: " + input.error};
    if (!fault.text.empty()) {
        stopAt(fault.line, fault.text, "only the panel driver is started");
        return;
    }
    m_isWhole = true;
    const TiXmlElement* pRoot = document.FirstChildElement();
    if (!pRoot) {
        stopAt(0, "holds no element; its root must be <workplaces>");
        return;
    }
    if (pRoot->ValueStr() != "workplaces") {
        stopAt(pRoot->Row(), "the root is <" + pRoot->ValueStr() + ">; it must be <workplaces>");
        return;
    }
    // What is not read is why something else is missing.
    for (const UnreadPart& part : unreadParts(*pRoot, XmlFormat::workplaces()))
        m_faults.push_back({part.line, part.text});
    for (const TiXmlNode* pNode = pRoot->FirstChild(); pNode; pNode = pNode->NextSibling()) {
        const TiXmlElement* pWorkplace = pNode->ToElement();
        if (pWorkplace && pWorkplace->ValueStr() == "workplace")
            readWorkplace(*pWorkplace);
        else
            stopAt(pNode->Row(), kindOf(*pNode) + " may not stand here, only <workplace>",
                   "no driver behind it is started");
    }
}

void WorkplaceFile::readWorkplace(const TiXmlElement& workplace) {
    const std::string* pID = workplace.Attribute(std::string("id"));
    // As the module reads it.
    const int id = pID ? std::atoi(pID->c_str()) : -1;
    if (!pID)
        stopAt(workplace.Row(), "the workplace has no id; give it a number from 0 to 7",
               "it and what stands behind it is not started");
    else if (id < 0 || id > 7)
        stopAt(workplace.Row(), "the workplace id " + base::quoted(*pID) + " is not a number from 0 to 7",
               "it and what stands behind it is not started");
    else if (!std::all_of(pID->begin(), pID->end(), [](unsigned char c) { return std::isdigit(c); }) ||
             pID->empty())
        m_faults.push_back({workplace.Row(), "the workplace id " + base::quoted(*pID) + " is read as " +
                                                 std::to_string(id) + "; write a number from 0 to 7"});

    for (const TiXmlNode* pChild = workplace.FirstChild(); pChild; pChild = pChild->NextSibling()) {
        const TiXmlElement* pElement = pChild->ToElement();
        if (!pElement)
            stopAt(pChild->Row(), kindOf(*pChild) + " may not stand in a workplace",
                   "no driver behind it is started");
        else if (pElement->ValueStr() == "mainframeDriver")
            (m_isWhole ? m_entries : m_unreachedEntries).push_back(readEntry(*pElement, id));
    }
}

const WorkplaceFile::Entry* WorkplaceFile::spinningEntry(const std::string& driverID) const {
    for (const Entry& entry : m_entries) {
        if (!entry.hasAttributes)
            continue;
        if (!entry.beginsWithDriverID)
            return &entry;
        if (entry.driverID == driverID)
            return nullptr;
    }
    return nullptr;
}

std::string WorkplaceFile::entryFault(const std::string& driverID) const {
    if (const Entry* pEntry = spinningEntry(driverID))
        return m_path + " line " + std::to_string(pEntry->line) +
               ": driverID must be the first attribute of a mainframeDriver that can be reloaded";
    const auto isIt = [&](const Entry& entry) { return entry.hasAttributes && entry.driverID == driverID; };
    const auto entry = std::find_if(m_entries.begin(), m_entries.end(), isIt);
    if (entry != m_entries.end() && driverID.empty())
        return m_path + " line " + std::to_string(entry->line) + ": the mainframeDriver has no driverID";
    if (entry == m_entries.end())
        return m_isWhole ? m_path + " has no driver \"" + driverID + "\"" : m_obstacle;
    return {};
}
