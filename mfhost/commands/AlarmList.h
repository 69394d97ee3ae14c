#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "DriverTable.h"
#include "StateStore.h"

/// The alarms of the workplace, each in sight until an operator acknowledges it: those that drivers raise at
/// the panel (the event PANEL.ALARM), under the name of their source, and a driver that hangs or ends without
/// being asked to, as ID.DRIVER. A driver that is parked has none. Owned by Host; told by the store and the
/// table of drivers under their locks, asked by commands and by the console. Any thread.
class AlarmList : public StateStore::Listener {
public:
    using Clock = std::chrono::steady_clock;

    /// Of more than these the one that was raised first gives way, and is counted.
    static constexpr std::size_t s_capacity = 200;
    static constexpr std::chrono::seconds s_longestShelving = std::chrono::hours(7 * 24);

    struct Alarm {
        std::string key;
        std::string text;  ///< as it was raised last
        std::chrono::system_clock::time_point raised;
        std::uint64_t count = 1;  ///< how often since it was acknowledged
        bool isOver = false;      ///< what it was raised for is no longer so
        /// Out of sight until then.
        std::optional<Clock::time_point> shelvedUntil = std::nullopt;
        std::string shelvedBy = {};  ///< who has put it there
    };

    /// now is the time of shelving.
    explicit AlarmList(std::function<Clock::time_point()> now = &Clock::now);

    /// As DriverTable::Follower.
    void changed(const DriverTable::Driver& driver);

    void valueChanged(const StateStore::Entry&) override {}
    void valueUnset(const std::string& key) override;
    void eventTriggered(const StateStore::Event& event) override;
    void valuesStale(const std::string&, const std::string&, const std::vector<std::string>&) override {}

    /// In the order in which they were raised, those out of sight as well.
    std::vector<Alarm> alarms() const;
    std::size_t inSight() const;
    /// How many have given way, unseen or not.
    std::uint64_t dropped() const;

    /// Takes the alarm off the list until it is raised again. False when there is none of that key.
    bool acknowledge(const std::string& key);
    /// The same with all that are in sight; how many they were.
    std::size_t acknowledgeAll();
    /// Keeps the alarm out of sight for that time, even when it is raised again; no time puts it back. False
    /// when there is none of that key.
    bool shelve(const std::string& key, std::chrono::seconds time, const std::string& who);

private:
    // Under the lock.
    void raise(const std::string& key, const std::string& text, bool isRepeated);
    void remove(const std::string& key);
    bool isInSight(const Alarm& alarm) const;
    Alarm* find(const std::string& key);

    const std::function<Clock::time_point()> m_now;
    mutable std::mutex m_mutex;
    std::vector<Alarm> m_alarms;
    std::set<std::string> m_parked;
    std::uint64_t m_dropped = 0;
};
