#include "StateStore.h"

#include <fnmatch.h>

#include <algorithm>
#include <set>
#include <string_view>
#include <utility>
#include <variant>

#include "HostLog.h"
#include "InterfaceIds.h"
#include "PanelNames.h"
#include "Printable.h"

namespace {

thread_local int t_consoleMarks = 0;

/// A value has a record at most so often.
constexpr std::chrono::milliseconds s_recordInterval{10};

/// Whom a key is named after.
std::string_view driverOf(const std::string& key) {
    return std::string_view(key).substr(0, key.find('.'));
}

/// What every match of the shell pattern begins with.
std::string_view literalStart(const std::string& glob) {
    return std::string_view(glob).substr(0, glob.find_first_of("*?[\\"));
}

/// Versions of a host that was started later are higher, so that what somebody asks with who knows only the
/// former one is not taken for a version of this one. Exact in a double, too.
std::uint64_t versionAtStart() {
    const auto time = std::chrono::system_clock::now().time_since_epoch();
    return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::microseconds>(time).count());
}

std::vector<StateStore::Entry> inByteOrder(std::vector<StateStore::Entry> entries) {
    std::sort(entries.begin(), entries.end(),
              [](const auto& left, const auto& right) { return left.key < right.key; });
    return entries;
}

/// What the module publishes of the descriptors that it has found.
bool isOfCatalogue(const std::string& key) {
    constexpr std::string_view begin(protocol::catalogueKey);
    return key.size() >= begin.size() && std::equal(begin.begin(), begin.end(), key.begin());
}

}  // namespace

StateStore::ConsoleMark::ConsoleMark() {
    ++t_consoleMarks;
}
StateStore::ConsoleMark::~ConsoleMark() {
    --t_consoleMarks;
}

StateStore::StateStore() : StateStore(Settings()) {}

StateStore::StateStore(Settings settings)
    : m_settings(settings),
      m_console(*m_shards.emplace_back(std::make_unique<Shard>("", m_settings))),
      m_firstVersion(versionAtStart()),
      m_version(m_firstVersion) {}

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

