#include "MDMModuleHandler.h"

#include <tinyxml.h>

#include <cstdlib>
#include <iostream>

#include "IPanelState.h"
#include "InterfaceIds.h"
#include "MDMFidCreator.h"
#include "MDMModuleChecker.h"
#include "MDMModuleInfo.h"
#include "MDMModuleLoader.h"
#include "MDMModuleParser.h"
#include "PanelNames.h"
#include "XMLVerify.h"
#include "XmlDocument.h"
#include "sal/Assert.h"
#include "sal/CmdParameters.h"
#include "sal/Directory.h"
#include "sal/File.h"
#include "sal/LogManager.h"
#include "sal/Path.h"
#include "sal/Thread.h"

// A start goes: the panel driver, then the configuration file, then /var/data is emptied and the panel's link
// made again, then one driver after the other as the file names them. The panel driver comes up before its
// working directory is prepared. Whatever fails half way leaves in place what was loaded by then.

namespace {

const char* const g_dataDirectory = "/var/data";
const char* const g_panelLink = "/var/data/PANEL";
constexpr unsigned int g_highestWorkplace = 7;
constexpr unsigned int g_spinPause = 100;

bool isElement(const TiXmlNode& node) {
    return node.Type() == TiXmlNode::TINYXML_ELEMENT;
}

/// The number of a "workplace" element. False when it has none from 0 to 7; of several the last counts.
bool readWorkplaceId(TiXmlNode& workplace, int& workplaceId) {
    bool found = false;
    for (TiXmlAttribute* pAttribute = workplace.ToElement()->FirstAttribute(); pAttribute;
         pAttribute = pAttribute->Next()) {
        if (pAttribute->NameTStr() == "id") {
            workplaceId = pAttribute->IntValue();
            found = true;
        }
    }
    return found && static_cast<unsigned int>(workplaceId) <= g_highestWorkplace;
}

void emptyDataDirectory() {
    const std::string directory = g_dataDirectory;
    for (const std::string& entry :
         sal::Directory(sal::Path(directory)).getDirList(sal::Directory::eSortByName))
        sal::File::remove(sal::Path(directory + "/" + entry));
}

bool preparePanelDirectory() {
    sal::Path workingPath = sal::Path::getCurrentWorkingDirPath();
    workingPath.expand(protocol::panelDirectory);
    if (!sal::Directory(workingPath).createDirectory()) {
        std::cout << "Failed to create PANEL working directory" << std::endl;
        return false;
    }
    if (!sal::File::symlink(workingPath, sal::Path(g_panelLink), true)) {
        std::cout << "Failed to create symlink to file driver working directory "
                  << workingPath.getPathString() << " -> " << g_panelLink << " for PANEL driver" << std::endl;
        return false;
    }
    return true;
}

}  // namespace

MDMModuleHandler::MDMModuleHandler() {
    m_pLog = sal::SingletonDll<sal::LogManager>::getInstance()->getLogOutput("MDM");
    SAL_ASSERT(m_pLog);
}

MDMModuleHandler::~MDMModuleHandler() {
    for (MDMModuleInfo* pInfo : m_modules)
        delete pInfo;
    delete m_pMidCreator;
    m_pMidCreator = nullptr;
    delete m_pModuleLoader;
    m_pModuleLoader = nullptr;
    delete m_pModuleChecker;
    m_pModuleChecker = nullptr;
    delete m_pModuleParser;
    m_pModuleParser = nullptr;
    m_pLog = nullptr;
    m_pPanelState = nullptr;
}

void MDMModuleHandler::init() {
    m_pMidCreator = new MDMFidCreator;
    SAL_ASSERT(m_pMidCreator);
    m_pModuleLoader = new MDMModuleLoader;
    SAL_ASSERT(m_pModuleLoader);
    m_pModuleChecker = new MDMModuleChecker;
    SAL_ASSERT(m_pModuleChecker);
    m_pModuleParser = new MDMModuleParser;
    SAL_ASSERT(m_pModuleParser);
    m_modules.clear();
}

void MDMModuleHandler::setFidDistributor(MDMFidDistributor* distributor) {
    if (m_pModuleLoader)
        m_pModuleLoader->setFidDistributor(distributor);
}

void MDMModuleHandler::setPanelStateInterface(IPanelState* pPanelState) {
    m_pPanelState = pPanelState;
}

IInterface* MDMModuleHandler::queryInterface(unsigned int id) {
    return id == IID_IMDMConfiguration ? static_cast<IMDMConfiguration*>(this) : nullptr;
}

