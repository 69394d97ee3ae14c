#include "WorkplaceRewriting.h"

#include <tinyxml.h>

#include "PanelNames.h"
#include "XmlLoader.h"

namespace {

TiXmlElement entryOf(const std::string& driverID, const std::string& type) {
    TiXmlElement entry("mainframeDriver");
    // A reload needs the ID first.
    entry.SetAttribute("driverID", driverID);
    entry.SetAttribute("driverType", type);
    entry.SetAttribute("version", "1.0");
    entry.SetAttribute("interfaceType", "direct");
    return entry;
}

TiXmlElement panelEntry() {
    TiXmlElement entry("mainframeDriver");
    entry.SetAttribute("driverID", protocol::panelDriverID);
    entry.SetAttribute("driverType", protocol::panelType);
    entry.SetAttribute("version", protocol::panelVersion);
    entry.SetAttribute("workingDirectory", protocol::panelDirectory);
    entry.SetAttribute("interfaceType", "direct");
    return entry;
}

void removeEntries(TiXmlElement& workplace, const std::set<std::string>& driverIDs) {
    TiXmlElement* pNext = nullptr;
    for (TiXmlElement* pEntry = workplace.FirstChildElement("mainframeDriver"); pEntry; pEntry = pNext) {
        pNext = pEntry->NextSiblingElement("mainframeDriver");
        const std::string* pID = pEntry->Attribute(std::string("driverID"));
        if (pID && driverIDs.contains(*pID))
            workplace.RemoveChild(pEntry);
    }
}

}  // namespace

std::string withUnannounced(const std::string& bytes, const std::set<std::string>& driverIDs,
                            const std::string& unannouncedType, bool hasPanelEntry) {
    TiXmlDocument document;
    if ((driverIDs.empty() && !hasPanelEntry) || !loadXml(document, bytes).text.empty())
        return bytes;
    TiXmlElement* pRoot = document.FirstChildElement();
    if (!pRoot)
        return bytes;
    for (TiXmlElement* pWorkplace = pRoot->FirstChildElement("workplace"); pWorkplace;
         pWorkplace = pWorkplace->NextSiblingElement("workplace"))
        removeEntries(*pWorkplace, driverIDs);
    TiXmlElement first("workplace");
    first.SetAttribute("id", "0");
    if (hasPanelEntry)
        first.InsertEndChild(panelEntry());
    for (const std::string& driverID : driverIDs)
        first.InsertEndChild(entryOf(driverID, unannouncedType));
    if (TiXmlNode* pBefore = pRoot->FirstChild())
        pRoot->InsertBeforeChild(pBefore, first);
    else
        pRoot->InsertEndChild(first);
    TiXmlPrinter printer;
    printer.SetIndent("");
    document.Accept(&printer);
    return printer.Str();
}
