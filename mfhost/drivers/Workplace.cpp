#include "Workplace.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <set>
#include <stdexcept>
#include <utility>

#include "HostLog.h"
#include "IMDMConfiguration.h"
#include "Needed.h"
#include "PanelNames.h"
#include "ProcessSupervisor.h"
#include "UniqueFd.h"
#include "WorkplaceSnapshot.h"
#include "sal/Directory.h"

namespace {

/// A scan changes the working directory of the process, and may fail to change it back.
class WorkingDirectory {
public:
    WorkingDirectory()
        : m_fd(base::neededDescriptor(::open(".", O_PATH | O_DIRECTORY | O_CLOEXEC),
                                      "the working directory")) {}

    void enter() const {
        if (::fchdir(m_fd.get()) != 0)
            throw std::runtime_error(std::string("the working directory cannot be entered again: ") +
                                     std::strerror(errno));
    }

private:
    const base::UniqueFd m_fd;
};

/// While one lives, the command thread is concerned with the driver.
class Concern {
public:
    Concern(const Workplace::Environment& environment, const std::string& driverID)
        : m_environment(environment) {
        m_environment.concerns(driverID);
    }
    ~Concern() { m_environment.concerns({}); }
    Concern(const Concern&) = delete;
    Concern& operator=(const Concern&) = delete;

private:
    const Workplace::Environment& m_environment;
};

constexpr const char* s_parkCause = "parked at the console";
constexpr const char* s_stopping = "the host is stopping";

}  // namespace

Workplace::Workplace(Settings settings, DriverTable& drivers, ProcessSupervisor& supervisor,
                     Environment environment)
    : m_settings(std::move(settings)),
      m_drivers(drivers),
      m_supervisor(supervisor),
      m_environment(std::move(environment)),
      m_admission(m_settings.driverDirectories),
      m_queueTrial(m_settings.queuePatience),
      m_parked(m_settings.parkMarks) {}

Workplace::~Workplace() = default;

bool Workplace::prepareStart() {
    if (const std::string reason = m_parked.read(); !reason.empty())
        hostLog(sal::LogOutput::eWarning) << reason << std::endl;
    auto pWorkplace = std::make_shared<const WorkplaceSnapshot>(m_settings.file);
    std::string reason = pWorkplace->refusal(m_settings.isSignatureRequired);
    if (reason.empty() && !m_admission.acceptsStart(pWorkplace->file()))
        return false;
    if (reason.empty())
        reason = handToModule(std::move(pWorkplace));
    if (!reason.empty())
        hostLog(sal::LogOutput::eCritical) << reason << "; the workplace is not started" << std::endl;
    return reason.empty();
}

bool Workplace::start(IMDMConfiguration& module) {
    m_pModule = &module;
    searchDrivers(module);
    configure(m_pHanded->file());
    std::vector<std::string> processDrivers;
    for (const DriverTable::Driver& driver : m_drivers.drivers()) {
        if (driver.state == EDriverState::Parked)
            continue;
        m_drivers.beginStart(driver.id);
        if (isProcessDriver(driver))
            processDrivers.push_back(driver.id);
    }
    // endStart() tells it, where there is one.
    std::map<std::string, std::string> queueFaults = m_queueTrial.faults(processDrivers);
    const bool isComplete = module.startMfDrivers(m_pCopy ? m_pCopy->path() : std::string());
    m_environment.tellPanel();
    const bool hasPanel = m_drivers.isRunning(protocol::panelDriverID);
    if (!hasPanel && !isComplete) {
        hostLog(sal::LogOutput::eCritical) << "PANEL: the panel driver does not start" << std::endl;
        return false;
    }
    for (const DriverTable::Driver& driver : m_drivers.drivers())
        endStart(driver.id, queueFaults[driver.id]);
    if (hasPanel && !isComplete)
        hostLog(sal::LogOutput::eWarning)
            << "not every driver of " << m_settings.file << " was started; those that run go on" << std::endl;
    // Where no descriptor announces it the check has said so.
    if (!hasPanel && isDescribed(protocol::panelType, protocol::panelVersion))
        hostLog(sal::LogOutput::eWarning)
            << "PANEL: the panel driver does not start; the workplace runs without a panel driver"
            << std::endl;
    return true;
}

