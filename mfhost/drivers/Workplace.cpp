#include "Workplace.h"

#include <unistd.h>

#include <algorithm>
#include <exception>
#include <utility>

#include "HostLog.h"
#include "IMDMConfiguration.h"
#include "PanelNames.h"
#include "ProcessSupervisor.h"
#include "StartFault.h"
#include "Words.h"
#include "WorkplaceRestoring.h"
#include "WorkplaceSnapshot.h"

namespace {

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

constexpr const char* s_removeCause = "removed";
/// That the start's summary names.
constexpr std::size_t s_mostCauses = 20;

/// Nobody is named for the console.
std::string parkCause(const std::string& who) {
    return who.empty() ? "parked at the console" : "parked by " + who;
}

}  // namespace

Workplace::Workplace(Settings settings, DriverTable& drivers, ProcessSupervisor& supervisor,
                     Environment environment)
    : m_settings(std::move(settings)),
      m_drivers(drivers),
      m_supervisor(supervisor),
      m_environment(std::move(environment)),
      m_admission(m_settings.driverDirectories),
      m_search(m_settings.driverDirectories),
      m_changes(
          {m_settings.file, m_settings.driverDirectories, m_settings.isSignatureRequired}, m_settings.history,
          {.isReady = [this] { return m_pModule != nullptr; },
           .running = [this] { return running(); },
           .hand = [this](const auto& draft, const auto& leavingIDs,
                          bool hasPanel) { return handToModule(draft.pWorkplace, leavingIDs, hasPanel); },
           .change = [this](const auto& draft, const auto& one) { return change(draft, one); },
           .end = [this](const auto& draft) { configure(draft.pWorkplace->file()); }}),
      m_queueTrial(m_settings.queuePatience),
      m_parked(m_settings.parkMarks) {}

Workplace::~Workplace() = default;

bool Workplace::prepareStart() {
    if (const std::string reason = m_parked.read(); !reason.empty())
        hostLog(sal::LogOutput::eWarning) << reason << std::endl;
    m_changes.readHistory();
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
    m_search.searchAll(module, m_admission.catalogue());
    configure(m_pHanded->file());
    const Draft draft = WorkplacePlanner::look(m_pHanded, m_admission.catalogue(), m_admission.catalogue());
    std::vector<std::string> processDrivers;
    for (const DriverTable::Driver& driver : m_drivers.drivers()) {
        if (driver.state == EDriverState::Parked)
            continue;
        if (const auto source = draft.sources.find(driver.id); source != draft.sources.end())
            m_sources.insert(*source);
        m_drivers.beginStart(driver.id);
        if (isProcessDriver(driver))
            processDrivers.push_back(driver.id);
    }
    // endStart() tells it, where there is one.
    std::map<std::string, std::string> queueFaults = m_queueTrial.faults(processDrivers);
    m_environment.forgetLoadFaults();
    const bool isComplete = module.startMfDrivers(m_pCopy ? m_pCopy->path() : std::string());
    m_environment.tellPanel();
    const bool hasPanel = m_drivers.isRunning(protocol::panelDriverID);
    if (!hasPanel && !isComplete) {
        hostLog(sal::LogOutput::eCritical) << "PANEL: the panel driver does not start" << std::endl;
        return false;
    }
    for (const DriverTable::Driver& driver : m_drivers.drivers())
        endStart(driver.id, queueFaults[driver.id]);
    const std::string outcome = sumUpStart();
    // Where no descriptor announces it the check has said so.
    if (!hasPanel && isDescribed(protocol::panelType, protocol::panelVersion))
        hostLog(sal::LogOutput::eWarning)
            << "PANEL: the panel driver does not start; the workplace runs without a panel driver"
            << std::endl;
    m_changes.keep(draft, "start", outcome);
    return true;
}

/// How many drivers of the file run; with a line, and the causes, where not all of them do.
std::string Workplace::sumUpStart() {
    const WorkplaceFile& file = m_pHanded->file();
    std::set<std::string> wanted;
    std::string causes;
    std::size_t running = 0;
    std::size_t missing = 0;
    const auto look = [&](const WorkplaceFile::Entry& entry, bool isReached) {
        if (isParked(entry.driverID) || !wanted.insert(entry.driverID).second)
            return;
        if (isUp(entry.driverID))
            ++running;
        else if (++missing <= s_mostCauses)
            causes += "; " + entry.driverID + ": " + (isReached ? causeOf(entry.driverID) : file.obstacle());
    };
    for (const WorkplaceFile::Entry& entry : file.entries())
        look(entry, true);
    for (const WorkplaceFile::Entry& entry : file.unreachedEntries())
        look(entry, false);
    std::string outcome = std::to_string(running) + " of " + std::to_string(wanted.size()) +
                          (wanted.size() == 1 ? " driver runs" : " drivers run");
    if (missing > s_mostCauses)
        causes += "; and " + std::to_string(missing - s_mostCauses) + " more";
    if (missing > 0)
        hostLog(sal::LogOutput::eWarning) << outcome << causes << std::endl;
    return outcome;
}

