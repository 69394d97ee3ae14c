#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "IPanelState.h"
#include "StateValue.h"

/// The panel state of the workplace: each value with its type, who set it, when, and whether it still holds.
/// Owned by the host; outlives the manager, which reports into it on any driver's thread. Any thread may
/// read.
///
/// A value belongs to the driver named before its first "."; the published driver catalogue belongs to the
/// host, and what a console command set to the console. When a driver ends, its values stay and are marked
/// stale; each is live again when the next instance reports it.
class StateStore : public IPanelState {
public:
    using Clock = std::chrono::steady_clock;

    enum class EOwner { Driver, Host, Console };

    struct Owner {
        EOwner kind = EOwner::Driver;
        std::string driverID;  ///< of a driver only

        /// The driver ID, "host" or "console".
        std::string text() const;
        bool operator==(const Owner& other) const = default;
    };

    struct Entry {
        std::string key;
        StateValue value;
        Owner owner;
        Clock::time_point reported;
        /// Why the value holds no longer; empty for a live value.
        std::string staleCause;
        Clock::time_point staleSince;

        bool isStale() const { return !staleCause.empty(); }
    };

    struct Event {
        std::string id;
        std::string value;
        Owner owner;
        std::chrono::system_clock::time_point when;
    };

    /// Follows the store. Called under the store's lock, so that all see the changes in one order: returns at
    /// once, and never calls the store.
    class Listener {
    public:
        virtual ~Listener() = default;
        /// A value is new, different, or live again.
        virtual void valueChanged(const Entry& entry) = 0;
        virtual void valueUnset(const std::string& key) = 0;
        virtual void eventTriggered(const Event& event) = 0;
        /// The driver's values hold no longer.
        virtual void valuesStale(const std::string& driverID, const std::string& cause,
                                 const std::vector<std::string>& keys) = 0;
    };

    /// While one lives, what its thread sets counts as set at the console.
    class ConsoleMark {
    public:
        ConsoleMark();
        ~ConsoleMark();
        ConsoleMark(const ConsoleMark&) = delete;
        ConsoleMark& operator=(const ConsoleMark&) = delete;
    };

    /// Marks, through driverEnded, what belongs to a driver that has died by now; to any driver for an empty
    /// ID. Called without the store's lock, on whatever thread sets or reads.
    using Refresh = std::function<void(const std::string& driverID)>;

    /// More values than any workplace has; what a driver run wild sets beyond them is dropped and logged
    /// once.
    static constexpr std::size_t s_maxValues = 65536;
    static constexpr std::size_t s_keptEvents = 200;

    /// Is called before a value is taken from a driver and before values are read, so that nobody takes what
    /// a dead driver left for live. Set before others use the store.
    void setRefresh(Refresh refresh) { m_refresh = std::move(refresh); }
    void refresh(const std::string& driverID) const;

    IInterface* queryInterface(unsigned int id) override;
    void setStateValue(const std::string& stateID, const std::string& value) override;
    void setStateValueFloat(const std::string& stateID, float value) override;
    void setStateValueInt(const std::string& stateID, int value) override;
    void setStateValueBool(const std::string& stateID, bool value) override;
    /// The value is forgotten.
    void unsetStateValue(const std::string& stateID) override;
    void triggerEvent(const std::string& eventID, const std::string& value) override;

    /// A new instance of the driver runs. What it set before stays stale until it is reported again.
    void driverStarted(const std::string& driverID);
    /// The driver has ended. Its live values, and those that still arrive, are stale for that cause from now
    /// on; what was stale before keeps its cause and its time. Returns how many were live.
    std::size_t driverEnded(const std::string& driverID, const std::string& cause);

    /// In byte order of the keys, those that match the shell pattern; all for an empty one.
    std::vector<Entry> entries(const std::string& glob) const;
    std::optional<Entry> find(const std::string& key) const;
    /// The last events, oldest first.
    std::vector<Event> events() const;
    /// In byte order, those that begin with the prefix.
    std::vector<std::string> keys(const std::string& prefix) const;

    /// How many values and events have arrived so far.
    std::uint64_t arrivals() const;

    void addListener(Listener* pListener);
    void removeListener(Listener* pListener);

    static bool matches(const std::string& glob, const std::string& key);

private:
    static Owner ownerOf(const std::string& key);
    void set(const std::string& key, StateValue value);

    Refresh m_refresh;
    mutable std::mutex m_mutex;
    std::map<std::string, Entry> m_entries;
    std::deque<Event> m_events;
    /// Drivers that have ended and not started again, with the cause.
    std::map<std::string, std::string> m_ended;
    std::vector<Listener*> m_listeners;
    std::uint64_t m_arrivals = 0;
    bool m_fullLogged = false;
};