/// Takes over what the file says, and that those with a mark are parked that the host has not loaded, whether
/// or not the file names them.
void Workplace::configure(const WorkplaceFile& file) {
    m_drivers.configure(file.entries(), file.isWhole());
    for (const std::string& driverID : m_parked.driverIDs()) {
        const auto driver = m_drivers.find(driverID);
        const bool isThere = driver && (driver->isAlive || driver->state == EDriverState::Parked);
        if (driverID == protocol::panelDriverID || isThere)
            continue;
        m_drivers.beginParking(driverID, s_parkCause);
        m_drivers.endParking(driverID);
        hostLog(sal::LogOutput::eInfo) << driverID << ": is parked and not started; startDriver " << driverID
                                       << " starts it" << std::endl;
    }
}

void Workplace::searchDrivers(IMDMConfiguration& module) {
    const WorkingDirectory workingDirectory;
    std::set<std::pair<dev_t, ino_t>> searched;
    for (const std::string& directory : m_settings.driverDirectories) {
        // The admission has said where there is none, and where there is something else.
        struct stat status {};
        const bool isTold = ::stat(directory.c_str(), &status) == 0;
        if (!isTold && errno != ENOENT)
            hostLog(sal::LogOutput::eWarning) << directory << " cannot be searched: " << std::strerror(errno)
                                              << "; no drivers are found there" << std::endl;
        if (!isTold || !S_ISDIR(status.st_mode) || !searched.emplace(status.st_dev, status.st_ino).second)
            continue;
        searchDirectory(module, directory);
        workingDirectory.enter();
    }
}

void Workplace::searchDirectory(IMDMConfiguration& module, const std::string& directory) {
    module.searchMfDriver(directory);
    const auto& records = m_admission.catalogue().records();
    const bool isOneRead = std::any_of(records.begin(), records.end(), [&](const auto& record) {
        return record.file.starts_with(directory);
    });
    // The module leaves out without a word what it cannot enter.
    if (!isOneRead &&
        !sal::Directory(sal::Path(directory)).getFileList("xml", sal::Directory::eSortByName).empty())
        hostLog(sal::LogOutput::eWarning)
            << directory << ": none of its descriptors could be read; no drivers are found there"
            << std::endl;
}

/// From now on the module reads this; why it cannot, or empty.
std::string Workplace::handToModule(std::shared_ptr<const WorkplaceSnapshot> pWorkplace,
                                    const std::string& leavingID) {
    std::string reason;
    if (!pWorkplace->path().empty()) {
        if (!m_pCopy)
            m_pCopy = std::make_unique<WorkplaceCopy>();
        reason = m_pCopy->take(*pWorkplace, unannounced(leavingID), unannouncedType());
        // Only then the module has something to say of the file, and it knows the copy alone.
        const bool isNamed = !pWorkplace->file().isWhole() || !pWorkplace->signatureFault().empty();
        if (reason.empty() && isNamed && !std::exchange(m_isCopyNamed, true))
            hostLog(sal::LogOutput::eInfo) << "what was checked of " << pWorkplace->path()
                                           << " is loaded from " << m_pCopy->path() << std::endl;
    }
    if (reason.empty())
        m_pHanded = std::move(pWorkplace);
    return reason;
}

bool Workplace::isParked(const std::string& driverID) const {
    const auto driver = m_drivers.find(driverID);
    return driver && (driver->state == EDriverState::Parking || driver->state == EDriverState::Parked);
}

/// Whom the module is to load nothing for: the one that is leaving, and those with a mark. One of these may
/// run: its mark could not be read when the host was started.
std::set<std::string> Workplace::unannounced(const std::string& leavingID) const {
    std::set<std::string> driverIDs;
    for (const std::string& driverID : m_parked.driverIDs()) {
        const auto driver = m_drivers.find(driverID);
        if (driverID == leavingID || !driver || !driver->isAlive || isParked(driverID))
            driverIDs.insert(driverID);
    }
    return driverIDs;
}

