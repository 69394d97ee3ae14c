#include "StateStore.h"

#include <fnmatch.h>

#include <algorithm>

#include "HostLog.h"
#include "InterfaceIds.h"

namespace {
thread_local int t_consoleMarks = 0;
}

StateStore::ConsoleMark::ConsoleMark() {
    ++t_consoleMarks;
}
StateStore::ConsoleMark::~ConsoleMark() {
    --t_consoleMarks;
}

std::string StateStore::Owner::text() const {
    switch (kind) {
        case EOwner::Host:
            return "host";
        case EOwner::Console:
            return "console";
        default:
            return driverID;
    }
}

bool StateStore::matches(const std::string& glob, const std::string& key) {
    return glob.empty() || fnmatch(glob.c_str(), key.c_str(), 0) == 0;
}

StateStore::Owner StateStore::ownerOf(const std::string& key) {
    if (t_consoleMarks > 0)
        return {EOwner::Console, {}};
    if (key.starts_with("PANEL.MFDDEF"))
        return {EOwner::Host, {}};
    return {EOwner::Driver, key.substr(0, key.find('.'))};
}

IInterface* StateStore::queryInterface(unsigned int id) {
    return id == IID_IPanelState ? this : nullptr;
}

void StateStore::setStateValue(const std::string& stateID, const std::string& value) {
    set(stateID, StateValue(value));
}

void StateStore::setStateValueFloat(const std::string& stateID, float value) {
    set(stateID, StateValue(value));
}

void StateStore::setStateValueInt(const std::string& stateID, int value) {
    set(stateID, StateValue(value));
}

void StateStore::setStateValueBool(const std::string& stateID, bool value) {
    set(stateID, StateValue(value));
}

void StateStore::refresh(const std::string& driverID) const {
    if (m_refresh)
        m_refresh(driverID);
}

void StateStore::set(const std::string& key, StateValue value) {
    const auto now = Clock::now();
    Owner owner = ownerOf(key);
    if (owner.kind == EOwner::Driver)
        refresh(owner.driverID);
    std::unique_lock lock(m_mutex);
    ++m_arrivals;
    auto position = m_entries.find(key);
    const bool isNew = position == m_entries.end();
    if (isNew) {
        if (m_entries.size() >= s_maxValues) {
            const bool isFirst = !m_fullLogged;
            m_fullLogged = true;
            lock.unlock();
            if (isFirst)
                hostLog(sal::LogOutput::eError)
                    << owner.text() << ": there are " << s_maxValues << " state values; \"" << key
                    << "\" and further new ones are dropped" << std::endl;
            return;
        }
        position = m_entries.try_emplace(key).first;
        position->second.key = key;
    }
    Entry& entry = position->second;
    std::string staleCause;
    if (owner.kind == EOwner::Driver) {
        if (const auto ended = m_ended.find(owner.driverID); ended != m_ended.end())
            staleCause = ended->second;
    }
    const bool isChanged =
        isNew || !(entry.value == value) || !(entry.owner == owner) || entry.isStale() != !staleCause.empty();
    if (!staleCause.empty())
        entry.staleSince = now;
    entry.value = std::move(value);
    entry.owner = std::move(owner);
    entry.reported = now;
    entry.staleCause = std::move(staleCause);
    if (isChanged) {
        for (Listener* pListener : m_listeners)
            pListener->valueChanged(entry);
    }
}

void StateStore::unsetStateValue(const std::string& stateID) {
    const std::lock_guard lock(m_mutex);
    ++m_arrivals;
    if (m_entries.erase(stateID) == 0)
        return;
    for (Listener* pListener : m_listeners)
        pListener->valueUnset(stateID);
}

void StateStore::triggerEvent(const std::string& eventID, const std::string& value) {
    Event event{eventID, value, ownerOf(eventID), std::chrono::system_clock::now()};
    const std::lock_guard lock(m_mutex);
    ++m_arrivals;
    for (Listener* pListener : m_listeners)
        pListener->eventTriggered(event);
    m_events.push_back(std::move(event));
    if (m_events.size() > s_keptEvents)
        m_events.pop_front();
}

void StateStore::driverStarted(const std::string& driverID) {
    const std::lock_guard lock(m_mutex);
    m_ended.erase(driverID);
}

std::size_t StateStore::driverEnded(const std::string& driverID, const std::string& cause) {
    const auto now = Clock::now();
    std::vector<std::string> keys;
    const std::lock_guard lock(m_mutex);
    m_ended[driverID] = cause;
    for (auto& [key, entry] : m_entries) {
        if (entry.owner.kind != EOwner::Driver || entry.owner.driverID != driverID)
            continue;
        // What was stale before keeps its own cause: it is of an earlier instance.
        if (entry.isStale())
            continue;
        entry.staleSince = now;
        entry.staleCause = cause;
        keys.push_back(key);
    }
    if (!keys.empty()) {
        for (Listener* pListener : m_listeners)
            pListener->valuesStale(driverID, cause, keys);
    }
    return keys.size();
}

std::vector<StateStore::Entry> StateStore::entries(const std::string& glob) const {
    refresh({});
    std::vector<Entry> found;
    const std::lock_guard lock(m_mutex);
    for (const auto& [key, entry] : m_entries) {
        if (matches(glob, key))
            found.push_back(entry);
    }
    return found;
}

std::optional<StateStore::Entry> StateStore::find(const std::string& key) const {
    refresh({});
    const std::lock_guard lock(m_mutex);
    const auto position = m_entries.find(key);
    if (position == m_entries.end())
        return std::nullopt;
    return position->second;
}

std::vector<StateStore::Event> StateStore::events() const {
    const std::lock_guard lock(m_mutex);
    return {m_events.begin(), m_events.end()};
}

std::vector<std::string> StateStore::keys(const std::string& prefix) const {
    std::vector<std::string> found;
    const std::lock_guard lock(m_mutex);
    for (auto position = m_entries.lower_bound(prefix);
         position != m_entries.end() && position->first.starts_with(prefix); ++position)
        found.push_back(position->first);
    return found;
}

std::uint64_t StateStore::arrivals() const {
    const std::lock_guard lock(m_mutex);
    return m_arrivals;
}

void StateStore::addListener(Listener* pListener) {
    const std::lock_guard lock(m_mutex);
    m_listeners.push_back(pListener);
}

void StateStore::removeListener(Listener* pListener) {
    const std::lock_guard lock(m_mutex);
    std::erase(m_listeners, pListener);
}
