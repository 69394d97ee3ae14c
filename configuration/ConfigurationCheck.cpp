#include "ConfigurationCheck.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <map>
#include <set>
#include <utility>

#include "DirectoryPath.h"
#include "LinkFile.h"
#include "PanelNames.h"
#include "Printable.h"
#include "QueueNames.h"
#include "sal/HostAddress.h"
#include "sal/MessageQueue.h"
#include "sal/Path.h"

namespace {

using Entry = WorkplaceFile::Entry;

/// Names of files and directories, and the strings of a message, end there.
constexpr std::size_t s_longestName = 255;
/// What six strings may have together in the message that configures a driver process.
constexpr std::size_t s_longestConfiguration = 1008;

std::string bytes(std::size_t count, std::size_t most) {
    return "has " + std::to_string(count) + " bytes; at most " + std::to_string(most);
}

enum class EOccasion { Start, Question, Reload };

/// One run of the check.
class Run {
public:
    Run(const WorkplaceFile& workplace, const DescriptorCatalogue& catalogue,
        const std::string& workDirectory, const ConfigurationCheck::Machine& machine, EOccasion occasion,
        const std::string* pReloaded = nullptr)
        : m_workplace(workplace),
          m_catalogue(catalogue),
          m_workDirectory(workDirectory),
          m_machine(machine),
          m_occasion(occasion),
          m_pSpinning(pReloaded ? workplace.spinningEntry(*pReloaded) : nullptr) {}

    std::vector<Finding> findings() {
        // Missing, ill-formed, or another kind of file.
        const bool isOfNoUse = m_occasion == EOccasion::Question && !m_workplace.isWhole() &&
                               m_workplace.entries().empty() && m_workplace.unreachedEntries().empty();
        for (const WorkplaceFile::Fault& fault : m_workplace.faults())
            m_found.push_back({isOfNoUse ? Finding::ESeverity::Error : Finding::ESeverity::Warning,
                               m_workplace.path(), fault.line, fault.text});
        checkOwnAdapter();
        m_directories.emplace(directoryPath(m_workDirectory, protocol::panelDirectory), "the panel driver's");
        for (const Entry& entry : m_workplace.entries())
            checkEntry(entry);
        m_isReached = false;
        for (const Entry& entry : m_workplace.unreachedEntries())
            checkEntry(entry);
        std::stable_sort(m_found.begin(), m_found.end(),
                         [](const Finding& left, const Finding& right) { return left.line < right.line; });

        checkPanel();
        // What is wrong there is why the workplace's entries have no driver.
        std::vector<Finding> all = descriptorFindings();
        all.insert(all.end(), m_found.begin(), m_found.end());
        all.insert(all.end(), m_foundInLinks.begin(), m_foundInLinks.end());
        return all;
    }

private:
    void checkEntry(const Entry& entry) {
        m_pEntry = &entry;
        checkID();
        checkUniqueness();
        checkFirstAttribute();
        checkType();
        checkInterface();
        checkLengths();
        checkAddress();
        checkAdapter();
        checkDirectory();
        if (entry.driverType == LinkFile::s_driverType && m_occasion == EOccasion::Question)
            checkLink();
        if (entry.isLoaded() && m_isReached)
            m_used[{entry.driverType, entry.version}].push_back(base::printable(entry.driverID));
    }

    void checkID() {
        const std::string& id = m_pEntry->driverID;
        const std::string quoted = "the driver ID " + base::quoted(id);
        if (id.empty())
            error("the mainframeDriver has no driverID; give it one of its own");
        else if (id == "." || id == "..")
            error(quoted + " is a directory of the system's own; give the driver another");
        else if (id.find('\0') != std::string::npos)
            error(
                quoted +
                " holds a zero byte, at which the system ends a name; use letters, digits, \"_\" and \"-\"");
        else if (const auto slash = id.find_first_of("/\\"); slash != std::string::npos)
            error(quoted + " holds " + base::quoted(id.substr(slash, 1)) +
                  ", which leads into another directory; use letters, digits, \"_\" and \"-\"");
        else if (id.find('.') != std::string::npos)
            warn(quoted +
                 " holds \".\", and a FID names its driver up to its first \".\": no FID reaches this "
                 "driver; use letters, digits, \"_\" and \"-\"");
        // The module prints IDs and directories itself, past all that makes text printable.
        if (id.find('\0') == std::string::npos && !base::isPrintable(id))
            warn(
                quoted +
                " holds a character that cannot be shown, and standard output gets it as it is; use letters, "
                "digits, \"_\" and \"-\"");
    }