StateStore::Owner StateStore::ownerOf(EOwner kind, const std::string& key) {
    return {kind, kind == EOwner::Driver ? std::string(driverOf(key)) : std::string()};
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

StateStore::Shard::Shard(std::string_view itsDriver, const Settings& settings)
    : driverID(itsDriver), room(settings.maxValues), hostRoom(s_maxHostValues) {}

/// Whether keys that begin so may be in it. In the console's shard, whose ID is empty, any may be.
bool StateStore::Shard::mayHold(std::string_view prefix) const {
    return prefix.starts_with(driverID) || std::string_view(driverID).starts_with(prefix);
}

StateStore::Position StateStore::Shard::find(const std::string& key) {
    Position position = expected;
    if (position == entries.end() || position->entry.key != key) {
        const auto found = index.find(key);
        if (found == index.end() || found->second->isUnset)
            return entries.end();
        position = found->second;
    }
    expected = std::next(position);
    return position;
}

StateStore::Position StateStore::Shard::add(const std::string& key) {
    if (const auto found = index.find(key); found != index.end()) {
        const Position again = found->second;
        again->isUnset = false;
        entries.splice(entries.end(), unset, again);
        return again;
    }
    const Position added = entries.emplace(entries.end());
    added->entry.key = key;
    index.emplace(added->entry.key, added);
    return added;
}

void StateStore::Shard::remember(Position position) {
    Entry& entry = position->entry;
    if (expected == position)
        expected = entries.end();
    position->isUnset = true;
    entry.value = StateValue();
    entry.staleCause.clear();
    unset.splice(unset.end(), entries, position);
    if (unset.size() <= s_keptUnset)
        return;
    unsetUntil = unset.front().entry.version;
    index.erase(unset.front().entry.key);
    unset.pop_front();
}

void StateStore::Shard::adoptFrom(Shard& other) {
    const auto adopt = [&](List& list, List& from) {
        for (auto next = from.begin(); next != from.end();) {
            const Position position = next++;
            const std::string& key = position->entry.key;
            if (driverOf(key) != driverID)
                continue;
            other.index.erase(key);
            // Its name in the stream is the driver's from now on.
            position->streamKey = 0;
            if (position->isHeldBack) {
                --other.heldBack;
                ++heldBack;
            }
            list.splice(list.end(), from, position);
            index.emplace(key, position);
        }
    };
    other.expected = other.entries.end();
    adopt(entries, other.entries);
    adopt(unset, other.unset);
}

template <class Predicate>
std::vector<StateStore::Position> StateStore::Shard::own(Predicate predicate) {
    std::vector<Position> found;
    for (Position position = entries.begin(); position != entries.end(); ++position) {
        if (position->entry.owner.kind == EOwner::Driver && predicate(position->entry))
            found.push_back(position);
    }
    std::sort(found.begin(), found.end(),
              [](Position left, Position right) { return left->entry.key < right->entry.key; });
    return found;
}

std::size_t StateStore::bucketOf(std::string_view driverID) {
    return std::hash<std::string_view>()(driverID) % s_buckets;
}

StateStore::Shard* StateStore::findShard(std::string_view driverID) const {
    Shard* pShard = m_buckets[bucketOf(driverID)].load(std::memory_order_acquire);
    while (pShard && pShard->driverID != driverID)
        pShard = pShard->pNext;
    return pShard;
}

StateStore::Shard& StateStore::addShard(std::string_view driverID) {
    const std::lock_guard shards(m_shardsMutex);
    if (Shard* pShard = findShard(driverID))
        return *pShard;
    Shard& added = *m_shards.emplace_back(std::make_unique<Shard>(driverID, m_settings));
    added.listeners = m_listeners;
    auto& bucket = m_buckets[bucketOf(driverID)];
    added.pNext = bucket.load(std::memory_order_relaxed);
    // Whoever holds this lock can rely on there being no shard but those that are found.
    const std::lock_guard console(m_console.mutex);
    added.adoptFrom(m_console);
    bucket.store(&added, std::memory_order_release);
    return added;
}

/// Where the key is, or the console would put it.
StateStore::Locked StateStore::lockShardOf(const std::string& key) const {
    Shard* pShard = findShard(driverOf(key));
    if (!pShard) {
        std::unique_lock console(m_console.mutex);
        pShard = findShard(driverOf(key));
        if (!pShard)
            return {m_console, std::move(console)};
    }
    return {*pShard, std::unique_lock(pShard->mutex)};
}

/// Made where there is none.
StateStore::Locked StateStore::lockDriversShard(std::string_view driverID) {
    Shard* pShard = findShard(driverID);
    Shard& shard = pShard ? *pShard : addShard(driverID);
    return {shard, std::unique_lock(shard.mutex)};
}

StateStore::Locked StateStore::lockShardFor(EOwner kind, const std::string& key) {
    return kind == EOwner::Console ? lockShardOf(key) : lockDriversShard(driverOf(key));
}

/// Calls the function with each shard that may hold keys that begin so, with its lock.
template <class Function>
void StateStore::forEachShard(std::string_view prefix, Function function) const {
    const std::lock_guard shards(m_shardsMutex);
    for (const auto& pShard : m_shards) {
        if (!pShard->mayHold(prefix))
            continue;
        const std::lock_guard lock(pShard->mutex);
        function(*pShard);
    }
}

/// What the console has set may be in any shard.
std::unique_lock<std::mutex> StateStore::lockRoom(const Shard& shard, EOwner kind) const {
    if (kind != EOwner::Console || &shard == &m_console)
        return {};
    return std::unique_lock(m_console.mutex);
}

StateStore::Room& StateStore::roomOf(Shard& shard, EOwner kind) const {
    switch (kind) {
        case EOwner::Host:
            return shard.hostRoom;
        case EOwner::Console:
            return m_console.room;
        default:
            return shard.room;
    }
}

bool StateStore::Room::isLossNews(Clock::time_point now, Clock::duration interval) {
    ++lost;
    if (isLosing || (lossSaid && now - *lossSaid < interval))
        return false;
    isLosing = true;
    lossSaid = now;
    return true;
}

void StateStore::Room::leave() {
    if (--values < limit)
        isLosing = false;
}

/// For one more value. What an instance that is gone has left gives way to what a living one reports, not to
/// what a dead one did.
std::optional<StateStore::Refusal> StateStore::takeRoom(Shard& shard, EOwner kind, Clock::time_point now) {
    const auto lock = lockRoom(shard, kind);
    Room& room = roomOf(shard, kind);
    if (room.values >= room.limit && kind == EOwner::Driver && shard.endCause.empty() && shard.stale > 0)
        forgetStale(shard);
    if (room.values >= room.limit)
        return Refusal{room.isLossNews(now, m_settings.lossInterval), room.limit};
    ++room.values;
    return std::nullopt;
}

void StateStore::leaveRoom(Shard& shard, const Entry& entry) {
    if (entry.isStale())
        --shard.stale;
    const auto lock = lockRoom(shard, entry.owner.kind);
    roomOf(shard, entry.owner.kind).leave();
}

void StateStore::setFar(const std::string& key, StateValue value, const std::string& cause,
                        Clock::time_point reported) {
    set(key, std::move(value), cause, reported);
}

void StateStore::set(const std::string& key, StateValue value, const std::string& staleCause,
                     Clock::time_point reported) {
    const auto now = Clock::now();
    const EOwner kind = kindOf(key);
    if (now.time_since_epoch().count() >= m_nextSettling.load(std::memory_order_relaxed))
        forgetSettled(now);
    auto [shard, lock] = lockShardFor(kind, key);
    ++shard.arrivals;
    Position position = shard.find(key);
    const bool isNew = position == shard.entries.end();
    if (isNew) {
        if (const auto refusal = takeRoom(shard, kind, now)) {
            lock.unlock();
            if (refusal->isNews)
                hostLog(sal::LogOutput::eError) << ownerOf(kind, key).text() << ": " << refusal->limit
                                                << " state values are kept at most; " << base::quoted(key)
                                                << " and further new ones are dropped" << std::endl;
            return;
        }
        position = shard.add(key);
        position->entry.owner = ownerOf(kind, key);
    }
    // Whose key it is never changes; who sets it may.
    const bool isTaken = position->entry.owner.kind != kind;
    if (isTaken)
        takeOver(shard, position->entry, kind);
    if (m_pObservation) {
        Observation::ThreadPart& thread = Observation::ofThread();
        thread.clock = now;
        ++thread.delivered;
    }
    const bool isNews = update(shard, position, std::move(value), now, isNew || isTaken, staleCause);
    position->entry.reported = std::min(now, reported);
    if (isNews) {
        ++shard.changes;
        if (m_pObservation)
            recordChange(shard, *position, now);
        for (Listener* pListener : shard.listeners)
            pListener->valueChanged(position->entry);
    }
}

std::uint16_t StateStore::streamNumber(Shard& shard) {
    if (shard.streamNumber == 0)
        shard.streamNumber = m_pObservation->number(shard.driverID);
    return shard.streamNumber;
}

void StateStore::recordChange(Shard& shard, Kept& kept, Clock::time_point now) {
    if (now - kept.recorded >= s_recordInterval) {
        if (std::exchange(kept.isHeldBack, false))
            --shard.heldBack;
        write(shard, kept, now);
        return;
    }
    kept.arrived = now;
    if (!std::exchange(kept.isHeldBack, true))
        ++shard.heldBack;
    m_pObservation->holdBack();
}

void StateStore::write(Shard& shard, Kept& kept, Clock::time_point when) {
    const std::string& name = kept.entry.key;
    const Observation::Time time = m_pObservation->at(when);
    if (kept.streamKey == 0)
        kept.streamKey = m_pObservation->keys().key(streamNumber(shard), name, time);
    kept.recorded = when;
    struct Writer {
        stream::StreamWriter& stream;
        Observation::Time time;
        stream::StreamWriter::Key key;
        void operator()(const std::string& text) const { stream.valueText(time, key, text); }
        void operator()(float number) const { stream.valueFloat(time, key, number); }
        void operator()(int number) const { stream.valueInt(time, key, number); }
        void operator()(bool flag) const { stream.valueBool(time, key, flag); }
    };
    const Writer writer{m_pObservation->stream(), time, {kept.streamKey, name}};
    if (kept.isUnset)
        writer.stream.valueUnset(time, writer.key);
    else
        std::visit(writer, kept.entry.value.value());
}

/// What came before it is in the stream before it.
void StateStore::recordEvent(Shard& shard, const Event& event) {
    ++Observation::ofThread().delivered;
    const std::uint16_t driver = streamNumber(shard);
    // In a flood the share is looked at once a tick.
    const std::uint32_t tick = m_pObservation->ticks();
    if ((shard.refusedEvents > 0 && shard.refusedTick == tick) || m_pObservation->isSpent(driver)) {
        shard.refusedTick = tick;
        if (shard.refusedEvents++ == 0)
            m_pObservation->holdBack();
        return;
    }
    recordHeldBack(shard);
    const Observation::Time time = event.when;
    m_pObservation->stream().event(time, {m_pObservation->keys().key(driver, event.id, time), event.id},
                                   event.value);
}

/// In the order in which they have changed. Those that did so last stand at the end.
void StateStore::recordHeldBack(Shard& shard) {
    if (shard.refusedEvents > 0)
        m_pObservation->addRefused(streamNumber(shard), std::exchange(shard.refusedEvents, 0));
    Position kept = shard.entries.end();
    for (std::size_t found = 0; found < shard.heldBack && kept != shard.entries.begin();)
        found += (--kept)->isHeldBack ? 1 : 0;
    for (; shard.heldBack > 0 && kept != shard.entries.end(); ++kept) {
        if (!std::exchange(kept->isHeldBack, false))
            continue;
        --shard.heldBack;
        write(shard, *kept, kept->arrived);
    }
}

void StateStore::recordHeldBack() {
    if (!m_pObservation || !m_pObservation->takeHeldBack())
        return;
    forEachShard({}, [this](Shard& shard) { recordHeldBack(shard); });
}

void StateStore::recordHeldBack(const std::string& driverID) {
    if (!m_pObservation || !findShard(driverID))
        return;
    const auto [shard, lock] = lockDriversShard(driverID);
    recordHeldBack(shard);
}

/// From the console, or by it: what is there already is never refused.
void StateStore::takeOver(Shard& shard, Entry& entry, EOwner kind) {
    leaveRoom(shard, entry);
    entry.staleCause.clear();
    entry.owner = ownerOf(kind, entry.key);
    const auto lock = lockRoom(shard, kind);
    ++roomOf(shard, kind).values;
}

/// Whether it is news to who follows; it is where the value differs, or holds again.
bool StateStore::update(Shard& shard, Position position, StateValue value, Clock::time_point now, bool isNews,
                        const std::string& staleCause) {
    Entry& entry = position->entry;
    const bool isDrivers = entry.owner.kind == EOwner::Driver;
    const bool wasStale = entry.isStale();
    const std::string& cause = shard.endCause.empty() ? staleCause : shard.endCause;
    const bool isStale = isDrivers && !cause.empty();
    const std::uint64_t start = isDrivers ? shard.start : 0;
    if (!(entry.value == value)) {
        entry.value = std::move(value);
        isNews = true;
    }
    isNews |= wasStale != isStale;
    const bool isChange = isNews || entry.start != start || (isStale && entry.staleCause != cause);
    entry.start = start;
    if (isStale) {
        entry.staleCause = cause;
        entry.staleSince = now;
        if (!wasStale)
            ++shard.stale;
    } else if (isDrivers) {
        if (wasStale) {
            entry.staleCause.clear();
            --shard.stale;
        }
        if (shard.stale > 0 && (wasStale || !shard.hasReported))
            settleLater(shard, now);
        shard.hasReported = true;
    }
    if (isChange)
        change(shard, position);
    return isNews;
}

/// Called with the lock of the shard that changes. A reader loads the number before he locks any shard, so he
/// misses no change up to it: its shard was locked when the number was taken, and he locks it afterwards.
/// Were his turn at the lock the earlier one, his load would come before that change, too, and not see its
/// number.
std::uint64_t StateStore::nextVersion() {
    return m_version.fetch_add(1, std::memory_order_relaxed) + 1;
}

void StateStore::change(Shard& shard, Position position) {
    position->entry.version = nextVersion();
    shard.entries.splice(shard.entries.end(), shard.entries, position);
}

void StateStore::forget(Shard& shard, Position position) {
    leaveRoom(shard, position->entry);
    position->entry.version = nextVersion();
    if (std::exchange(position->isHeldBack, false))
        --shard.heldBack;
    shard.remember(position);
    if (m_pObservation)
        write(shard, *position, Clock::now());
    for (Listener* pListener : shard.listeners)
        pListener->valueUnset(position->entry.key);
}

void StateStore::forgetStale(Shard& shard) {
    // What the instance that runs has called stale itself is not left by another.
    const auto isLeft = [&](const Entry& entry) {
        return entry.isStale() && (!shard.endCause.empty() || entry.start < shard.start);
    };
    for (const Position position : shard.own(isLeft))
        forget(shard, position);
}

void StateStore::settleLater(Shard& shard, Clock::time_point now) {
    shard.settles = now + m_settings.settleTime;
    lookAgainBy(shard.settles);
}

void StateStore::lookAgainBy(Clock::time_point time) {
    const Clock::rep then = time.time_since_epoch().count();
    Clock::rep next = m_nextSettling.load(std::memory_order_relaxed);
    while (then < next && !m_nextSettling.compare_exchange_weak(next, then, std::memory_order_relaxed)) {
    }
}

void StateStore::forgetSettled(Clock::time_point now) {
    // First: what is to settle from now on, in whichever shard, makes it earlier again.
    m_nextSettling.store(Clock::time_point::max().time_since_epoch().count(), std::memory_order_relaxed);
    forEachShard({}, [&](Shard& shard) {
        if (shard.settles <= now) {
            shard.settles = Clock::time_point::max();
            forgetStale(shard);
        }
        lookAgainBy(shard.settles);
    });
}

void StateStore::forgetSettled() {
    forgetSettled(Clock::now());
}

void StateStore::unsetStateValue(const std::string& stateID) {
    const auto [shard, lock] = lockShardOf(stateID);
    ++shard.arrivals;
    if (m_pObservation)
        ++Observation::ofThread().delivered;
    const Position position = shard.find(stateID);
    if (position != shard.entries.end())
        forget(shard, position);
}

void StateStore::triggerEvent(const std::string& eventID, const std::string& value) {
    const EOwner kind = kindOf(eventID);
    Event event{eventID, value, ownerOf(kind, eventID), std::chrono::system_clock::now()};
    const auto [shard, lock] = lockShardFor(kind, eventID);
    ++shard.arrivals;
    ++shard.changes;
    if (m_pObservation)
        recordEvent(shard, event);
    for (Listener* pListener : shard.listeners)
        pListener->eventTriggered(event);
    const std::uint64_t number = m_lastEvent.fetch_add(1, std::memory_order_relaxed) + 1;
    EventSlot& slot = m_events[number % s_keptEvents];
    const std::lock_guard slotLock(slot.mutex);
    // One that came so many later may have been faster.
    if (slot.number < number) {
        slot.number = number;
        slot.event = std::move(event);
    }
}

std::uint64_t StateStore::driverStarted(const std::string& driverID) {
    const auto [shard, lock] = lockDriversShard(driverID);
    shard.endCause.clear();
    shard.hasReported = false;
    shard.settles = Clock::time_point::max();
    shard.room.lost = 0;
    return ++shard.start;
}

std::size_t StateStore::driverEnded(const std::string& driverID, const std::string& cause,
                                    std::optional<std::uint64_t> start) {
    const auto [shard, lock] = lockDriversShard(driverID);
    return end(shard, cause, start);
}

void StateStore::driverParked(const std::string& driverID, const std::string& cause) {
    const auto [shard, lock] = lockDriversShard(driverID);
    end(shard, cause, std::nullopt);
    const auto isOther = [&shard = shard](const Entry& entry) { return entry.staleCause != shard.endCause; };
    for (const Position position : shard.own(isOther)) {
        position->entry.staleCause = shard.endCause;
        change(shard, position);
    }
}

std::size_t StateStore::end(Shard& shard, const std::string& cause, std::optional<std::uint64_t> start) {
    const auto now = Clock::now();
    const std::uint64_t ended = start.value_or(shard.start);
    // Without one nothing would be stale.
    const std::string staleCause = cause.empty() ? "ended" : cause;
    if (ended >= shard.start) {
        shard.endCause = staleCause;
        shard.settles = Clock::time_point::max();
    }
    if (m_pObservation)
        recordHeldBack(shard);
    // What was stale before keeps its own cause: it is of an earlier instance.
    const auto holds = [&](const Entry& entry) { return !entry.isStale() && entry.start <= ended; };
    const std::size_t count = tellStale(shard, shard.own(holds), staleCause, now);
    // The newer instance, which may have reported everything by now, settles from here.
    if (count > 0 && ended < shard.start && shard.hasReported)
        settleLater(shard, now);
    return count;
}

/// Of live values of the shard's driver, in byte order.
std::size_t StateStore::tellStale(Shard& shard, const std::vector<Position>& positions,
                                  const std::string& cause, Clock::time_point now) {
    std::vector<std::string> keys;
    for (const Position position : positions) {
        Entry& entry = position->entry;
        entry.staleSince = now;
        entry.staleCause = cause;
        ++shard.stale;
        change(shard, position);
        keys.push_back(entry.key);
    }
    if (keys.empty())
        return 0;
    if (m_pObservation)
        m_pObservation->stream().stale(m_pObservation->at(now), streamNumber(shard),
                                       static_cast<std::uint32_t>(keys.size()), cause);
    for (Listener* pListener : shard.listeners)
        pListener->valuesStale(shard.driverID, cause, keys);
    return keys.size();
}

std::size_t StateStore::makeStale(const std::string& driverID, const std::vector<std::string>& keys,
                                  const std::string& cause) {
    const std::set<std::string_view> meant(keys.begin(), keys.end());
    const auto [shard, lock] = lockDriversShard(driverID);
    if (m_pObservation)
        recordHeldBack(shard);
    const auto isMeant = [&](const Entry& entry) { return !entry.isStale() && meant.contains(entry.key); };
    return tellStale(shard, shard.own(isMeant), cause.empty() ? "not known any more" : cause, Clock::now());
}

std::vector<StateStore::Entry> StateStore::collect(const std::string& glob) const {
    std::vector<Entry> found;
    forEachShard(literalStart(glob), [&](const Shard& shard) {
        for (const Kept& kept : shard.entries) {
            if (matches(glob, kept.entry.key))
                found.push_back(kept.entry);
        }
    });
    return found;
}

std::vector<StateStore::Entry> StateStore::entries(const std::string& glob) const {
    return inByteOrder(collect(glob));
}

/// Whether everything that has changed is remembered.
bool StateStore::collectChanges(const std::string& glob, std::uint64_t since, Changes& found) const {
    bool isRemembered = true;
    const auto forEachSince = [&](const List& list, auto take) {
        for (auto kept = list.rbegin(); kept != list.rend() && kept->entry.version > since; ++kept) {
            if (matches(glob, kept->entry.key))
                take(kept->entry);
        }
    };
    forEachShard(literalStart(glob), [&](const Shard& shard) {
        isRemembered &= shard.unsetUntil <= since;
        if (!isRemembered)
            return;
        forEachSince(shard.entries, [&](const Entry& entry) { found.entries.push_back(entry); });
        forEachSince(shard.unset, [&](const Entry& entry) { found.unset.push_back(entry.key); });
    });
    return isRemembered;
}

StateStore::Changes StateStore::changes(const std::string& glob, std::uint64_t since) const {
    Changes found;
    // Before the shards: nextVersion() says why.
    found.version = m_version.load(std::memory_order_relaxed);
    found.isComplete = since < m_firstVersion || since > found.version || !collectChanges(glob, since, found);
    if (found.isComplete) {
        found.entries = collect(glob);
        found.unset.clear();
    }
    found.entries = inByteOrder(std::move(found.entries));
    std::sort(found.unset.begin(), found.unset.end());
    return found;
}

std::optional<StateStore::Entry> StateStore::find(const std::string& key) const {
    const auto [shard, lock] = lockShardOf(key);
    const Position position = shard.find(key);
    if (position == shard.entries.end())
        return std::nullopt;
    return position->entry;
}

std::vector<StateStore::Event> StateStore::events() const {
    std::vector<std::pair<std::uint64_t, Event>> numbered;
    for (EventSlot& slot : m_events) {
        const std::lock_guard lock(slot.mutex);
        if (slot.number > 0)
            numbered.emplace_back(slot.number, slot.event);
    }
    std::sort(numbered.begin(), numbered.end(),
              [](const auto& left, const auto& right) { return left.first < right.first; });
    std::vector<Event> found;
    for (auto& [number, event] : numbered) {
        found.push_back(std::move(event));
        found.back().number = number;
    }
    return found;
}

std::vector<std::string> StateStore::keys(const std::string& prefix) const {
    std::vector<std::string> found;
    forEachShard(prefix, [&](const Shard& shard) {
        for (const Kept& kept : shard.entries) {
            if (kept.entry.key.starts_with(prefix))
                found.push_back(kept.entry.key);
        }
    });
    std::sort(found.begin(), found.end());
    return found;
}

std::vector<StateStore::Loss> StateStore::losses() const {
    std::vector<Loss> found;
    const auto add = [&](Owner owner, const Room& room) {
        if (room.lost > 0)
            found.push_back({std::move(owner), room.lost, room.limit});
    };
    forEachShard({}, [&](const Shard& shard) {
        add({&shard == &m_console ? EOwner::Console : EOwner::Driver, shard.driverID}, shard.room);
        add({EOwner::Host, {}}, shard.hostRoom);
    });
    std::sort(found.begin(), found.end(),
              [](const Loss& left, const Loss& right) { return left.owner < right.owner; });
    return found;
}

std::vector<StateStore::Count> StateStore::counts() const {
    std::vector<Count> found;
    forEachShard({}, [&](const Shard& shard) {
        if (&shard != &m_console)
            found.push_back(
                {shard.driverID, shard.room.values, shard.stale, shard.room.lost, shard.arrivals});
    });
    return found;
}

std::uint64_t StateStore::arrivals() const {
    std::uint64_t sum = 0;
    forEachShard({}, [&](const Shard& shard) { sum += shard.arrivals; });
    return sum;
}

std::vector<StateStore::Arrivals> StateStore::arrivalsByDriver() const {
    std::vector<Arrivals> found;
    forEachShard({}, [&](const Shard& shard) {
        if (shard.arrivals > 0 && !shard.driverID.empty())
            found.push_back({shard.driverID, shard.arrivals, shard.changes});
    });
    std::sort(found.begin(), found.end(),
              [](const Arrivals& left, const Arrivals& right) { return left.driverID < right.driverID; });
    return found;
}

void StateStore::addListener(Listener* pListener) {
    const std::lock_guard shards(m_shardsMutex);
    m_listeners.push_back(pListener);
    listenEverywhere();
}

void StateStore::removeListener(Listener* pListener) {
    const std::lock_guard shards(m_shardsMutex);
    std::erase(m_listeners, pListener);
    listenEverywhere();
}

/// With the lock of the shards.
void StateStore::listenEverywhere() {
    for (const auto& pShard : m_shards) {
        const std::lock_guard lock(pShard->mutex);
        pShard->listeners = m_listeners;
    }
}