void MDMModuleHandler::searchMfDriver(const std::string& directory) {
    if (!m_pModuleParser)
        return;
    m_pModuleParser->parseDirectory(m_modules, directory);

    if (!m_pPanelState)
        return;
    int index = 0;
    for (const MDMModuleInfo* pInfo : m_modules) {
        const std::string key = protocol::catalogueKey + std::to_string(index++);
        m_pPanelState->setStateValue(key + ".TYPE", pInfo->getMFDriverType());
        m_pPanelState->setStateValue(key + ".VERSION", pInfo->getMfDriverVersion());
        m_pPanelState->setStateValue(key + ".DESCRIPTION", pInfo->getMfDriverDescription());
        m_pPanelState->setStateValue(key + ".PREFIX", pInfo->getMfDriverPrefix());
    }
    m_pPanelState->setStateValueInt(protocol::catalogueCountKey, index);
}

bool MDMModuleHandler::startMfDriver(int workplaceId, const std::string& driverID,
                                     const std::string& driverType, const std::string& version,
                                     const std::string& workingDirectory, const std::string& ipAddress,
                                     const std::string& networkAdapter, EInterfaceTypes interfaceType) {
    if (!m_pModuleLoader)
        return false;
    MDMModuleInfo* pInfo = nullptr;
    return m_pModuleLoader->loadMfModule(m_modules, workplaceId, driverID, driverType, version,
                                         workingDirectory, ipAddress, networkAdapter, interfaceType, pInfo);
}

bool MDMModuleHandler::startMfDrivers(const std::string& configurationPath) {
    if (!startMfDriver(0, protocol::panelDriverID, protocol::panelType, protocol::panelVersion,
                       protocol::panelDirectory, "", "", EInterfaceTypes::Direct)) {
        m_pLog->level(2) << "Failed to start panel driver" << std::endl;
        return false;
    }
    if (configurationPath.empty())
        return true;
    m_configurationPath = configurationPath;

    TiXmlDocument document(configurationPath);
    if (!loadConfiguration(document, configurationPath))
        return true;

    emptyDataDirectory();
    if (!preparePanelDirectory())
        return false;

    const EWalk end =
        walkConfiguration(document, configurationPath, [this](int workplaceId, TiXmlNode* pDriverElement) {
            MDMModuleInfo* pInfo = nullptr;
            return parseMainframeDriver(workplaceId, pDriverElement, pInfo) ? EWalk::Continue : EWalk::Fail;
        });
    return end != EWalk::Fail;
}

bool MDMModuleHandler::reloadMfDriver(const std::string& driverID) {
    if (m_configurationPath.empty())
        return false;
    TiXmlDocument document(m_configurationPath);
    if (!loadConfiguration(document, m_configurationPath))
        return false;

    const EWalk end = walkConfiguration(
        document, m_configurationPath, [this, &driverID](int workplaceId, TiXmlNode* pDriverElement) {
            const TiXmlAttribute* pFirst = pDriverElement->ToElement()->FirstAttribute();
            if (!pFirst)
                return EWalk::Continue;
            // A driver entry that can be reloaded begins with its driverID; any other holds the reload here.
            while (pFirst->NameTStr() != "driverID")
                sal::Thread::mssleep(g_spinPause);
            if (pFirst->ValueStr() != driverID)
                return EWalk::Continue;

            if (m_pModuleLoader)
                m_pModuleLoader->unLoadMfModule(driverID);
            MDMModuleInfo* pInfo = nullptr;
            return parseMainframeDriver(workplaceId, pDriverElement, pInfo) ? EWalk::Succeed : EWalk::Fail;
        });
    return end == EWalk::Succeed;
}

std::string MDMModuleHandler::getPDLFilename(std::string& driverType) const {
    for (const MDMModuleInfo* pInfo : m_modules) {
        if (pInfo->getMFDriverType() == driverType)
            return pInfo->getMfDriverPDLFile();
    }
    return {};
}

sal::Module* MDMModuleHandler::getModule(const std::string& driverID) {
    return m_pModuleLoader ? m_pModuleLoader->getModule(driverID) : nullptr;
}

void MDMModuleHandler::showModules() {
    for (const MDMModuleInfo* pInfo : m_modules)
        pInfo->showState();
}

