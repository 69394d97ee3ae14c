#include "MessageJudge.h"

#include <algorithm>
#include <limits>

namespace fs = std::filesystem;

namespace {

using Range = std::pair<std::uint64_t, std::uint64_t>;

constexpr std::int64_t s_ever = std::numeric_limits<std::int64_t>::max();
constexpr std::uint64_t s_all = std::numeric_limits<std::uint64_t>::max();

std::uint64_t common(const Range& a, const Range& b) {
    const auto begin = std::max(a.first, b.first);
    const auto end = std::min(a.second, b.second);
    return begin < end ? end - begin : 0;
}

std::uint64_t common(const Range& a, const std::vector<Range>& apart) {
    std::uint64_t count = 0;
    for (const Range& b : apart)
        count += common(a, b);
    return count;
}

/// In order and without what stands twice.
std::vector<Range> united(std::vector<Range> ranges) {
    std::sort(ranges.begin(), ranges.end());
    std::vector<Range> apart;
    for (const Range& range : ranges) {
        if (!apart.empty() && range.first <= apart.back().second)
            apart.back().second = std::max(apart.back().second, range.second);
        else
            apart.push_back(range);
    }
    return apart;
}

std::uint64_t length(const Range& range) {
    return range.second - range.first;
}

std::uint64_t length(const std::vector<Range>& ranges) {
    std::uint64_t sum = 0;
    for (const Range& range : ranges)
        sum += length(range);
    return sum;
}

Range rangeOf(std::uint32_t first, std::uint32_t count) {
    return {first, std::uint64_t{first} + count};
}

double share(std::uint64_t part, std::uint64_t whole) {
    return whole == 0 ? 0 : 100.0 * static_cast<double>(part) / static_cast<double>(whole);
}

}  // namespace

MessageJudge::MessageJudge(const fs::path& directory, const std::set<std::int32_t>& survivors) {
    for (const auto& entry : fs::directory_iterator(directory)) {
        if (entry.path().extension() != ".ledger")
            continue;
        Ledger ledger = Ledger::open(entry.path());
        if (!ledger)
            continue;
        const std::uint32_t instance = ledger->instance;
        std::uint32_t& newest = m_survivors[ledger->driver];
        newest = std::max(newest, instance);
        m_ledgers.emplace(instance, std::move(ledger));
    }
    std::erase_if(m_survivors,
                  [&](const auto& newest) { return !survivors.contains(m_ledgers.at(newest.second)->pid); });
    noteAcknowledged();
}

void MessageJudge::noteAcknowledged() {
    for (const auto& [number, receiver] : m_ledgers) {
        for (std::uint32_t i = 0; i < receiver->heardCount; ++i) {
            const Ledger::Heard& entry = receiver->heard[i];
            const std::uint32_t count = entry.count;
            if (count == 0)
                continue;
            m_acknowledged[entry.sender].emplace_back(entry.begun, entry.first);
            m_acknowledged[entry.sender].emplace_back(entry.done, rangeOf(entry.first, count).second - 1);
        }
    }
    for (auto& [sender, heard] : m_acknowledged) {
        std::sort(heard.begin(), heard.end());
        std::uint64_t highest = 0;
        for (auto& [when, number] : heard)
            number = highest = std::max(highest, number);
    }
}

/// Whoever gets the FID of a round: all that its sender sent in the rounds before has left its queue.
std::uint64_t MessageJudge::acknowledged(std::uint32_t sender, std::int64_t when) const {
    const auto heard = m_acknowledged.find(sender);
    if (heard == m_acknowledged.end())
        return 0;
    const auto later = std::upper_bound(heard->second.begin(), heard->second.end(),
                                        std::make_pair(when, std::numeric_limits<std::uint64_t>::max()));
    return later == heard->second.begin() ? 0 : std::prev(later)->second;
}

std::map<std::uint32_t, const Ledger*> MessageJudge::survivors() const {
    std::map<std::uint32_t, const Ledger*> found;
    for (const auto& [driver, instance] : m_survivors)
        found[driver] = &m_ledgers.at(instance);
    return found;
}