std::string Workplace::unannouncedType() const {
    std::string type = "(parked)";
    const auto& records = m_admission.catalogue().records();
    while (
        std::any_of(records.begin(), records.end(), [&](const auto& record) { return record.type == type; }))
        type += "'";
    return type;
}

std::string Workplace::reload(const std::string& driverID, const std::function<void()>& reloadByModule) {
    if (!m_pModule)
        return s_stopping;
    if (isParked(driverID))
        return "it is parked; startDriver " + driverID + " starts it";
    auto pWorkplace = std::make_shared<const WorkplaceSnapshot>(m_settings.file);
    std::string reason = refusal(*pWorkplace, driverID);
    if (reason.empty())
        reason = handToModule(pWorkplace);
    if (reason.empty())
        loadAnew(*pWorkplace, driverID, reloadByModule);
    return reason;
}

/// Why the driver must not be loaded anew with this file; empty when it may.
std::string Workplace::refusal(const WorkplaceSnapshot& workplace, const std::string& driverID) {
    if (workplace.path().empty())
        return "there is no configuration";
    std::string reason = workplace.refusal(m_settings.isSignatureRequired);
    if (reason.empty())
        reason = m_admission.reloadRefusal(workplace.file(), driverID);
    if (reason.empty())
        reason = queueFault(workplace, driverID);
    return reason;
}

void Workplace::loadAnew(const WorkplaceSnapshot& workplace, const std::string& driverID,
                         const std::function<void()>& reloadByModule) {
    m_supervisor.noteAttached();
    m_drivers.beginStart(driverID);
    {
        const Concern concern(m_environment, driverID);
        reloadByModule();
    }
    configure(workplace.file());
    endStart(driverID);
    // The old panel's macro system is gone with it.
    if (driverID == protocol::panelDriverID)
        m_environment.tellPanel();
}

/// Why the queues of a driver that runs or is to run in a process cannot be made; empty for others.
std::string Workplace::queueFault(const WorkplaceSnapshot& workplace, const std::string& driverID) {
    const auto driver = m_drivers.find(driverID);
    const auto& entries = workplace.file().entries();
    const bool hasQueues = driver && driver->interfaceType == EInterfaceTypes::Queue;
    const bool getsQueues = std::any_of(entries.begin(), entries.end(), [&](const auto& entry) {
        return entry.driverID == driverID && entry.interfaceType == EInterfaceTypes::Queue;
    });
    return hasQueues || getsQueues ? m_queueTrial.fault(driverID) : std::string();
}

void Workplace::restart(const std::string& driverID) {
    if (!m_pModule || !m_drivers.beginRestart(driverID))
        return;
    std::string reason;
    try {
        reason = tryRestart(driverID);
    } catch (const std::exception& error) {
        // Memory or a descriptor, which the next try may have again.
        reason = error.what();
    }
    // It was not even tried.
    if (!reason.empty())
        m_supervisor.endStart(driverID, reason);
}

/// Why it was not even tried, for the next try; empty when it was, or when there will be none.
std::string Workplace::tryRestart(const std::string& driverID) {
    auto pWorkplace = std::make_shared<const WorkplaceSnapshot>(m_settings.file);
    const WorkplaceFile& file = pWorkplace->file();
    const bool hasEntry = std::any_of(file.entries().begin(), file.entries().end(),
                                      [&](const auto& entry) { return entry.driverID == driverID; });
    // A file that is not whole, or must not be read, is so for a moment only: it does not say that the driver
    // has left it.
    const bool isGone =
        file.isWhole() && !hasEntry && pWorkplace->refusal(m_settings.isSignatureRequired).empty();
    std::string reason = refusal(*pWorkplace, driverID);
    if (isGone || pWorkplace->path().empty()) {
        m_drivers.giveUp(driverID);
        hostLog(sal::LogOutput::eError) << driverID << ": is not started again: " << reason << std::endl;
        return {};
    }
    if (reason.empty())
        reason = handToModule(pWorkplace);
    if (!reason.empty())
        return reason;
    m_drivers.addRestart(driverID);
    {
        const Concern concern(m_environment, driverID);
        m_pModule->reloadMfDriver(driverID);
    }
    configure(file);
    endStart(driverID);
    if (driverID == protocol::panelDriverID)
        m_environment.tellPanel();
    // Of a process the supervisor says it, when it has come up.
    if (m_drivers.isRunning(driverID) && !m_drivers.hasProcess(driverID))
        hostLog(sal::LogOutput::eInfo) << driverID << ": is started again" << std::endl;
    return {};
}

