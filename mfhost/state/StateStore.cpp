#include "StateStore.h"

#include <fnmatch.h>

#include <algorithm>

#include "HostLog.h"
#include "InterfaceIds.h"
#include "PanelNames.h"
#include "Printable.h"

namespace {

thread_local int t_consoleMarks = 0;

/// What the module publishes of the descriptors that it has found.
bool isOfCatalogue(const std::string& key) {
    return key.starts_with(protocol::catalogueKey);
}

}  // namespace

StateStore::ConsoleMark::ConsoleMark() {
    ++t_consoleMarks;
}
StateStore::ConsoleMark::~ConsoleMark() {
    --t_consoleMarks;
}

StateStore::StateStore() : StateStore(Settings()) {}

StateStore::StateStore(Settings settings) : m_settings(settings) {}

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

StateStore::EOwner StateStore::kindOf(const std::string& key) {
    if (t_consoleMarks > 0)
        return EOwner::Console;
    return isOfCatalogue(key) ? EOwner::Host : EOwner::Driver;
}

StateStore::Owner StateStore::ownerOf(const std::string& key) {
    const EOwner kind = kindOf(key);
    return {kind, kind == EOwner::Driver ? key.substr(0, key.find('.')) : std::string()};
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

/// Calls the function for each entry of the driver, which it may take away. A driver's entries follow one
/// another, so nothing else is looked at: a key belongs to the driver named before its first ".".
template <class Function>
void StateStore::forEachOf(const std::string& driverID, const Share& share, Function function) {
    if (const auto position = m_entries.find(driverID);
        position != m_entries.end() && position->second.pShare == &share)
        function(position);
    const std::string prefix = driverID + ".";
    for (auto next = m_entries.lower_bound(prefix);
         next != m_entries.end() && next->first.starts_with(prefix);) {
        const auto position = next++;
        if (position->second.pShare == &share)
            function(position);
    }
}

StateStore::Share& StateStore::share(const Owner& owner) {
    const auto [position, isNew] = m_shares.try_emplace(owner);
    if (isNew)
        position->second.limit = owner.kind == EOwner::Host ? s_maxHostValues : m_settings.maxValues;
    return position->second;
}

/// What an instance that is gone has left gives way to what a living one reports, not to what a dead one did.
bool StateStore::makeRoom(const Owner& owner, Share& share) {
    if (share.values >= share.limit && share.endCause.empty() && share.stale > 0)
        forgetStale(owner.driverID, share);
    return share.values < share.limit;
}

/// Counts a loss; whether it is one to be logged.
bool StateStore::isLossNews(Share& share, Clock::time_point now) const {
    ++share.lost;
    if (share.isLosing || (share.lossSaid && now - *share.lossSaid < m_settings.lossInterval))
        return false;
    share.isLosing = true;
    share.lossSaid = now;
    return true;
}

void StateStore::set(const std::string& key, StateValue value) {
    const auto now = Clock::now();
    const EOwner kind = kindOf(key);
    std::unique_lock lock(m_mutex);
    ++m_arrivals;
    if (now >= m_nextSettling)
        forgetSettled(now);
    auto position = m_entries.find(key);
    const bool isNew = position == m_entries.end();
    if (isNew) {
        const Owner owner = ownerOf(key);
        Share& its = share(owner);
        if (!makeRoom(owner, its)) {
            const bool isNews = isLossNews(its, now);
            const std::size_t limit = its.limit;
            lock.unlock();
            if (isNews)
                hostLog(sal::LogOutput::eError)
                    << owner.text() << ": " << limit << " state values are kept at most; "
                    << base::quoted(key) << " and further new ones are dropped" << std::endl;
            return;
        }
        Kept fresh;
        fresh.entry.key = key;
        fresh.entry.owner = owner;
        fresh.pShare = &its;
        position = m_entries.emplace(key, std::move(fresh)).first;
        ++its.values;
    }
    Kept& kept = position->second;
    // Whose key it is never changes; who sets it may.
    const bool isTaken = kept.entry.owner.kind != kind;
    if (isTaken)
        takeOver(kept, ownerOf(key));
    if (update(kept, std::move(value), now) || isNew || isTaken) {
        for (Listener* pListener : m_listeners)
            pListener->valueChanged(kept.entry);
    }
}

/// From the console, or by it: what is there already is never refused.
void StateStore::takeOver(Kept& kept, const Owner& owner) {
    Share& its = share(owner);
    kept.entry.owner = owner;
    takeOut(kept);
    kept.entry.staleCause.clear();
    kept.pShare = &its;
    ++its.values;
}

/// Whether anything is different now but the time.
bool StateStore::update(Kept& kept, StateValue value, Clock::time_point now) {
    Entry& entry = kept.entry;
    Share& its = *kept.pShare;
    const bool wasStale = entry.isStale();
    const bool isOther = !(entry.value == value);
    const bool isChanged = isOther || wasStale != !its.endCause.empty();
    if (isOther)
        entry.value = std::move(value);
    entry.start = its.start;
    entry.reported = now;
    if (!its.endCause.empty()) {
        entry.staleCause = its.endCause;
        entry.staleSince = now;
        if (!wasStale)
            ++its.stale;
        return isChanged;
    }
    if (wasStale) {
        entry.staleCause.clear();
        --its.stale;
    }
    if (its.stale > 0 && (wasStale || !its.hasReported)) {
        its.settles = now + m_settings.settleTime;
        m_nextSettling = std::min(m_nextSettling, its.settles);
    }
    its.hasReported = true;
    return isChanged;
}

/// The value leaves its owner's share.
void StateStore::takeOut(const Kept& kept) {
    Share& its = *kept.pShare;
    if (kept.entry.isStale())
        --its.stale;
    if (--its.values < its.limit)
        its.isLosing = false;
}

void StateStore::forget(Entries::iterator position) {
    const auto forgotten = m_entries.extract(position);
    takeOut(forgotten.mapped());
    for (Listener* pListener : m_listeners)
        pListener->valueUnset(forgotten.key());
}

void StateStore::forgetStale(const std::string& driverID, Share& share) {
    forEachOf(driverID, share, [this](Entries::iterator position) {
        if (position->second.entry.isStale())
            forget(position);
    });
}

void StateStore::forgetSettled(Clock::time_point now) {
    m_nextSettling = Clock::time_point::max();
    for (auto& [owner, its] : m_shares) {
        if (its.settles <= now) {
            its.settles = Clock::time_point::max();
            forgetStale(owner.driverID, its);
        }
        m_nextSettling = std::min(m_nextSettling, its.settles);
    }
}

void StateStore::forgetSettled() {
    const std::lock_guard lock(m_mutex);
    forgetSettled(Clock::now());
}

void StateStore::unsetStateValue(const std::string& stateID) {
    const std::lock_guard lock(m_mutex);
    ++m_arrivals;
    const auto position = m_entries.find(stateID);
    if (position != m_entries.end())
        forget(position);
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

std::uint64_t StateStore::driverStarted(const std::string& driverID) {
    const std::lock_guard lock(m_mutex);
    Share& its = share({EOwner::Driver, driverID});
    its.endCause.clear();
    its.hasReported = false;
    its.settles = Clock::time_point::max();
    its.lost = 0;
    return ++its.start;
}

std::size_t StateStore::driverEnded(const std::string& driverID, const std::string& cause,
                                    std::optional<std::uint64_t> start) {
    const auto now = Clock::now();
    std::vector<std::string> keys;
    const std::lock_guard lock(m_mutex);
    Share& its = share({EOwner::Driver, driverID});
    const std::uint64_t ended = start.value_or(its.start);
    // Without one nothing would be stale.
    const std::string staleCause = cause.empty() ? "ended" : cause;
    if (ended >= its.start) {
        its.endCause = staleCause;
        its.settles = Clock::time_point::max();
    }
    forEachOf(driverID, its, [&](Entries::iterator position) {
        Entry& entry = position->second.entry;
        // What was stale before keeps its own cause: it is of an earlier instance.
        if (entry.isStale() || entry.start > ended)
            return;
        entry.staleSince = now;
        entry.staleCause = staleCause;
        ++its.stale;
        keys.push_back(position->first);
    });
    if (keys.empty())
        return 0;
    // The newer instance, which may have reported everything by now, settles from here.
    if (ended < its.start && its.hasReported) {
        its.settles = now + m_settings.settleTime;
        m_nextSettling = std::min(m_nextSettling, its.settles);
    }
    for (Listener* pListener : m_listeners)
        pListener->valuesStale(driverID, staleCause, keys);
    return keys.size();
}

void StateStore::driverParked(const std::string& driverID, const std::string& cause) {
    driverEnded(driverID, cause);
    const std::lock_guard lock(m_mutex);
    Share& its = share({EOwner::Driver, driverID});
    forEachOf(driverID, its, [&](Entries::iterator position) { position->second.entry.staleCause = cause; });
}

std::vector<StateStore::Entry> StateStore::entries(const std::string& glob) const {
    std::vector<Entry> found;
    const std::lock_guard lock(m_mutex);
    for (const auto& [key, kept] : m_entries) {
        if (matches(glob, key))
            found.push_back(kept.entry);
    }
    return found;
}

std::optional<StateStore::Entry> StateStore::find(const std::string& key) const {
    const std::lock_guard lock(m_mutex);
    const auto position = m_entries.find(key);
    if (position == m_entries.end())
        return std::nullopt;
    return position->second.entry;
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

std::vector<StateStore::Loss> StateStore::losses() const {
    std::vector<Loss> found;
    const std::lock_guard lock(m_mutex);
    for (const auto& [owner, its] : m_shares) {
        if (its.lost > 0)
            found.push_back({owner, its.lost, its.limit});
    }
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