bool MessageJudge::lives(const Ledger& ledger) const {
    const auto survivor = m_survivors.find(ledger->driver);
    return survivor != m_survivors.end() && survivor->second == ledger->instance;
}

const Ledger* MessageJudge::successor(const Ledger& ledger) const {
    for (auto next = m_ledgers.upper_bound(ledger->instance); next != m_ledgers.end(); ++next)
        if (next->second->driver == ledger->driver)
            return &next->second;
    return nullptr;
}

double MessageJudge::Verdict::judgedShare() const {
    return share(judged + judgedOfDead, sent);
}

double MessageJudge::Verdict::judgedEventsShare() const {
    return share(events, triggered);
}

std::map<std::uint32_t, MessageJudge::Heard> MessageJudge::heardBy(const Ledger& receiver) const {
    std::map<std::uint32_t, Heard> heard;
    for (std::uint32_t i = 0; i < receiver->heardCount; ++i) {
        const Ledger::Heard& entry = receiver->heard[i];
        if (entry.count > 0)
            heard[entry.sender].all.push_back(rangeOf(entry.first, entry.count));
    }
    for (auto& [sender, of] : heard) {
        of.apart = united(of.all);
        of.first = of.apart.front().first;
        of.end = of.apart.back().second;
    }
    return heard;
}

MessageJudge::Verdict MessageJudge::judge(const Watcher::EventsByInstance& events,
                                          const std::vector<Watcher::Life>& hosts) const {
    Verdict verdict;
    verdict.instances = m_ledgers.size();
    verdict.survivors = m_survivors.size();
    std::map<std::uint32_t, std::map<std::uint32_t, Entries>> sent;  // by sender and receiving driver
    for (const auto& [number, sender] : m_ledgers) {
        verdict.full += sender->isFull;
        for (std::uint32_t i = 0; i < sender->sentCount; ++i) {
            const Ledger::Sent& entry = sender->sent[i];
            verdict.sent += entry.count;
            if (entry.count > 0)
                sent[number][entry.target].push_back(&entry);
        }
    }
    for (const auto& [number, receiver] : m_ledgers) {
        const auto heard = heardBy(receiver);
        for (const auto& [instance, of] : heard) {
            if (m_ledgers.contains(instance))
                continue;
            verdict.findings.push_back(
                "instance " + std::to_string(number) +
                " has heard of an instance that never was: " + std::to_string(instance));
            ++verdict.disordered;
        }
        // Whoever has heard nothing at all of a sender is judged like the others.
        for (const auto& [instance, sender] : m_ledgers) {
            const auto of = heard.find(instance);
            const auto& entries = sent[instance][receiver->driver];
            if (sender->driver != receiver->driver && (!entries.empty() || of != heard.end()))
                judgePair(sender, receiver, entries, of == heard.end() ? Heard() : of->second, verdict);
        }
    }
    judgeEvents(events, hosts, verdict);
    return verdict;
}

/// What was sent whole since the receiver could be reached. The first that it has heard shows it, too.
std::vector<MessageJudge::Range> MessageJudge::wholeTo(const Ledger& receiver, const Entries& entries,
                                                       const Heard& heard) {
    std::vector<Range> whole;
    for (const Ledger::Sent* pEntry : entries) {
        Range range = rangeOf(pEntry->first, pEntry->count);
        if (receiver->ready == 0 || pEntry->begun < receiver->ready)
            range.first = heard.all.empty() ? range.second : std::max(range.first, heard.first);
        if (range.first < range.second)
            whole.push_back(range);
    }
    return united(std::move(whole));
}

/// The numbers before it must have come when they were sent whole since the receiver could be reached. That
/// is proven:
/// - of all between two that live;
/// - of what stands before the last that has come;
/// - of what had left its sender's queue, or was sent inside the host's process, before anything was begun
///   that the receiver has taken; a receiver that lives has taken all.
std::uint64_t MessageJudge::provenEnd(const Ledger& sender, const Ledger& receiver, const Entries& entries,
                                      const Heard& heard) const {
    if (lives(sender) && lives(receiver))
        return s_all;
    const std::int64_t taken = lives(receiver) ? s_ever : receiver->horizon.load();
    std::uint64_t end = std::max(heard.end, acknowledged(sender->instance, taken));
    if (sender->isInHost == 1) {
        for (const Ledger::Sent* pEntry : entries) {
            const std::int64_t done = pEntry->done;
            if (done > 0 && done < taken)
                end = std::max(end, rangeOf(pEntry->first, pEntry->count).second);
        }
    }
    return end;
}

