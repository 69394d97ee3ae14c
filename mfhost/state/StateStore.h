#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "IPanelState.h"
#include "Observation.h"
#include "StateValue.h"

/// The panel state of the workplace: each value with its type, who set it, when, and whether it still holds.
/// Owned by the host; outlives the manager, which reports into it on any driver's thread. It asks nobody
/// whether a driver lives: a thread that reads, on whichever it is, first has the ends looked for.
///
/// A value belongs to the driver named before its first "."; the published driver catalogue belongs to the
/// host, and what a console command set to the console. Each of them has room of its own. When a driver ends,
/// its values stay, stale, until the next instance reports them, or has settled without them or needs their
/// room. What is named after one driver lies in a shard of its own, with its own lock. Any thread.
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
        /// Of the last change: of anything here but the two times. Every change in the store has another
        /// version, higher than those of all that came before it.
        std::uint64_t version = 0;

        bool isStale() const { return !staleCause.empty(); }
    };

    struct Event {
        std::string id;
        std::string value;
        Owner owner;
        std::chrono::system_clock::time_point when;
        /// Counts all events from 1 on; 0 while the event is told to listeners.
        std::uint64_t number = 0;
    };

    /// What has changed since a version.
    struct Changes {
        std::uint64_t version = 0;  ///< to ask with the next time
        /// The entries are all that there are: what is not among them does not exist.
        bool isComplete = false;
        std::vector<Entry> entries;      ///< in byte order of the keys
        std::vector<std::string> unset;  ///< in byte order; none of a complete answer
    };

    /// Follows the store. What becomes of the values and events that are named after one driver is told one
    /// at a time, in its order, and before the call that changes them returns. Of different drivers it is
    /// told on several threads at once, in no order that means anything; the entries' versions tell which
    /// came first. Called under the lock of the driver's shard: returns at once, and never calls the store.
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

    /// What there is of one driver.
    struct Count {
        std::string driverID;
        std::size_t values = 0;
        std::size_t stale = 0;       ///< of these
        std::uint64_t lost = 0;      ///< new values without room, since its last start
        std::uint64_t arrivals = 0;  ///< of what is named after it, whoever has set it
    };

    /// The published catalogue, whose size only the descriptors set.
    static constexpr std::size_t s_maxHostValues = 65536;
    static constexpr std::size_t s_keptEvents = 200;
    /// How many forgotten keys of one driver are remembered.
    static constexpr std::size_t s_keptUnset = 1024;

    StateStore();
    explicit StateStore(Settings settings);

    /// Where each change, event and end is recorded, before other threads use the store; none by default. Of
    /// a value that changes more often than every 10 ms only every so many changes are, and the last one
    /// always.
    void setObservation(Observation* pObservation) { m_pObservation = pObservation; }
    /// Records the values that are held back since they change so often. Every 10 ms.
    void recordHeldBack();
    /// The same of those that are named after one driver.
    void recordHeldBack(const std::string& driverID);

    IInterface* queryInterface(unsigned int id) override;
    void setStateValue(const std::string& stateID, const std::string& value) override;
    void setStateValueFloat(const std::string& stateID, float value) override;
    void setStateValueInt(const std::string& stateID, int value) override;
    void setStateValueBool(const std::string& stateID, bool value) override;
    /// The value is forgotten.
    void unsetStateValue(const std::string& stateID) override;
    void triggerEvent(const std::string& eventID, const std::string& value) override;

    /// Sets a driver's value that stands for something far away, where it was reported at that time. With a
    /// cause it does not hold, though its driver runs, until it is set without one or as any other. The
    /// stream records the value alone, as of now.
    void setFar(const std::string& key, StateValue value, const std::string& cause,
                Clock::time_point reported);
    /// The same of those of the keys that the driver has set and that are live. Returns how many.
    std::size_t makeStale(const std::string& driverID, const std::vector<std::string>& keys,
                          const std::string& cause);

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
    /// What has changed since the version of an earlier answer and matches the shell pattern: the entries as
    /// they are now, and the keys that are no more. Complete for 0, for a version of another host, and where
    /// more was forgotten since than is remembered. Costs what has changed. What changes meanwhile may be
    /// told now and, with the same version, once more the next time; nothing is left out.
    Changes changes(const std::string& glob, std::uint64_t since) const;
    /// The last events, oldest first.
    std::vector<Event> events() const;
    /// In byte order, those that begin with the prefix.
    std::vector<std::string> keys(const std::string& prefix) const;

    /// Of those that have lost values.
    std::vector<Loss> losses() const;

    /// Of all whom anything was named after so far, in no order.
    std::vector<Count> counts() const;

    /// How many values and events have arrived so far.
    std::uint64_t arrivals() const;
    /// What has arrived under the name of one driver.
    struct Arrivals {
        std::string driverID;
        std::uint64_t all = 0;
        std::uint64_t changes = 0;  ///< those that were news
    };
    /// In byte order of the IDs, without drivers of which nothing has come.
    std::vector<Arrivals> arrivalsByDriver() const;

    void addListener(Listener* pListener);
    /// When it returns no call to the listener is under way.
    void removeListener(Listener* pListener);

    static bool matches(const std::string& glob, const std::string& key);