/// What of its entry, descriptor or adapter keeps it from being loaded; empty where nothing is seen.
std::string Workplace::seenFault(const std::string& driverID) const {
    const auto source = m_sources.find(driverID);
    return source == m_sources.end() ? std::string()
                                     : startFault(source->second.entry, m_admission.catalogue());
}

/// Why it does not run, in words for the end of a line.
std::string Workplace::causeOf(const std::string& driverID) const {
    if (std::string fault = seenFault(driverID); !fault.empty())
        return fault;
    const auto source = m_sources.find(driverID);
    if (source != m_sources.end() && m_environment.loadFault) {
        if (std::string fault = m_environment.loadFault(source->second.module.path); !fault.empty())
            return fault;
    }
    const auto driver = m_drivers.find(driverID);
    return driver && !driver->cause.empty() ? driver->cause : "it was not loaded";
}

/// Whether the driver runs, or waits for a process that is started by hand.
bool Workplace::isUp(const std::string& driverID) const {
    const auto driver = m_drivers.find(driverID);
    return driver && (driver->state == EDriverState::Running ||
                      (!m_settings.startsProcesses && driver->interfaceType == EInterfaceTypes::Queue &&
                       isDescribed(driver->type, driver->version)));
}

/// Takes over what the file says, and that those with a mark are parked that the host has not loaded, whether
/// or not the file names them.
void Workplace::configure(const WorkplaceFile& file) {
    m_drivers.configure(file.entries(), file.isWhole());
    for (const auto& [driverID, who] : m_parked.marks()) {
        const auto driver = m_drivers.find(driverID);
        const bool isThere = driver && (driver->isAlive || driver->state == EDriverState::Parked);
        if (driverID == protocol::panelDriverID || isThere)
            continue;
        m_drivers.beginParking(driverID, parkCause(who));
        m_drivers.endParking(driverID);
        hostLog(sal::LogOutput::eInfo) << driverID << ": is parked and not started; startDriver " << driverID
                                       << " starts it" << std::endl;
    }
}