    void checkUniqueness() {
        // To the system a name ends at its first zero byte.
        const std::string id = m_pEntry->driverID.c_str();
        if (id.empty())
            return;
        if (id == protocol::panelDriverID && m_occasion != EOccasion::Reload) {
            if (m_pEntry->isLoaded())
                error("the panel driver is started without an entry and would run twice; remove the entry");
            else
                warn(
                    "PANEL is the panel driver, which is started without an entry; give this one another ID");
        }
        const auto [first, isNew] = m_ids.emplace(id, m_pEntry->line);
        if (!isNew)
            error("the driver ID " + base::quoted(id) + " stands in line " + std::to_string(first->second) +
                  " already; give each driver one of its own");
    }

    void checkFirstAttribute() {
        if (!m_pEntry->hasAttributes || m_pEntry->beginsWithDriverID)
            return;
        const std::string text =
            "driverID must be the first attribute of a mainframeDriver that can be reloaded";
        if (m_pEntry == m_pSpinning)
            error(text);
        else
            warn(text);
    }

    void checkType() {
        std::set<std::string> types;
        std::set<std::string> versions;
        for (const DescriptorCatalogue::Record& record : m_catalogue.records()) {
            types.insert(base::quoted(record.type));
            if (record.type == m_pEntry->driverType)
                versions.insert(base::quoted(record.version));
        }
        const std::string version = base::quoted(m_pEntry->version);
        if (versions.empty())
            warn("no descriptor announces the driver type " + base::quoted(m_pEntry->driverType) +
                 "; the driver is not started" + thereIs(types));
        else if (!versions.contains(version))
            warn("no descriptor announces version " + version + " of the driver type " +
                 base::quoted(m_pEntry->driverType) + "; the driver is not started" + thereIs(versions));
    }

    static std::string thereIs(const std::set<std::string>& names) {
        constexpr std::size_t most = 10;
        std::string text;
        std::size_t count = 0;
        for (const std::string& name : names) {
            if (++count > most)
                return text + ", ...";
            text += (text.empty() ? "; there is " : ", ") + name;
        }
        return text;
    }

    void checkInterface() {
        if (m_pEntry->isLoaded())
            return;
        if (m_pEntry->interfaceType == EInterfaceTypes::Socket)
            warn("the interfaceType \"socket\" loads nothing; write \"direct\" or \"queue\"");
        else if (m_pEntry->interfaceWord.empty())
            warn("without an interfaceType the driver is not started; write \"direct\" or \"queue\"");
        else
            warn("the interfaceType " + base::quoted(m_pEntry->interfaceWord) +
                 " is unknown and the driver is not started; write \"direct\" or \"queue\"");
    }

    void checkLengths() {
        const std::string& id = m_pEntry->driverID;
        const bool isQueue = m_pEntry->interfaceType == EInterfaceTypes::Queue;
        // Of its two queues this one has the longer name.
        const std::string fault = id.empty() ? id : sal::MessageQueue::nameFault(protocol::outputQueue(id));
        if (isQueue && !fault.empty())
            error("the driver ID " + base::quoted(id) + " makes no name for its queues: " + fault +
                  "; give the driver a shorter one");
        else if (id.size() > s_longestName)
            warn("the driver ID " + base::quoted(id) + " " + bytes(id.size(), s_longestName) +
                 " make the name of a directory");
        if (!isQueue)
            return;

        const std::string nvram = joinedPath(joinedPath(m_workDirectory, "nvram"), id);
        std::size_t sum = 0;
        for (const auto& [name, text] : {std::pair<const char*, const std::string&>{"driverID", id},
                                         {"workingDirectory", m_pEntry->workingDirectory},
                                         {"ipAddress", m_pEntry->ipAddress},
                                         {"networkAdapter", m_pEntry->networkAdapter},
                                         {"NVRAM directory", nvram}}) {
            sum += text.size();
            if (text.size() > s_longestName)
                warn("the " + std::string(name) + " " + base::quoted(text) + " " +
                     bytes(text.size(), s_longestName) + " reach a driver in its own process");
        }
        if (sum >= s_longestConfiguration)
            warn("ID, directories, address and adapter have " + std::to_string(sum) +
                 " bytes together; fewer than " + std::to_string(s_longestConfiguration) +
                 " reach a driver in its own process");
    }

    void checkAddress() {
        const std::string& address = m_pEntry->ipAddress;
        if (address.empty())
            return;
        if (!sal::HostAddress(address).isValid()) {
            warn("the ipAddress " + base::quoted(address) + " is no IPv4 address, such as 192.0.2.20");
            return;
        }
        const auto [first, isNew] = m_addresses.emplace(address, m_pEntry->line);
        if (!isNew)
            warn("the ipAddress " + address + " stands in line " + std::to_string(first->second) +
                 " already; give each driver one of its own");
    }