private:
    static constexpr std::size_t s_buckets = 256;

    /// How many values one owner has.
    struct Room {
        explicit Room(std::size_t most) : limit(most) {}
        /// Counts a loss; whether it is one to be logged.
        bool isLossNews(Clock::time_point now, Clock::duration interval);
        void leave();

        const std::size_t limit;
        std::size_t values = 0;
        std::uint64_t lost = 0;  ///< of a driver since its last start
        bool isLosing = false;   ///< that it loses values is said, and it has had no room since
        std::optional<Clock::time_point> lossSaid;
    };
    struct Kept {
        Entry entry;
        bool isUnset = false;  ///< only that there was such a key is remembered
        // Of its records in the stream.
        bool isHeldBack = false;       ///< the last change has none yet
        std::uint32_t streamKey = 0;   ///< 0: not asked for yet
        Clock::time_point recorded{};  ///< when the last one was made
        Clock::time_point arrived{};   ///< when the change came that has none yet
    };
    using List = std::list<Kept>;
    using Position = List::iterator;

    /// The values that are named after one driver, whoever has set them.
    struct alignas(64) Shard {
        Shard(std::string_view itsDriver, const Settings& settings);

        bool mayHold(std::string_view prefix) const;
        /// The end of the entries where there is none.
        Position find(const std::string& key);
        /// Of a key that has no entry. Without a version yet.
        Position add(const std::string& key);
        /// The entry is one no more; only its key is remembered.
        void remember(Position position);
        /// Takes over what is named after its driver.
        void adoptFrom(Shard& other);
        /// The driver's own in byte order of the keys, without what others have set.
        template <class Predicate>
        std::vector<Position> own(Predicate predicate);

        const std::string driverID;
        Shard* pNext = nullptr;  ///< in the same bucket

        mutable std::mutex mutex;
        List entries;  ///< in order of their versions
        List unset;    ///< likewise; what is remembered of keys that were forgotten
        /// Of both lists.
        std::unordered_map<std::string_view, Position> index;
        /// The entry that had changed next after the one that was found last, or the end of the entries: a
        /// driver that reports its values in turn is mostly at it again.
        Position expected = entries.end();
        std::uint64_t unsetUntil = 0;  ///< the version of the last key that is not even remembered
        Room room;                     ///< the driver's; in the console's shard, the console's
        Room hostRoom;                 ///< the host's: all its values are in the panel driver's shard
        std::vector<Listener*> listeners;
        std::uint64_t arrivals = 0;
        std::uint64_t changes = 0;        ///< arrivals that were news
        std::size_t heldBack = 0;         ///< values whose last change is not recorded yet
        std::uint16_t streamNumber = 0;   ///< of the driver in the stream; 0: not asked for yet
        std::uint64_t refusedEvents = 0;  ///< not recorded, and not told yet
        std::uint32_t refusedTick = 0;    ///< the observation's when they were last looked at

        // Of the driver.
        std::size_t stale = 0;     ///< how many of its values
        std::uint64_t start = 0;   ///< how often it was started
        std::string endCause;      ///< of a driver that has ended and not started again; else empty
        bool hasReported = false;  ///< since the last start
        Clock::time_point settles = Clock::time_point::max();
    };
    struct Locked {
        Shard& shard;
        std::unique_lock<std::mutex> lock;
    };
    struct EventSlot {
        std::mutex mutex;
        std::uint64_t number = 0;  ///< of the event; 0 before the first
        Event event;
    };
    struct Refusal {
        bool isNews = false;
        std::size_t limit = 0;
    };

    static EOwner kindOf(const std::string& key);
    static Owner ownerOf(EOwner kind, const std::string& key);
    void set(const std::string& key, StateValue value, const std::string& staleCause = {},
             Clock::time_point reported = Clock::time_point::max());

    static std::size_t bucketOf(std::string_view driverID);
    Shard* findShard(std::string_view driverID) const;
    Shard& addShard(std::string_view driverID);
    Locked lockShardOf(const std::string& key) const;
    Locked lockDriversShard(std::string_view driverID);
    Locked lockShardFor(EOwner kind, const std::string& key);
    template <class Function>
    void forEachShard(std::string_view prefix, Function function) const;

    // With the shard's lock.
    std::unique_lock<std::mutex> lockRoom(const Shard& shard, EOwner kind) const;
    Room& roomOf(Shard& shard, EOwner kind) const;
    std::optional<Refusal> takeRoom(Shard& shard, EOwner kind, Clock::time_point now);
    void leaveRoom(Shard& shard, const Entry& entry);
    void takeOver(Shard& shard, Entry& entry, EOwner kind);
    bool update(Shard& shard, Position position, StateValue value, Clock::time_point now, bool isNews,
                const std::string& staleCause);
    void change(Shard& shard, Position position);
    void forget(Shard& shard, Position position);
    void forgetStale(Shard& shard);
    std::size_t end(Shard& shard, const std::string& cause, std::optional<std::uint64_t> start);
    std::size_t tellStale(Shard& shard, const std::vector<Position>& positions, const std::string& cause,
                          Clock::time_point now);
    void settleLater(Shard& shard, Clock::time_point now);

    // Into the stream, where that is recorded.
    void recordChange(Shard& shard, Kept& kept, Clock::time_point now);
    void write(Shard& shard, Kept& kept, Clock::time_point when);
    std::uint16_t streamNumber(Shard& shard);
    void recordHeldBack(Shard& shard);
    void recordEvent(Shard& shard, const Event& event);

    void lookAgainBy(Clock::time_point time);
    void forgetSettled(Clock::time_point now);
    std::uint64_t nextVersion();
    void listenEverywhere();
    std::vector<Entry> collect(const std::string& glob) const;
    bool collectChanges(const std::string& glob, std::uint64_t since, Changes& found) const;

    const Settings m_settings;
    Observation* m_pObservation = nullptr;
    /// Of whoever goes through the shards or adds one. Taken before a shard's lock.
    mutable std::mutex m_shardsMutex;
    /// None ever goes.
    std::vector<std::unique_ptr<Shard>> m_shards;
    std::vector<Listener*> m_listeners;
    /// What the console sets in the name of drivers that nobody has heard of. Its lock is taken after that of
    /// another shard.
    Shard& m_console;
    /// The other shards by the hash of the driver's ID, each the first of a list. Found without a lock.
    std::array<std::atomic<Shard*>, s_buckets> m_buckets;
    /// Not later than the next instance settles.
    std::atomic<Clock::rep> m_nextSettling = Clock::time_point::max().time_since_epoch().count();
    const std::uint64_t m_firstVersion;
    /// On a line of the cache without others that are read with each value, as is the number of events.
    alignas(64) std::atomic<std::uint64_t> m_version;
    alignas(64) std::atomic<std::uint64_t> m_lastEvent = 0;
    /// An event takes the slot of the one that came so many before it.
    mutable std::array<EventSlot, s_keptEvents> m_events;
};
