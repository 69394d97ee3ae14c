#include "MDMModuleParser.h"

#include <tinyxml.h>

#include <cstdio>

#include "MDMModuleInfo.h"
#include "XmlDocument.h"
#include "sal/Directory.h"
#include "sal/Path.h"

MDMModuleParser::MDMModuleParser() = default;

MDMModuleParser::~MDMModuleParser() = default;

void MDMModuleParser::parseDirectory(std::list<MDMModuleInfo*>& modules, const std::string& directory) const {
    const sal::Path path(directory);
    // Listed before the working directory changes: the directory may be relative to it.
    const std::list<std::string> fileNames =
        sal::Directory(path).getFileList("xml", sal::Directory::eSortByName);

    const sal::Path previous = sal::Path::getCurrentWorkingDirPath();
    if (!sal::Path::setCurrentWorkingDirPath(path))
        return;

    for (const std::string& fileName : fileNames)
        parseXML(modules, directory, fileName);

    sal::Path::setCurrentWorkingDirPath(previous);
}

void MDMModuleParser::parseXML(std::list<MDMModuleInfo*>& modules, const std::string& directory,
                               const std::string& fileName) const {
    TiXmlDocument document(fileName);
    if (!loadXmlDocument(document)) {
        std::printf("error: %s\n", document.ErrorDesc());
        std::fflush(stdout);
        return;
    }

    TiXmlNode* pRoot = document.FirstChild();
    while (pRoot && pRoot->Type() != TiXmlNode::TINYXML_ELEMENT)
        pRoot = pRoot->NextSibling();
    if (!pRoot || pRoot->ValueStr() != "mfDriverModule")
        return;

    for (TiXmlNode* pNode = pRoot->FirstChild(); pNode; pNode = pNode->NextSibling()) {
        if (pNode->Type() != TiXmlNode::TINYXML_ELEMENT || pNode->ValueStr() != "module_type")
            return;
        if (!parseModuleType(modules, pNode, directory))
            return;
    }
}

bool MDMModuleParser::parseModuleType(std::list<MDMModuleInfo*>& modules, TiXmlNode* node,
                                      const std::string& directory) const {
    if (!node)
        return false;

    std::string name;
    std::string type;
    std::string description;
    std::string version;
    std::string pdlFile;
    std::string prefix;
    if (TiXmlElement* pElement = node->ToElement()) {
        for (TiXmlAttribute* pAttribute = pElement->FirstAttribute(); pAttribute;
             pAttribute = pAttribute->Next()) {
            const std::string attribute = pAttribute->Name();
            if (attribute == "name")
                name = pAttribute->ValueStr();
            else if (attribute == "type")
                type = pAttribute->ValueStr();
            else if (attribute == "description")
                description = pAttribute->ValueStr();
            else if (attribute == "version")
                version = pAttribute->ValueStr();
            else if (attribute == "pdlFile")
                pdlFile = pAttribute->ValueStr();
            else if (attribute == "prefix")
                prefix = pAttribute->ValueStr();
        }
    }

    auto* pInfo = new MDMModuleInfo;
    pInfo->setMFDriverFilename(name);
    pInfo->setMFDriverType(type);
    pInfo->setMFDriverDirectory(directory);
    pInfo->setMfDriverDescription(description);
    pInfo->setMfDriverVersion(version);
    pInfo->setMfDriverPDLFile(pdlFile);
    pInfo->setMfDriverPrefix(prefix);
    modules.push_back(pInfo);
    return true;
}