void MessageJudge::judgePair(const Ledger& sender, const Ledger& receiver, const Entries& entries,
                             const Heard& heard, Verdict& verdict) const {
    const std::string pair =
        "from instance " + std::to_string(sender->instance) + " to " + std::to_string(receiver->instance);
    std::uint64_t end = 0;
    std::uint64_t disordered = 0;
    for (const Range& range : heard.all) {
        disordered += range.first < end ? 1 : 0;
        end = std::max(end, range.second);
    }
    const std::uint64_t twice = length(heard.all) - length(heard.apart);

    const std::uint64_t proven = provenEnd(sender, receiver, entries, heard);
    const bool isStopped = sender->isStopped == 1;
    const Ledger* pNext = successor(sender);
    // The next instance starts only when the queue of the former has been emptied.
    const bool isEmptied =
        lives(receiver) || (pNext && (*pNext)->ready > 0 && (*pNext)->ready < receiver->horizon);
    std::uint64_t judged = 0;
    std::uint64_t lost = 0;
    std::uint64_t lostLast = 0;
    for (const Range& whole : wholeTo(receiver, entries, heard)) {
        const Range must{whole.first, std::max(whole.first, std::min(whole.second, proven))};
        judged += length(must);
        lost += length(must) - common(must, heard.apart);
        const Range last{must.second, whole.second};
        if (!isEmptied || length(last) == 0)
            continue;
        const std::uint64_t missing = length(last) - common(last, heard.apart);
        (isStopped ? verdict.countedOfStopped : verdict.judgedOfDead) += length(last);
        (isStopped ? verdict.lostOfStopped : verdict.lostOfDead) += missing;
        lostLast += missing;
    }
    if (lostLast > 0)
        verdict.findings.push_back(pair + ": " + std::to_string(lostLast) +
                                   " FIDs lost that were sent before the sender " +
                                   (isStopped ? "had stopped" : "died"));
    verdict.judged += judged;
    verdict.lost += lost;
    verdict.twice += twice;
    verdict.disordered += disordered;
    if (lost + twice + disordered > 0)
        verdict.findings.push_back(pair + ": of " + std::to_string(judged) + " FIDs " + std::to_string(lost) +
                                   " lost, " + std::to_string(twice) + " twice, " +
                                   std::to_string(disordered) + " times out of order");
}

/// A round's event is triggered before the FIDs of the next round are sent, so whoever has heard of a round
/// proves the events before it. A follower prints in order: of a host that was killed it has printed whatever
/// came before the last that it printed.
void MessageJudge::judgeEvents(const Watcher::EventsByInstance& events,
                               const std::vector<Watcher::Life>& hosts, Verdict& verdict) const {
    for (const auto& [instance, ledger] : m_ledgers) {
        const auto found = events.find(instance);
        const Watcher::Events seen = found == events.end() ? Watcher::Events() : found->second;
        const auto life = std::find_if(hosts.rbegin(), hosts.rend(), [&ledger](const Watcher::Life& each) {
            return each.begun <= ledger->created;
        });
        std::uint64_t proven = seen.next;
        if (lives(ledger))
            proven = ledger->events;
        else if (life != hosts.rend())
            proven = acknowledged(instance, life == hosts.rbegin() ? s_ever : life->horizon);
        const std::uint64_t lost = seen.missing + (proven > seen.next ? proven - seen.next : 0);
        verdict.triggered += ledger->events;
        verdict.events += seen.seen + lost;
        verdict.eventsLost += lost;
        verdict.eventsDisordered += seen.disordered;
        if (lost + seen.disordered > 0)
            verdict.findings.push_back("events of instance " + std::to_string(instance) + ": " +
                                       std::to_string(lost) + " lost, " + std::to_string(seen.disordered) +
                                       " out of order or twice");
    }
}