std::string Workplace::park(const std::string& driverID) {
    if (!m_pModule)
        return s_stopping;
    if (!m_drivers.find(driverID))
        return "there is no driver " + driverID + "; drivers lists them";
    if (driverID == protocol::panelDriverID)
        return "the module starts the panel driver whatever the configuration says";
    if (isParked(driverID))
        return "it is parked already";
    if (m_pHanded->path().empty())
        return "there is no configuration";
    std::string reason = m_parked.set(driverID, true);
    if (!reason.empty())
        return reason;
    reason = handToModule(m_pHanded, driverID);
    if (!reason.empty()) {
        static_cast<void>(m_parked.set(driverID, false));
        return reason;
    }
    m_supervisor.noteAttached();
    m_drivers.beginParking(driverID, s_parkCause);
    bool isHandled = false;
    {
        const Concern concern(m_environment, driverID);
        isHandled = m_pModule->reloadMfDriver(driverID);
    }
    if (!isHandled) {
        // Nothing was unloaded.
        static_cast<void>(m_parked.set(driverID, false));
        m_drivers.beginStart(driverID);
        endStart(driverID);
        return "the module could not read what it was handed of " + m_settings.file;
    }
    m_supervisor.driverUnloaded(driverID);
    m_drivers.endParking(driverID);
    hostLog(sal::LogOutput::eInfo) << driverID << ": is parked; startDriver " << driverID << " starts it"
                                   << std::endl;
    return {};
}

std::string Workplace::unpark(const std::string& driverID) {
    if (!m_pModule)
        return s_stopping;
    const auto driver = m_drivers.find(driverID);
    if (!driver)
        return "there is no driver " + driverID + "; drivers lists them";
    const bool hasMark = m_parked.contains(driverID);
    if (!isParked(driverID) && driver->isAlive)
        return "it runs already; reloadDriver " + driverID + " loads it anew";
    auto pWorkplace = std::make_shared<const WorkplaceSnapshot>(m_settings.file);
    std::string reason = refusal(*pWorkplace, driverID);
    if (reason.empty() && hasMark)
        reason = m_parked.set(driverID, false);
    if (!reason.empty())
        return reason;
    reason = handToModule(pWorkplace);
    if (!reason.empty()) {
        if (hasMark)
            static_cast<void>(m_parked.set(driverID, true));
        return reason;
    }
    loadAnew(*pWorkplace, driverID, [&] { m_pModule->reloadMfDriver(driverID); });
    return {};
}

/// The fault is what kept its queues from being made before the start was even tried.
void Workplace::endStart(const std::string& driverID, const std::string& queueFault) {
    const auto driver = m_drivers.find(driverID);
    if (!driver || driver->state == EDriverState::Parked)
        return;
    if (!isProcessDriver(*driver)) {
        m_drivers.endStart(driverID);
        return;
    }
    const bool isToAsk = queueFault.empty() && driver->state != EDriverState::Running;
    m_supervisor.endStart(driverID, isToAsk ? m_queueTrial.fault(driverID) : queueFault);
}

/// Whether the host is to start a process for it, and has its module's descriptor.
bool Workplace::isProcessDriver(const DriverTable::Driver& driver) const {
    return m_settings.startsProcesses && driver.interfaceType == EInterfaceTypes::Queue &&
           isDescribed(driver.type, driver.version);
}

bool Workplace::isDescribed(const std::string& type, const std::string& version) const {
    const auto& records = m_admission.catalogue().records();
    return std::any_of(records.begin(), records.end(),
                       [&](const auto& record) { return record.type == type && record.version == version; });
}
