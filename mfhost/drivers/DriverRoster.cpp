#include "DriverRoster.h"

#include <algorithm>
#include <set>
#include <string_view>

#include "PanelNames.h"

DriverRoster::DriverRoster(StateStore& store) : m_store(store) {
    // The module starts this one whatever the configuration says.
    Driver& panel = driver(protocol::panelDriverID);
    panel.type = protocol::panelType;
    panel.version = protocol::panelVersion;
    panel.interfaceType = EInterfaceTypes::Direct;
}

DriverRoster::Driver& DriverRoster::driver(const std::string& driverID) {
    Driver& found = m_drivers[driverID];
    found.id = driverID;
    return found;
}

void DriverRoster::configure(const std::vector<WorkplaceFile::Entry>& entries, bool isWhole) {
    std::set<std::string_view> configuredIDs;
    const std::lock_guard lock(m_mutex);
    for (const WorkplaceFile::Entry& entry : entries) {
        configuredIDs.insert(entry.driverID);
        Driver& configured = driver(entry.driverID);
        configured.type = entry.driverType;
        configured.version = entry.version;
        configured.interfaceType = entry.interfaceType;
    }
    if (!isWhole)
        return;
    std::erase_if(m_drivers, [&](const auto& item) {
        return !configuredIDs.contains(item.first) && item.first != protocol::panelDriverID &&
               item.second.status != EStatus::Running && item.second.status != EStatus::Hung;
    });
}

/// Held over the calls into the store, here and below: one instance's end and the next one's start would
/// otherwise mix.
void DriverRoster::begins(Driver& started, int pid) {
    // The end of the former one has not been noticed yet, and is not told any more.
    if (started.status == EStatus::Running)
        m_store.driverEnded(started.id, "unloaded");
    started.status = EStatus::Running;
    started.pid = pid;
    started.since = std::chrono::system_clock::now();
    started.nextTry.reset();
    started.receivedPerSecond = 0;
    started.sentPerSecond = 0;
    m_store.driverStarted(started.id);
}

std::optional<std::size_t> DriverRoster::ends(const std::string& driverID, int pid, EStatus status,
                                              const std::string& cause) {
    Driver& ended = driver(driverID);
    if (ended.pid != pid)
        return std::nullopt;
    ended.status = status;
    ended.cause = cause;
    ended.since = std::chrono::system_clock::now();
    ended.receivedPerSecond = 0;
    ended.sentPerSecond = 0;
    return m_store.driverEnded(driverID, cause);
}

void DriverRoster::processStarted(const std::string& driverID, int pid, bool isByHand) {
    const std::lock_guard lock(m_mutex);
    Driver& started = driver(driverID);
    started.interfaceType = EInterfaceTypes::Queue;
    started.isByHand = isByHand;
    begins(started, pid);
}

std::optional<std::size_t> DriverRoster::processEnded(const std::string& driverID, int pid,
                                                      const std::string& cause) {
    const std::lock_guard lock(m_mutex);
    return ends(driverID, pid, EStatus::Ended, cause);
}

std::optional<std::size_t> DriverRoster::processHung(const std::string& driverID, int pid,
                                                     const std::string& cause) {
    const std::lock_guard lock(m_mutex);
    return ends(driverID, pid, EStatus::Hung, cause);
}

void DriverRoster::notStarted(const std::string& driverID, const std::string& cause) {
    const std::lock_guard lock(m_mutex);
    Driver& missing = driver(driverID);
    missing.pid = 0;
    static_cast<void>(ends(driverID, 0, EStatus::Ended, cause));
}

void DriverRoster::setNextTry(const std::string& driverID,
                              std::optional<std::chrono::steady_clock::time_point> nextTry) {
    const std::lock_guard lock(m_mutex);
    driver(driverID).nextTry = nextTry;
}

void DriverRoster::addRestart(const std::string& driverID) {
    const std::lock_guard lock(m_mutex);
    ++driver(driverID).restarts;
}

void DriverRoster::setTraffic(const std::string& driverID, double receivedPerSecond, double sentPerSecond) {
    const std::lock_guard lock(m_mutex);
    Driver& measured = driver(driverID);
    measured.receivedPerSecond = receivedPerSecond;
    measured.sentPerSecond = sentPerSecond;
}

void DriverRoster::callBegins(const std::string& driverID, const char* operation) {
    const std::lock_guard lock(m_mutex);
    m_calls.push_back({driverID, operation, std::chrono::steady_clock::now()});
    if (std::string_view(operation) != "setConfiguration")
        return;
    begins(driver(driverID), 0);
}

void DriverRoster::callEnded(const std::string& driverID, const char* operation) {
    const std::lock_guard lock(m_mutex);
    const auto call = std::find_if(m_calls.begin(), m_calls.end(), [&](const Call& candidate) {
        return candidate.driverID == driverID && candidate.operation == operation;
    });
    if (call != m_calls.end())
        m_calls.erase(call);
}

void DriverRoster::driverDeleted(const std::string& driverID) {
    const std::lock_guard lock(m_mutex);
    static_cast<void>(ends(driverID, 0, EStatus::Ended, "unloaded"));
}

std::vector<DriverRoster::Driver> DriverRoster::drivers() const {
    m_store.refresh({});
    std::vector<Driver> all;
    const std::lock_guard lock(m_mutex);
    for (const auto& [id, driver] : m_drivers)
        all.push_back(driver);
    return all;
}

bool DriverRoster::isRunning(const std::string& driverID) const {
    const std::lock_guard lock(m_mutex);
    const auto position = m_drivers.find(driverID);
    return position != m_drivers.end() && position->second.status == EStatus::Running;
}

bool DriverRoster::hasProcess(const std::string& driverID) const {
    const std::lock_guard lock(m_mutex);
    const auto position = m_drivers.find(driverID);
    return position != m_drivers.end() && position->second.pid > 0 && !position->second.isByHand;
}

std::optional<DriverRoster::Call> DriverRoster::oldestCall() const {
    const std::lock_guard lock(m_mutex);
    if (m_calls.empty())
        return std::nullopt;
    return m_calls.front();
}
