#pragma once

#include <chrono>
#include <compare>
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
/// Owned by the host; outlives the manager, which reports into it on any driver's thread. It asks nobody
/// whether a driver lives: a thread that reads, on whichever it is, first has the ends looked for.
///
/// A value belongs to the driver named before its first "."; the published driver catalogue belongs to the
/// host, and what a console command set to the console. Each of them has room of its own. When a driver ends,
/// its values stay and are marked stale; each is live again when the next instance reports it, and forgotten
/// when that instance has settled without it or needs its room.
class StateStore : public IPanelState {
public:
    using Clock = std::chrono::steady_clock;

    enum class EOwner { Driver, Host, Console };

    struct Owner {
        EOwner kind = EOwner::Driver;
        std::string driverID;  ///< of a driver only

        /// The driver ID, "host" or "console".
        std::string text() const;
        auto operator<=>(const Owner& other) const = default;
    };

    struct Entry {
        std::string key;
        StateValue value;
        Owner owner;
        std::uint64_t start = 0;  ///< which start of its driver it is of; 0 before the first
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

    struct Settings {
        /// How many values one driver may have, and the console: more than any has, few enough that one run
        /// wild does not harm the host. New values beyond them are dropped, counted and logged; those that
        /// are there are still updated.
        std::size_t maxValues = 16384;
        /// An instance has settled when it has reported something and then for so long brought no stale value
        /// of the former ones back. What is still stale then is forgotten.
        Clock::duration settleTime = std::chrono::seconds(60);
        /// An owner's losses are logged when they begin; after there was room, and that long later, again.
        Clock::duration lossInterval = std::chrono::seconds(60);
    };

    /// New values that an owner's room had no place for.
    struct Loss {
        Owner owner;
        std::uint64_t values = 0;  ///< of a driver since its last start
        std::size_t limit = 0;
    };

    /// The published catalogue, whose size only the descriptors set.
    static constexpr std::size_t s_maxHostValues = 65536;
    static constexpr std::size_t s_keptEvents = 200;

    StateStore();
    explicit StateStore(Settings settings);

    IInterface* queryInterface(unsigned int id) override;
    void setStateValue(const std::string& stateID, const std::string& value) override;
    void setStateValueFloat(const std::string& stateID, float value) override;
    void setStateValueInt(const std::string& stateID, int value) override;
    void setStateValueBool(const std::string& stateID, bool value) override;
    /// The value is forgotten.
    void unsetStateValue(const std::string& stateID) override;
    void triggerEvent(const std::string& eventID, const std::string& value) override;

    /// A new instance of the driver runs. What it set before stays stale until it is reported again or
    /// forgotten; a forgotten value is told as unset. Returns the number of the start, which the values that
    /// arrive from now on carry.
    std::uint64_t driverStarted(const std::string& driverID);
    /// The instance of that start has ended; without a number, the last one. Its live values and those of
    /// earlier ones are stale for that cause from now on, and so is what still arrives unless a newer
    /// instance runs; what was stale before keeps its cause and its time. Returns how many were live.
    std::size_t driverEnded(const std::string& driverID, const std::string& cause,
                            std::optional<std::uint64_t> start = std::nullopt);

    /// The driver has ended, and is not to run: what was stale before is stale for this cause, too.
    void driverParked(const std::string& driverID, const std::string& cause);

    /// Forgets what drivers that have settled by now no longer report. Each report does so by itself; for a
    /// workplace that is silent.
    void forgetSettled();

    /// In byte order of the keys, those that match the shell pattern; all for an empty one.
    std::vector<Entry> entries(const std::string& glob) const;
    std::optional<Entry> find(const std::string& key) const;
    /// The last events, oldest first.
    std::vector<Event> events() const;
    /// In byte order, those that begin with the prefix.
    std::vector<std::string> keys(const std::string& prefix) const;

    /// Of those that have lost values.
    std::vector<Loss> losses() const;

    /// How many values and events have arrived so far.
    std::uint64_t arrivals() const;

    void addListener(Listener* pListener);
    void removeListener(Listener* pListener);

    static bool matches(const std::string& glob, const std::string& key);

private:
    /// What one owner has in the store.
    struct Share {
        std::size_t limit = 0;
        std::size_t values = 0;
        std::size_t stale = 0;   ///< how many of them
        std::uint64_t lost = 0;  ///< since the last start
        bool isLosing = false;   ///< that it loses values is said, and it has had no room since
        std::optional<Clock::time_point> lossSaid;

        std::uint64_t start = 0;   ///< how often its driver was started
        std::string endCause;      ///< of a driver that has ended and not started again; else empty
        bool hasReported = false;  ///< since the last start
        Clock::time_point settles = Clock::time_point::max();
    };
    struct Kept {
        Entry entry;
        Share* pShare = nullptr;
    };
    using Entries = std::map<std::string, Kept>;

    static EOwner kindOf(const std::string& key);
    static Owner ownerOf(const std::string& key);
    void set(const std::string& key, StateValue value);

    // Under the lock.
    Share& share(const Owner& owner);
    bool makeRoom(const Owner& owner, Share& share);
    bool isLossNews(Share& share, Clock::time_point now) const;
    void takeOver(Kept& kept, const Owner& owner);
    bool update(Kept& kept, StateValue value, Clock::time_point now);
    static void takeOut(const Kept& kept);
    template <class Function>
    void forEachOf(const std::string& driverID, const Share& share, Function function);
    void forget(Entries::iterator position);
    void forgetStale(const std::string& driverID, Share& share);
    void forgetSettled(Clock::time_point now);

    const Settings m_settings;
    mutable std::mutex m_mutex;
    Entries m_entries;
    std::map<Owner, Share> m_shares;
    /// Not later than the next instance settles.
    Clock::time_point m_nextSettling = Clock::time_point::max();
    std::deque<Event> m_events;
    std::vector<Listener*> m_listeners;
    std::uint64_t m_arrivals = 0;
};
