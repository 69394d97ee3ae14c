#include "WorkplaceFile.h"

#include <tinyxml.h>

#include <exception>
#include <map>

namespace {

WorkplaceFile::Entry readEntry(const TiXmlElement& element) {
    WorkplaceFile::Entry entry;
    entry.line = element.Row();
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
        else if (name == "interfaceType")
            entry.interfaceType = value == "direct"   ? EInterfaceTypes::Direct
                                  : value == "queue"  ? EInterfaceTypes::Queue
                                  : value == "socket" ? EInterfaceTypes::Socket
                                                      : EInterfaceTypes::None;
    }
    return entry;
}

}  // namespace

WorkplaceFile::WorkplaceFile(const std::string& path) : m_path(path) {
    if (path.empty())
        return;
    try {
        read();
    } catch (const std::exception&) {
        // The library throws on some files that it cannot read; the module reports such a file.
    }
}

void WorkplaceFile::read() {
    TiXmlDocument document(m_path);
    if (!document.LoadFile())
        return;
    const TiXmlElement* pRoot = document.FirstChildElement();
    if (!pRoot || pRoot->ValueStr() != "workplaces")
        return;
    for (const TiXmlNode* pNode = pRoot->FirstChild(); pNode; pNode = pNode->NextSibling()) {
        const TiXmlElement* pWorkplace = pNode->ToElement();
        if (!pWorkplace || pWorkplace->ValueStr() != "workplace")
            return;
        for (const TiXmlNode* pChild = pWorkplace->FirstChild(); pChild; pChild = pChild->NextSibling()) {
            const TiXmlElement* pElement = pChild->ToElement();
            if (!pElement)
                return;
            if (pElement->ValueStr() == "mainframeDriver")
                m_entries.push_back(readEntry(*pElement));
        }
    }
    m_isWhole = true;
}

std::string WorkplaceFile::startRefusal() const {
    // Two drivers under one ID would leave the first one running with nobody to stop it.
    std::map<std::string, int> lines;
    for (const Entry& entry : m_entries) {
        const std::string place = m_path + " line " + std::to_string(entry.line) + ": ";
        if (entry.driverID.empty())
            return place + "the mainframeDriver has no driverID; give it one of its own";
        if (entry.interfaceType != EInterfaceTypes::Direct && entry.interfaceType != EInterfaceTypes::Queue)
            continue;
        if (entry.driverID == "PANEL")
            return place +
                   "the panel driver is started without an entry and would run twice; remove the entry";
        const auto [first, isNew] = lines.emplace(entry.driverID, entry.line);
        if (!isNew)
            return place + "the driver ID \"" + entry.driverID + "\" stands in line " +
                   std::to_string(first->second) + " already; give each driver one of its own";
    }
    return {};
}

std::string WorkplaceFile::reloadRefusal(const std::string& driverID) const {
    for (const Entry& entry : m_entries) {
        if (!entry.hasAttributes)
            continue;
        if (!entry.beginsWithDriverID)
            return m_path + " line " + std::to_string(entry.line) +
                   ": driverID must be the first attribute of a mainframeDriver that can be reloaded";
        if (entry.driverID == driverID)
            return driverID.empty() ? m_path + " line " + std::to_string(entry.line) +
                                          ": the mainframeDriver has no driverID"
                                    : std::string();
    }
    if (m_isWhole)
        return m_path + " has no driver \"" + driverID + "\"";
    return {};
}