    void checkAdapter() {
        const std::string& adapter = m_pEntry->networkAdapter;
        if (adapter.empty() || !m_pEntry->isLoaded())
            return;
        const auto [known, isNew] = m_adapterFaults.emplace(adapter, std::string());
        if (isNew)
            known->second = m_machine.adapterFault(adapter);
        if (!known->second.empty() && known->second != m_ownAdapterFault)
            warn("there is " + known->second + "; the driver is not started");
    }

    /// Without an adapter of its own kind the module starts no driver, and says so by itself.
    void checkOwnAdapter() {
        if (m_occasion != EOccasion::Question)
            return;
        m_ownAdapterFault = m_machine.adapterFault({});
        if (!m_ownAdapterFault.empty())
            m_found.push_back({Finding::ESeverity::Warning, nameOfWorkplace(), 0,
                               "starts no driver here: there is " + m_ownAdapterFault +
                                   "; --adapter eth0=NAME gives another one that name"});
    }

    std::string nameOfWorkplace() const {
        return m_workplace.path().empty() ? "the workplace" : m_workplace.path();
    }

    void checkDirectory() {
        // For a reload of the panel driver an entry with its own directory is right.
        if (m_pEntry->driverID == protocol::panelDriverID)
            return;
        if (!base::isPrintable(m_pEntry->workingDirectory))
            warn("the workingDirectory " + base::quoted(m_pEntry->workingDirectory) +
                 " holds a character that cannot be shown, and standard output gets it as it is");
        const std::string path = directoryPath(m_workDirectory, m_pEntry->workingDirectory);
        const auto [first, isNew] =
            m_directories.emplace(path, "that of line " + std::to_string(m_pEntry->line));
        if (!isNew)
            warn("the workingDirectory " + base::quoted(m_pEntry->workingDirectory) + " is " + first->second +
                 ", too; give each driver one of its own");
    }

    /// A link between workplaces has a file of its own.
    void checkLink() {
        if (m_pEntry->interfaceType == EInterfaceTypes::Queue)
            warn(
                "a link runs in the host's process alone and is not started; write interfaceType=\"direct\"");
        const LinkFile file(LinkFile::place(m_workDirectory, m_pEntry->workingDirectory), m_pEntry->driverID);
        for (Finding finding : file.findings()) {
            if (finding.isError())
                finding.text += "; the driver " + base::printable(m_pEntry->driverID) + " is not started";
            finding.severity = Finding::ESeverity::Warning;
            m_foundInLinks.push_back(std::move(finding));
        }
    }

    const DescriptorCatalogue::Record* panelRecord() const {
        return m_catalogue.find(protocol::panelType, protocol::panelVersion);
    }

    void checkPanel() {
        if (m_occasion != EOccasion::Reload && !panelRecord())
            m_found.push_back({Finding::ESeverity::Warning, nameOfWorkplace(), 0,
                               "runs without a panel driver: no descriptor announces type \"Panel\" in "
                               "version \"1.0\""});
    }

    std::vector<Finding> descriptorFindings() {
        m_used.try_emplace({protocol::panelType, protocol::panelVersion});
        std::vector<Finding> found = m_catalogue.findings();
        nameDrivers(found);
        if (m_occasion == EOccasion::Question) {
            addLoadFaults(found);
            raisePanelFault(found);
        }
        addRepeatedRecords(found);
        return found;
    }

    /// Who is not started where a module file is not there.
    void nameDrivers(std::vector<Finding>& found) const {
        for (const DescriptorCatalogue::Record& record : m_catalogue.records()) {
            const auto used = m_used.find({record.type, record.version});
            const std::string fault = DescriptorCatalogue::moduleFault(record);
            for (Finding& finding : found) {
                if (used != m_used.end() && finding.file == record.file && finding.line == record.line &&
                    finding.text == fault)
                    finding.text += notStarted(used->second);
            }
        }
    }

    /// Of the modules that are there and that an entry uses.
    void addLoadFaults(std::vector<Finding>& found) const {
        if (!m_machine.loadFault)
            return;
        std::map<std::string, std::string> faults;
        for (const DescriptorCatalogue::Record& record : m_catalogue.records()) {
            const auto used = m_used.find({record.type, record.version});
            if (used == m_used.end() || !DescriptorCatalogue::moduleFault(record).empty())
                continue;
            const auto [fault, isNew] = faults.try_emplace(record.module);
            if (isNew)
                fault->second = m_machine.loadFault(record.module);
            if (!fault->second.empty())
                found.push_back({Finding::ESeverity::Warning, record.file, record.line,
                                 "the module file " + record.module + " cannot be loaded: " + fault->second +
                                     notStarted(used->second)});
        }
    }

