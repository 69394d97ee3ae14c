#include "DriverRoster.h"

#include <algorithm>
#include <string_view>

DriverRoster::DriverRoster(StateStore& store) : m_store(store) {
    // The module starts this one whatever the configuration says.
    Driver& panel = driver("PANEL");
    panel.type = "Panel";
    panel.version = "1.0";
    panel.interfaceType = EInterfaceTypes::Direct;
}

DriverRoster::Driver& DriverRoster::driver(const std::string& driverID) {
    Driver& found = m_drivers[driverID];
    found.id = driverID;
    return found;
}

void DriverRoster::configure(const std::vector<WorkplaceFile::Entry>& entries) {
    const std::lock_guard lock(m_mutex);
    for (const WorkplaceFile::Entry& entry : entries) {
        Driver& configured = driver(entry.driverID);
        configured.type = entry.driverType;
        configured.version = entry.version;
        configured.interfaceType = entry.interfaceType;
    }
    std::erase_if(m_drivers, [&](const auto& item) {
        const bool isConfigured = std::any_of(
            entries.begin(), entries.end(), [&](const auto& entry) { return entry.driverID == item.first; });
        return !isConfigured && item.first != "PANEL" && item.second.status != EStatus::Running;
    });
}

void DriverRoster::processStarted(const std::string& driverID, int pid) {
    {
        const std::lock_guard lock(m_mutex);
        Driver& started = driver(driverID);
        started.interfaceType = EInterfaceTypes::Queue;
        started.status = EStatus::Running;
        started.pid = pid;
        started.cause.clear();
        started.since = std::chrono::system_clock::now();
    }
    m_store.driverStarted(driverID);
}

std::optional<std::size_t> DriverRoster::processEnded(const std::string& driverID, int pid,
                                                      const std::string& cause) {
    // Held over the call into the store: a newer process could otherwise start between the two.
    const std::lock_guard lock(m_mutex);
    Driver& ended = driver(driverID);
    if (ended.pid != pid)
        return std::nullopt;
    ended.status = EStatus::Ended;
    ended.cause = cause;
    ended.since = std::chrono::system_clock::now();
    return m_store.driverEnded(driverID, cause);
}

void DriverRoster::callBegins(const std::string& driverID, const char* operation) {
    const std::lock_guard lock(m_mutex);
    m_calls.push_back({driverID, operation, std::chrono::steady_clock::now()});
    if (std::string_view(operation) != "setConfiguration")
        return;
    Driver& started = driver(driverID);
    started.status = EStatus::Running;
    started.pid = 0;
    started.cause.clear();
    started.since = std::chrono::system_clock::now();
    m_store.driverStarted(driverID);
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
    Driver& ended = driver(driverID);
    ended.status = EStatus::Ended;
    ended.cause = "unloaded";
    ended.since = std::chrono::system_clock::now();
    m_store.driverEnded(driverID, ended.cause);
}

std::vector<DriverRoster::Driver> DriverRoster::drivers() const {
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
    return position != m_drivers.end() && position->second.pid > 0;
}

std::optional<DriverRoster::Call> DriverRoster::oldestCall() const {
    const std::lock_guard lock(m_mutex);
    if (m_calls.empty())
        return std::nullopt;
    return m_calls.front();
}