bool MDMModuleHandler::parseMainframeDriver(int workplaceId, TiXmlNode* driverElement,
                                            MDMModuleInfo*& moduleInfo) {
    const TiXmlDocument* pDoc = driverElement->GetDocument();
    SAL_ASSERT(pDoc);

    std::string driverID;
    std::string driverType;
    std::string version;
    std::string workingDirectory;
    std::string ipAddress;
    std::string networkAdapter;
    auto interfaceType = EInterfaceTypes::None;
    for (TiXmlAttribute* pAttribute = driverElement->ToElement()->FirstAttribute(); pAttribute;
         pAttribute = pAttribute->Next()) {
        const std::string& name = pAttribute->NameTStr();
        const std::string& value = pAttribute->ValueStr();
        if (name == "driverID")
            driverID = value;
        else if (name == "driverType")
            driverType = value;
        else if (name == "version")
            version = value;
        else if (name == "workingDirectory")
            workingDirectory = value;
        else if (name == "ipAddress")
            ipAddress = value;
        else if (name == "networkAdapter")
            networkAdapter = value;
        else if (name == "interfaceType")
            interfaceType = value == "direct"   ? EInterfaceTypes::Direct
                            : value == "queue"  ? EInterfaceTypes::Queue
                            : value == "socket" ? EInterfaceTypes::Socket
                                                : EInterfaceTypes::None;
    }

    if (!m_pModuleLoader) {
        m_pLog->level(2) << "No module loader - can't load mainframe driver" << std::endl;
        return false;
    }
    if (!m_pModuleLoader->loadMfModule(m_modules, workplaceId, driverID, driverType, version,
                                       workingDirectory, ipAddress, networkAdapter, interfaceType,
                                       moduleInfo))
        m_pLog->level(2) << "Failed to load \"" << driverID << "\" mainframe driver" << std::endl;
    return true;
}

bool MDMModuleHandler::shellCmdReloadDriver(sal::CmdParameters& parameters) {
    return reloadMfDriver(parameters.argument(0));
}

bool MDMModuleHandler::shellCmdScanDirectory(sal::CmdParameters& parameters) {
    searchMfDriver(parameters.argument(0));
    return true;
}

bool MDMModuleHandler::shellCmdListAvailables(sal::CmdParameters&) {
    showModules();
    return true;
}

bool MDMModuleHandler::shellCmdLoadDriver(sal::CmdParameters& parameters) {
    // Capitalised here, in lower case in the configuration file: both are in use.
    const std::string word = parameters.argument(7);
    const auto interfaceType = word == "Queue"    ? EInterfaceTypes::Queue
                               : word == "Direct" ? EInterfaceTypes::Direct
                               : word == "Socket" ? EInterfaceTypes::Socket
                                                  : EInterfaceTypes::None;
    if (!m_pModuleLoader)
        return false;
    MDMModuleInfo* pInfo = nullptr;
    return m_pModuleLoader->loadMfModule(
        m_modules, std::atoi(parameters.argument(0).c_str()), parameters.argument(1), parameters.argument(2),
        parameters.argument(3), parameters.argument(4), parameters.argument(5), parameters.argument(6),
        interfaceType, pInfo);
}

bool MDMModuleHandler::loadConfiguration(TiXmlDocument& document, const std::string& path) const {
    if (!loadXmlDocument(document)) {
        m_pLog->level(2) << "Failed to open \"" << path << "\" ('" << document.ErrorDesc() << "')"
                         << std::endl;
        return false;
    }
    if (!XMLVerify::verifySignature(sal::Path(path)))
        m_pLog->level(3) << "\"" << path << "\" has invalid signature" << std::endl;
    return true;
}

MDMModuleHandler::EWalk MDMModuleHandler::walkConfiguration(TiXmlDocument& document, const std::string& path,
                                                            const EntryAction& action) const {
    TiXmlNode* pRoot = document.FirstChild();
    while (pRoot && !isElement(*pRoot))
        pRoot = pRoot->NextSibling();
    if (!pRoot)
        return parseError(path, -1);
    if (pRoot->ValueStr() != "workplaces")
        return parseError(path, pRoot->Row());

    for (TiXmlNode* pWorkplace = pRoot->FirstChild(); pWorkplace; pWorkplace = pWorkplace->NextSibling()) {
        if (!isElement(*pWorkplace) || pWorkplace->ValueStr() != "workplace")
            return parseError(path, pWorkplace->Row());
        int workplaceId = 0;
        if (!readWorkplaceId(*pWorkplace, workplaceId)) {
            m_pLog->level(2) << "Workplace ID missing or invalid in \"" << path << "\" line "
                             << pWorkplace->Row() << std::endl;
            return EWalk::Fail;
        }
        for (TiXmlNode* pEntry = pWorkplace->FirstChild(); pEntry; pEntry = pEntry->NextSibling()) {
            if (!isElement(*pEntry))
                return parseError(path, pWorkplace->Row());
            // "ports" and whatever else stands here is none of the drivers' business, with all inside it.
            if (pEntry->ValueStr() != "mainframeDriver")
                continue;
            const EWalk next = action(workplaceId, pEntry);
            if (next != EWalk::Continue)
                return next;
        }
    }
    return EWalk::Continue;
}

MDMModuleHandler::EWalk MDMModuleHandler::parseError(const std::string& path, int line) const {
    m_pLog->level(2) << "Parse error in \"" << path << "\" line " << line << std::endl;
    return EWalk::Fail;
}