    static std::string notStarted(const std::vector<std::string>& driverIDs) {
        std::string text;
        for (const std::string& driverID : driverIDs)
            text += (text.empty() ? "; " : ", ") + driverID;
        return driverIDs.empty() ? text : text + (driverIDs.size() == 1 ? " is" : " are") + " not started";
    }

    /// The module ends a start by itself where the panel driver cannot be loaded.
    void raisePanelFault(std::vector<Finding>& found) const {
        const DescriptorCatalogue::Record* const pPanel = panelRecord();
        if (!pPanel)
            return;
        const std::string module = "the module file " + pPanel->module;
        for (Finding& finding : found) {
            const bool isOfPanel = finding.file == pPanel->file && finding.line == pPanel->line;
            if (!isOfPanel || (finding.text != DescriptorCatalogue::moduleFault(*pPanel) &&
                               !finding.text.starts_with(module + " cannot be loaded: ")))
                continue;
            finding.severity = Finding::ESeverity::Error;
            finding.text += "; without the panel driver nothing is started";
        }
    }

    /// Every record of a type and version is loaded, the first of them for ever.
    void addRepeatedRecords(std::vector<Finding>& found) const {
        std::map<std::pair<std::string, std::string>, const DescriptorCatalogue::Record*> records;
        for (const DescriptorCatalogue::Record& record : m_catalogue.records()) {
            const auto key = std::pair(record.type, record.version);
            const auto [first, isNew] = records.emplace(key, &record);
            if (isNew)
                continue;
            found.push_back({m_used.contains(key) ? Finding::ESeverity::Error : Finding::ESeverity::Warning,
                             record.file, record.line,
                             "type " + base::quoted(record.type) + " in version " +
                                 base::quoted(record.version) + " is announced in " + first->second->file +
                                 " line " + std::to_string(first->second->line) +
                                 " already, and each driver of it would be loaded twice; remove one"});
        }
    }

    void error(const std::string& text) {
        // What the module never comes to does no harm.
        add(m_isReached ? Finding::ESeverity::Error : Finding::ESeverity::Warning, text);
    }
    void warn(const std::string& text) { add(Finding::ESeverity::Warning, text); }
    void add(Finding::ESeverity severity, const std::string& text) {
        m_found.push_back({severity, m_workplace.path(), m_pEntry->line, text});
    }

    const WorkplaceFile& m_workplace;
    const DescriptorCatalogue& m_catalogue;
    const std::string& m_workDirectory;
    const ConfigurationCheck::Machine& m_machine;
    const EOccasion m_occasion;
    const Entry* const m_pSpinning;

    const Entry* m_pEntry = nullptr;
    bool m_isReached = true;
    std::map<std::string, int> m_ids;
    std::map<std::string, int> m_addresses;
    std::map<std::string, std::string> m_directories;
    std::map<std::string, std::string> m_adapterFaults;  ///< by the adapters' names
    std::string m_ownAdapterFault;
    /// Type and version, and the drivers that are loaded of them.
    std::map<std::pair<std::string, std::string>, std::vector<std::string>> m_used;
    std::vector<Finding> m_found;
    std::vector<Finding> m_foundInLinks;
};

}  // namespace

ConfigurationCheck::ConfigurationCheck(const WorkplaceFile& workplace, const DescriptorCatalogue& catalogue,
                                       const std::string& workDirectory)
    : ConfigurationCheck(workplace, catalogue, workDirectory, Machine()) {}

ConfigurationCheck::ConfigurationCheck(const WorkplaceFile& workplace, const DescriptorCatalogue& catalogue,
                                       const std::string& workDirectory, Machine machine)
    : m_workplace(workplace),
      m_catalogue(catalogue),
      m_workDirectory(workDirectory),
      m_machine(std::move(machine)) {}

std::vector<Finding> ConfigurationCheck::forStart() const {
    return Run(m_workplace, m_catalogue, m_workDirectory, m_machine, EOccasion::Start).findings();
}

std::vector<Finding> ConfigurationCheck::forQuestion() const {
    return Run(m_workplace, m_catalogue, m_workDirectory, m_machine, EOccasion::Question).findings();
}

std::vector<Finding> ConfigurationCheck::forReload(const std::string& driverID) const {
    return Run(m_workplace, m_catalogue, m_workDirectory, m_machine, EOccasion::Reload, &driverID).findings();
}
