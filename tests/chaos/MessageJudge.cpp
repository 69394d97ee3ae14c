#include "MessageJudge.h"

#include <algorithm>

namespace fs = std::filesystem;

namespace {

using Range = std::pair<std::uint64_t, std::uint64_t>;

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

std::uint64_t length(const std::vector<Range>& ranges) {
    std::uint64_t sum = 0;
    for (const Range& range : ranges)
        sum += range.second - range.first;
    return sum;
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

MessageJudge::Verdict MessageJudge::judge(const std::map<std::uint32_t, Watcher::Events>& events) const {
    Verdict verdict;
    verdict.instances = m_ledgers.size();
    verdict.survivors = m_survivors.size();
    for (const auto& [number, receiver] : m_ledgers) {
        verdict.full += receiver->isFull;
        for (std::uint32_t i = 0; i < receiver->sentCount; ++i)
            verdict.sent += receiver->sent[i].count;
        std::map<std::uint32_t, std::vector<Range>> heard;
        for (std::uint32_t i = 0; i < receiver->heardCount; ++i) {
            const Ledger::Heard& entry = receiver->heard[i];
            heard[entry.sender].emplace_back(entry.first, std::uint64_t{entry.first} + entry.count);
        }
        for (const auto& [driver, instance] : m_survivors)
            if (lives(receiver) && instance != number)
                heard.try_emplace(instance);
        for (const auto& [instance, ranges] : heard) {
            const auto sender = m_ledgers.find(instance);
            if (sender == m_ledgers.end()) {
                verdict.findings.push_back(
                    "instance " + std::to_string(number) +
                    " has heard of an instance that never was: " + std::to_string(instance));
                ++verdict.disordered;
                continue;
            }
            judgePair(sender->second, receiver, ranges, verdict);
        }
    }
    judgeEvents(events, verdict);
    return verdict;
}

/// What the sender has sent whole since the receiver could be reached.
std::vector<MessageJudge::Range> MessageJudge::wholeTo(const Ledger& sender, const Ledger& receiver) const {
    std::vector<Range> whole;
    for (std::uint32_t i = 0; i < sender->sentCount; ++i) {
        const Ledger::Sent& entry = sender->sent[i];
        if (entry.target == receiver->driver && entry.count > 0 && receiver->ready > 0 &&
            entry.begun >= receiver->ready)
            whole.emplace_back(entry.first, std::uint64_t{entry.first} + entry.count);
    }
    return united(std::move(whole));
}

void MessageJudge::judgePair(const Ledger& sender, const Ledger& receiver, const std::vector<Range>& heard,
                             Verdict& verdict) const {
    const std::string pair =
        "from instance " + std::to_string(sender->instance) + " to " + std::to_string(receiver->instance);
    std::uint64_t end = 0;
    std::uint64_t heardInAll = 0;
    std::uint64_t disordered = 0;
    for (const Range& range : heard) {
        disordered += range.first < end ? 1 : 0;
        end = std::max(end, range.second);
        heardInAll += range.second - range.first;
    }
    const std::vector<Range> apart = united(heard);
    const std::uint64_t twice = heardInAll - length(apart);

    std::uint64_t judged = 0;
    std::uint64_t lost = 0;
    for (const Range& whole : wholeTo(sender, receiver)) {
        const Range mustHaveCome{
            whole.first, lives(sender) && lives(receiver) ? whole.second : std::min(whole.second, end)};
        if (mustHaveCome.first < mustHaveCome.second) {
            const std::uint64_t length = mustHaveCome.second - mustHaveCome.first;
            judged += length;
            lost += length - common(mustHaveCome, apart);
        }
        if (lives(receiver) && !lives(sender)) {
            const bool isStopped = sender->isStopped == 1;
            const std::uint64_t missing = whole.second - whole.first - common(whole, apart);
            (isStopped ? verdict.countedOfStopped : verdict.judgedOfDead) += whole.second - whole.first;
            (isStopped ? verdict.lostOfStopped : verdict.lostOfDead) += missing;
            if (missing > 0)
                verdict.findings.push_back(pair + ": " + std::to_string(missing) +
                                           " FIDs lost that were sent before the sender " +
                                           (isStopped ? "had stopped" : "died"));
        }
    }
    verdict.judged += judged;
    verdict.lost += lost;
    verdict.twice += twice;
    verdict.disordered += disordered;
    if (lost + twice + disordered > 0)
        verdict.findings.push_back(pair + ": of " + std::to_string(judged) + " FIDs " + std::to_string(lost) +
                                   " lost, " + std::to_string(twice) + " twice, " +
                                   std::to_string(disordered) + " times out of order");
}

void MessageJudge::judgeEvents(const std::map<std::uint32_t, Watcher::Events>& events,
                               Verdict& verdict) const {
    for (const auto& [instance, seen] : events) {
        std::uint64_t lost = seen.missing;
        const auto ledger = m_ledgers.find(instance);
        if (ledger != m_ledgers.end() && lives(ledger->second) && ledger->second->events > seen.next)
            lost += ledger->second->events - seen.next;
        verdict.events += seen.seen + lost;
        verdict.eventsLost += lost;
        verdict.eventsDisordered += seen.disordered;
        if (lost + seen.disordered > 0)
            verdict.findings.push_back("events of instance " + std::to_string(instance) + ": " +
                                       std::to_string(lost) + " lost, " + std::to_string(seen.disordered) +
                                       " out of order or twice");
    }
    for (const auto& [driver, instance] : m_survivors) {
        if (events.contains(instance))
            continue;
        verdict.eventsLost += m_ledgers.at(instance)->events;
        verdict.findings.push_back("no event of instance " + std::to_string(instance) + " was seen");
    }
}