/// From now on the module reads this; why it cannot, or empty.
std::string Workplace::handToModule(std::shared_ptr<const WorkplaceSnapshot> pWorkplace,
                                    const std::set<std::string>& leavingIDs, bool hasPanelEntry) {
    std::string reason;
    if (!pWorkplace->path().empty()) {
        if (!m_pCopy)
            m_pCopy = std::make_unique<WorkplaceCopy>();
        reason = m_pCopy->take(*pWorkplace, unannounced(leavingIDs), unannouncedType(), hasPanelEntry);
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

/// Whom the module is to load nothing for: those that are leaving, and those with a mark. One of these may
/// run: its mark could not be read when the host was started.
std::set<std::string> Workplace::unannounced(const std::set<std::string>& leavingIDs) const {
    std::set<std::string> driverIDs = leavingIDs;
    for (const auto& [driverID, who] : m_parked.marks()) {
        const auto driver = m_drivers.find(driverID);
        if (!driver || !driver->isAlive || isParked(driverID))
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
        return WorkplaceChanges::stopping;
    if (isParked(driverID))
        return "it is parked; start it instead";
    auto pWorkplace = std::make_shared<const WorkplaceSnapshot>(m_settings.file);
    std::string reason = refusal(*pWorkplace, driverID);
    if (reason.empty())
        reason = handToModule(pWorkplace);
    if (reason.empty())
        loadAnew(*pWorkplace, driverID, reloadByModule);
    return reason;
}

std::string Workplace::reload(const std::string& driverID) {
    return reload(driverID, [&] { m_pModule->reloadMfDriver(driverID); });
}

std::string Workplace::debug(const std::string& driverID) {
    if (!m_settings.startsProcesses)
        return "driver processes are started by hand here; the log says what to type";
    if (const auto driver = m_drivers.find(driverID);
        driver && driver->interfaceType != EInterfaceTypes::Queue)
        return "it has no process of its own; a debugger takes the host's, process " +
               std::to_string(::getpid());
    m_supervisor.letWaitForDebugger(driverID, true);
    std::string reason = reload(driverID);
    m_supervisor.letWaitForDebugger(driverID, false);
    if (reason.empty() && !m_drivers.hasProcess(driverID))
        reason = "it has no process: " + causeOf(driverID);
    return reason;
}

std::vector<WorkplaceFile::Entry> Workplace::entries() const {
    return m_pHanded ? m_pHanded->file().entries() : std::vector<WorkplaceFile::Entry>();
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
    m_environment.forgetLoadFaults();
    DriverSource source = sourceOf(workplace, driverID);
    m_drivers.beginStart(driverID);
    {
        const Concern concern(m_environment, driverID);
        reloadByModule();
    }
    m_sources.insert_or_assign(driverID, std::move(source));
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
    m_environment.forgetLoadFaults();
    DriverSource source = sourceOf(*pWorkplace, driverID);
    {
        const Concern concern(m_environment, driverID);
        m_pModule->reloadMfDriver(driverID);
    }
    m_sources.insert_or_assign(driverID, std::move(source));
    configure(file);
    endStart(driverID);
    if (driverID == protocol::panelDriverID)
        m_environment.tellPanel();
    // Of a process the supervisor says it, when it has come up.
    if (m_drivers.isRunning(driverID) && !m_drivers.hasProcess(driverID))
        hostLog(sal::LogOutput::eInfo) << driverID << ": is started again" << std::endl;
    return {};
}

std::string Workplace::park(const std::string& driverID, const std::string& who) {
    if (!m_pModule)
        return WorkplaceChanges::stopping;
    if (!m_drivers.find(driverID))
        return "there is no driver " + driverID + "; drivers lists them";
    if (driverID == protocol::panelDriverID)
        return "the module starts the panel driver whatever the configuration says";
    if (isParked(driverID))
        return "it is parked already";
    if (m_pHanded->path().empty())
        return "there is no configuration";
    std::string reason = m_parked.add(driverID, who);
    if (!reason.empty())
        return reason;
    reason = handToModule(m_pHanded, {driverID});
    if (reason.empty())
        reason = unload(driverID, parkCause(who));
    if (!reason.empty()) {
        static_cast<void>(m_parked.remove(driverID));
        return reason;
    }
    hostLog(sal::LogOutput::eInfo) << driverID << ": is parked; startDriver " << driverID << " starts it"
                                   << std::endl;
    return {};
}

/// Has the module unload a driver for which it was handed an entry that loads nothing. Why it did not, after
/// which the driver is as it was; empty when it did.
std::string Workplace::unload(const std::string& driverID, const std::string& cause) {
    m_supervisor.noteAttached();
    m_drivers.beginParking(driverID, cause);
    std::string reason = unloadByModule(driverID);
    const auto driver = m_drivers.find(driverID);
    if (!reason.empty() && driver && driver->isAlive) {
        // Nothing was unloaded.
        m_drivers.beginStart(driverID);
        endStart(driverID);
        return reason;
    }
    if (!reason.empty())
        hostLog(sal::LogOutput::eWarning) << driverID << ": " << reason << "; it does not run" << std::endl;
    m_supervisor.driverUnloaded(driverID);
    m_drivers.endParking(driverID);
    m_sources.erase(driverID);
    return {};
}

/// What went wrong; the driver may be unloaded all the same.
std::string Workplace::unloadByModule(const std::string& driverID) {
    const Concern concern(m_environment, driverID);
    try {
        if (m_pModule->reloadMfDriver(driverID))
            return {};
    } catch (const std::exception& error) {
        // Memory or a descriptor.
        return std::string("its unloading was broken off: ") + error.what();
    }
    return "the module could not read what it was handed of " + m_settings.file;
}

std::string Workplace::unpark(const std::string& driverID) {
    if (!m_pModule)
        return WorkplaceChanges::stopping;
    const auto driver = m_drivers.find(driverID);
    const auto mark = m_parked.marks().find(driverID);
    const bool hasMark = mark != m_parked.marks().end();
    const std::string who = hasMark ? mark->second : "";
    if (driver && !isParked(driverID) && driver->isAlive)
        return "it runs already; reload it instead";
    auto pWorkplace = std::make_shared<const WorkplaceSnapshot>(m_settings.file);
    const auto& entries = pWorkplace->file().entries();
    const bool hasEntry = std::any_of(entries.begin(), entries.end(),
                                      [&](const auto& entry) { return entry.driverID == driverID; });
    if (!driver && !hasEntry)
        return "there is no driver " + driverID + "; drivers lists them";
    // Only a file that may be used says that it does not have the driver.
    if (hasMark && !hasEntry && pWorkplace->file().isWhole() &&
        pWorkplace->refusal(m_settings.isSignatureRequired).empty())
        return takeMarkBack(driverID);
    std::string reason = refusal(*pWorkplace, driverID);
    if (reason.empty() && hasMark)
        reason = m_parked.remove(driverID);
    if (!reason.empty())
        return reason;
    reason = handToModule(pWorkplace);
    if (!reason.empty()) {
        if (hasMark)
            static_cast<void>(m_parked.add(driverID, who));
        return reason;
    }
    loadAnew(*pWorkplace, driverID, [&] { m_pModule->reloadMfDriver(driverID); });
    return {};
}

/// Of a driver that is in no file; why it is not started.
std::string Workplace::takeMarkBack(const std::string& driverID) {
    if (std::string reason = m_parked.remove(driverID); !reason.empty())
        return reason;
    m_drivers.forget(driverID);
    return "its mark is taken back, and " + m_settings.file + " has no driver \"" + driverID + "\"";
}

DriverSource Workplace::sourceOf(const WorkplaceSnapshot& workplace, const std::string& driverID) const {
    for (const WorkplaceFile::Entry& entry : workplace.file().entries()) {
        if (entry.driverID == driverID && driverID != protocol::panelDriverID)
            return WorkplacePlanner::source(workplace, entry, m_admission.catalogue());
    }
    return WorkplacePlanner::panelSource(workplace, m_admission.catalogue());
}

WorkplacePlanner::Running Workplace::running() const {
    // One that was removed, and whose process has not ended yet, may come back.
    const auto isKeptParked = [this](const std::string& driverID) {
        return isParked(driverID) && m_parked.contains(driverID);
    };
    return {m_admission.catalogue(), m_sources, isKeptParked};
}

/// Why it is not done; empty when it is.
std::string Workplace::change(const Draft& draft, const WorkplacePlan::Change& change) {
    const std::string& driverID = change.driverID;
    switch (change.action) {
        case WorkplacePlan::EAction::Remove: {
            std::string reason = unload(driverID, s_removeCause);
            if (reason.empty())
                m_drivers.forget(driverID);
            return reason;
        }
        case WorkplacePlan::EAction::Reload:
        case WorkplacePlan::EAction::Load: {
            std::string reason;
            if (driverID != protocol::panelDriverID)
                reason = refusal(*draft.pWorkplace, driverID);
            if (!reason.empty())
                return reason;
            loadAnew(*draft.pWorkplace, driverID, [&] { m_pModule->reloadMfDriver(driverID); });
            return isUp(driverID) ? std::string() : causeOf(driverID);
        }
        case WorkplacePlan::EAction::RestartHost:
            return "only a restart of the host takes it over";
        case WorkplacePlan::EAction::Rescan: {
            m_search.searchFiles(*m_pModule, {change.file});
            DescriptorCatalogue catalogue = m_admission.catalogue();
            catalogue.add(draft.found, {change.file});
            m_admission.setCatalogue(catalogue);
            break;
        }
        case WorkplacePlan::EAction::None:
            break;
    }
    return {};
}

Workplace::Place Workplace::place(const std::string& driverID) const {
    Place place;
    const auto driver = m_drivers.find(driverID);
    if (!driver)
        return place;
    if (const auto* pRecord = m_admission.catalogue().find(driver->type, driver->version)) {
        place.module = pRecord->module;
        place.descriptor = pRecord->file;
    }
    for (const WorkplaceFile::Entry& entry : entries()) {
        if (entry.driverID == driverID) {
            place.directory = entry.workingDirectory;
            place.ipAddress = entry.ipAddress;
            place.networkAdapter = entry.networkAdapter;
        }
    }
    return place;
}

/// The fault is what kept its queues from being made before the start was even tried.
void Workplace::endStart(const std::string& driverID, const std::string& queueFault) {
    const auto driver = m_drivers.find(driverID);
    if (!driver || driver->state == EDriverState::Parked)
        return;
    if (!isProcessDriver(*driver)) {
        m_drivers.endStart(driverID, driver->isAlive ? std::string() : causeOf(driverID));
        tellByHand(*driver);
        return;
    }
    const bool isToAsk = queueFault.empty() && driver->state != EDriverState::Running;
    m_supervisor.endStart(driverID, isToAsk ? m_queueTrial.fault(driverID) : queueFault,
                          driver->isAlive ? std::string() : seenFault(driverID));
}

/// Says what to type for a driver whose process is started by hand.
void Workplace::tellByHand(const DriverTable::Driver& driver) const {
    const auto* pModule = m_admission.catalogue().find(driver.type, driver.version);
    if (m_settings.startsProcesses || driver.interfaceType != EInterfaceTypes::Queue || !pModule)
        return;
    hostLog(sal::LogOutput::eInfo) << driver.id
                                   << ": waits for its process, to be started by hand: " << m_settings.byHand
                                   << " " << base::shellWord(pModule->module) << " "
                                   << base::shellWord(driver.id) << std::endl;
}

/// Whether the host is to start a process for it, and has its module's descriptor.
bool Workplace::isProcessDriver(const DriverTable::Driver& driver) const {
    return m_settings.startsProcesses && driver.interfaceType == EInterfaceTypes::Queue &&
           isDescribed(driver.type, driver.version);
}

bool Workplace::isDescribed(const std::string& type, const std::string& version) const {
    return m_admission.catalogue().find(type, version) != nullptr;
}
