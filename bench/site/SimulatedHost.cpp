#include "SimulatedHost.h"

#include <utility>

#include "SteadyTime.h"
#include "Wakeup.h"

SimulatedHost::SimulatedHost(const ValueNames& names, Live live, Stale stale)
    : m_names(names), m_live(std::move(live)), m_stale(std::move(stale)), m_values(names.size()) {}

/// All types that carry a number.
ILinkHost::Value SimulatedHost::valueOf(std::size_t place, std::uint32_t number) {
    if (place % 3 == 0)
        return static_cast<int>(number);
    if (place % 3 == 1)
        return static_cast<float>(number);
    return "position " + std::to_string(number);
}

void SimulatedHost::change(std::size_t place) {
    std::unique_lock lock(m_mutex);
    Known& known = m_values[place];
    known.change = {known.change.number + 1, steadyNanoseconds(), 0};
    known.version = ++m_version;
    const bool isWatched = std::exchange(m_isWatched, false);
    lock.unlock();
    if (isWatched)
        base::Wakeup::wake(m_changes);
}

SimulatedHost::Change SimulatedHost::last(std::size_t place) const {
    const std::lock_guard lock(m_mutex);
    return m_values[place].change;
}

std::uint64_t SimulatedHost::told() const {
    const std::lock_guard lock(m_mutex);
    return m_told;
}

IInterface* SimulatedHost::queryInterface(unsigned int id) {
    return id == ILinkHost::s_id ? this : nullptr;
}

ILinkHost::Changes SimulatedHost::changes(std::uint64_t since) const {
    const std::lock_guard lock(m_mutex);
    Changes changes{m_version, since == 0, {}, {}};
    const std::int64_t now = steadyNanoseconds();
    for (std::size_t place = 0; since < m_version && place < m_values.size(); ++place) {
        Known& known = m_values[place];
        if (known.version <= since)
            continue;
        if (known.change.toldAt == 0)
            known.change.toldAt = now;
        changes.states.push_back({m_names.key(place), valueOf(place, known.change.number), {}});
    }
    m_told += changes.states.size();
    return changes;
}

void SimulatedHost::setFar(const std::string& key, const Value& value, const std::string& cause,
                           std::chrono::steady_clock::time_point) {
    const std::string driverID = key.substr(0, key.find('.'));
    if (cause.empty())
        m_live(driverID, key.substr(driverID.size() + 1), value);
    else
        makeStale(driverID, {key}, cause);
}

void SimulatedHost::makeStale(const std::string& driverID, const std::vector<std::string>& keys,
                              const std::string&) {
    for (const std::string& key : keys)
        m_stale(driverID, key.substr(driverID.size() + 1));
}

void SimulatedHost::open(const std::string&, int outcomes, int changes) {
    const std::lock_guard lock(m_mutex);
    m_wakeup = outcomes;
    m_changes = changes;
}

void SimulatedHost::watch(const std::string&) {
    const std::lock_guard lock(m_mutex);
    m_isWatched = true;
}

void SimulatedHost::close(const std::string&) {
    const std::lock_guard lock(m_mutex);
    m_wakeup = m_changes = -1;
}

std::uint64_t SimulatedHost::send(const std::string&, const std::string&, const FIDParameterList&,
                                  const std::string&) {
    const std::lock_guard lock(m_mutex);
    m_outcomes.push_back({++m_lastFid, EOutcome::Done, {}});
    base::Wakeup::wake(m_wakeup);
    return m_lastFid;
}

std::vector<ILinkHost::Outcome> SimulatedHost::outcomes(const std::string&) {
    const std::lock_guard lock(m_mutex);
    return std::exchange(m_outcomes, {});
}
