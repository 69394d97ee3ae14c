#include "AlarmList.h"

#include <algorithm>
#include <utility>

#include "PanelNames.h"

namespace {

const std::string& panelAlarm() {
    static const std::string s_key = std::string(protocol::panelDriverID) + ".ALARM";
    return s_key;
}

std::string driverKey(const std::string& driverID) {
    return driverID + ".DRIVER";
}

bool isOfDriver(const AlarmList::Alarm& alarm) {
    return alarm.key.ends_with(".DRIVER");
}

}  // namespace

AlarmList::AlarmList(std::function<Clock::time_point()> now) : m_now(std::move(now)) {}

void AlarmList::changed(const DriverTable::Driver& driver) {
    const std::lock_guard lock(m_mutex);
    const bool isParked = driver.state == EDriverState::Parking || driver.state == EDriverState::Parked;
    if (isParked) {
        m_parked.insert(driver.id);
        remove(driver.id);
        remove(driverKey(driver.id));
    } else {
        m_parked.erase(driver.id);
    }
    // What somebody started by hand ends as he pleases.
    switch (driver.isByHand ? EDriverState::NotLoaded : driver.state) {
        case EDriverState::Running:
            if (Alarm* pAlarm = find(driverKey(driver.id)))
                pAlarm->isOver = true;
            break;
        case EDriverState::Hung:
            raise(driverKey(driver.id), driver.cause, false);
            break;
        case EDriverState::Waiting:
        case EDriverState::Ended:
            raise(driverKey(driver.id), "ended: " + driver.cause, false);
            break;
        default:
            break;
    }
}

void AlarmList::valueUnset(const std::string& key) {
    if (key != panelAlarm())
        return;
    const std::lock_guard lock(m_mutex);
    // The panel shows no alarm any more.
    for (Alarm& alarm : m_alarms)
        alarm.isOver = alarm.isOver || !isOfDriver(alarm);
}

void AlarmList::eventTriggered(const StateStore::Event& event) {
    if (event.id != panelAlarm())
        return;
    const auto colon = event.value.find(": ");
    const std::string source = event.value.substr(0, colon);
    const std::lock_guard lock(m_mutex);
    if (!m_parked.contains(source))
        raise(source, colon == std::string::npos ? std::string() : event.value.substr(colon + 2), true);
}

/// One that lasts is only raised again when each time is an event of its own.
void AlarmList::raise(const std::string& key, const std::string& text, bool isRepeated) {
    if (Alarm* pAlarm = find(key)) {
        if (isRepeated || pAlarm->isOver)
            ++pAlarm->count;
        pAlarm->text = text;
        pAlarm->isOver = false;
        return;
    }
    if (m_alarms.size() >= s_capacity) {
        m_alarms.erase(m_alarms.begin());
        ++m_dropped;
    }
    m_alarms.push_back({.key = key, .text = text, .raised = std::chrono::system_clock::now()});
}

void AlarmList::remove(const std::string& key) {
    std::erase_if(m_alarms, [&](const Alarm& alarm) { return alarm.key == key; });
}

AlarmList::Alarm* AlarmList::find(const std::string& key) {
    const auto found =
        std::find_if(m_alarms.begin(), m_alarms.end(), [&](const Alarm& alarm) { return alarm.key == key; });
    return found == m_alarms.end() ? nullptr : &*found;
}

bool AlarmList::isInSight(const Alarm& alarm) const {
    return !alarm.shelvedUntil || *alarm.shelvedUntil <= m_now();
}

std::vector<AlarmList::Alarm> AlarmList::alarms() const {
    const std::lock_guard lock(m_mutex);
    std::vector<Alarm> alarms = m_alarms;
    for (Alarm& alarm : alarms) {
        if (isInSight(alarm)) {
            alarm.shelvedUntil.reset();
            alarm.shelvedBy.clear();
        }
    }
    return alarms;
}

std::size_t AlarmList::inSight() const {
    const std::lock_guard lock(m_mutex);
    return static_cast<std::size_t>(std::count_if(m_alarms.begin(), m_alarms.end(),
                                                  [this](const Alarm& alarm) { return isInSight(alarm); }));
}

std::uint64_t AlarmList::dropped() const {
    const std::lock_guard lock(m_mutex);
    return m_dropped;
}

bool AlarmList::acknowledge(const std::string& key) {
    const std::lock_guard lock(m_mutex);
    const bool isThere = find(key) != nullptr;
    remove(key);
    return isThere;
}

std::size_t AlarmList::acknowledgeAll() {
    const std::lock_guard lock(m_mutex);
    m_dropped = 0;
    return std::erase_if(m_alarms, [this](const Alarm& alarm) { return isInSight(alarm); });
}

bool AlarmList::shelve(const std::string& key, std::chrono::seconds time, const std::string& who) {
    const std::lock_guard lock(m_mutex);
    Alarm* pAlarm = find(key);
    if (pAlarm) {
        pAlarm->shelvedUntil = m_now() + time;
        pAlarm->shelvedBy = who;
    }
    return pAlarm != nullptr;
}
