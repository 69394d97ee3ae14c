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
/// A FID is judged when it was sent whole to a driver that could be reached before, and the receiver took a
/// later one of the same sender or both live to the end: then it must have come, once and in order. What was
/// on its way when one of both ended is not judged; what a sender that ended later had sent whole to a
/// receiver that lived to the end is counted apart.
class MessageJudge {
public:
    struct Verdict {
        std::uint64_t sent = 0;  ///< whole, whatever became of sender and receiver
        std::uint64_t judged = 0;
        std::uint64_t lost = 0;
        std::uint64_t twice = 0;
        std::uint64_t disordered = 0;
        /// Sent whole by a driver that died afterwards, to one that lived to the end.
        std::uint64_t judgedOfDead = 0;
        std::uint64_t lostOfDead = 0;
        /// The same of one that was told to stop: what it sends between the host's word and its own end is
        /// nobody's any more.
        std::uint64_t countedOfStopped = 0;
        std::uint64_t lostOfStopped = 0;
        std::uint64_t events = 0;
        std::uint64_t eventsLost = 0;
        std::uint64_t eventsDisordered = 0;
        std::size_t instances = 0;
        std::size_t survivors = 0;
        std::size_t full = 0;  ///< ledgers in which not all could be noted
        std::vector<std::string> findings;
    };

    /// Reads all ledgers in the directory, the survivors among them those of these processes.
    MessageJudge(const std::filesystem::path& directory, const std::set<std::int32_t>& survivors);

    Verdict judge(const std::map<std::uint32_t, Watcher::Events>& events) const;

    /// The ledgers of those that live, by the index of the driver.
    std::map<std::uint32_t, const Ledger*> survivors() const;

private:
    /// From the first number to before the second.
    using Range = std::pair<std::uint64_t, std::uint64_t>;

    bool lives(const Ledger& ledger) const;
    void judgePair(const Ledger& sender, const Ledger& receiver, const std::vector<Range>& heard,
                   Verdict& verdict) const;
    std::vector<Range> wholeTo(const Ledger& sender, const Ledger& receiver) const;
    void judgeEvents(const std::map<std::uint32_t, Watcher::Events>& events, Verdict& verdict) const;

    std::map<std::uint32_t, Ledger> m_ledgers;
    /// The newest instance of each driver, when its process lives.
    std::map<std::uint32_t, std::uint32_t> m_survivors;
};
