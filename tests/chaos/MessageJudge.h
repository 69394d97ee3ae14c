#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "Ledger.h"
#include "Watcher.h"

/// Judges from the ledgers of all instances which FIDs and events had to arrive and whether they did. Made by
/// Chaos when all is quiet.
///
/// Each FID that was sent whole to a driver that could be reached is judged as far as it is proven that it
/// stood in the receiver's queue before something that the receiver has taken: see provenEnd().
class MessageJudge {
public:
    struct Verdict {
        std::uint64_t sent = 0;    ///< whole, whatever became of sender and receiver
        std::uint64_t judged = 0;  ///< as far as they are proven to have had to come
        std::uint64_t lost = 0;
        std::uint64_t twice = 0;
        std::uint64_t disordered = 0;
        /// What stood last in the queue of a driver that died: sent whole, so the host had to take it out.
        std::uint64_t judgedOfDead = 0;
        std::uint64_t lostOfDead = 0;
        /// The same of one that was told to stop: what it sends between the host's word and its own end is
        /// nobody's any more.
        std::uint64_t countedOfStopped = 0;
        std::uint64_t lostOfStopped = 0;
        std::uint64_t triggered = 0;  ///< events, whatever became of them
        std::uint64_t events = 0;     ///< of them judged
        std::uint64_t eventsLost = 0;
        std::uint64_t eventsDisordered = 0;
        std::size_t instances = 0;
        std::size_t survivors = 0;
        std::size_t full = 0;  ///< ledgers in which not all could be noted
        std::vector<std::string> findings;

        /// Of 100 FIDs that were sent whole, so many were judged.
        double judgedShare() const;
        double judgedEventsShare() const;
    };

    /// Reads all ledgers in the directory, the survivors among them those of these processes.
    MessageJudge(const std::filesystem::path& directory, const std::set<std::int32_t>& survivors);

    /// What the followers of the hosts have printed, and the lives of these hosts; the last one lives, or has
    /// ended in order.
    Verdict judge(const Watcher::EventsByInstance& events, const std::vector<Watcher::Life>& hosts) const;

    /// The ledgers of those that live, by the index of the driver.
    std::map<std::uint32_t, const Ledger*> survivors() const;

private:
    /// From the first number to before the second.
    using Range = std::pair<std::uint64_t, std::uint64_t>;
    /// When something of a sender was heard by anybody, and the highest number that was heard by then.
    using Acknowledged = std::vector<std::pair<std::int64_t, std::uint64_t>>;
    using Entries = std::vector<const Ledger::Sent*>;
    struct Heard {
        std::vector<Range> all;    ///< in the order in which they came
        std::vector<Range> apart;  ///< each number once
        std::uint64_t first = 0;
        std::uint64_t end = 0;
    };

    bool lives(const Ledger& ledger) const;
    /// The next instance of the same driver; null when there is none.
    const Ledger* successor(const Ledger& ledger) const;
    /// How many rounds of the sender were proven by then to have left it whole.
    std::uint64_t acknowledged(std::uint32_t sender, std::int64_t when) const;
    std::uint64_t provenEnd(const Ledger& sender, const Ledger& receiver, const Entries& entries,
                            const Heard& heard) const;
    void noteAcknowledged();
    std::map<std::uint32_t, Heard> heardBy(const Ledger& receiver) const;
    static std::vector<Range> wholeTo(const Ledger& receiver, const Entries& entries, const Heard& heard);
    void judgePair(const Ledger& sender, const Ledger& receiver, const Entries& entries, const Heard& heard,
                   Verdict& verdict) const;
    void judgeEvents(const Watcher::EventsByInstance& events, const std::vector<Watcher::Life>& hosts,
                     Verdict& verdict) const;

    std::map<std::uint32_t, Ledger> m_ledgers;
    /// The newest instance of each driver, when its process lives.
    std::map<std::uint32_t, std::uint32_t> m_survivors;
    std::map<std::uint32_t, Acknowledged> m_acknowledged;
};
