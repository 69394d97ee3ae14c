#include "StateJudge.h"

#include <algorithm>
#include <set>
#include <utility>

using namespace std::chrono_literals;

void StateJudge::judge(const Watcher::Reply& reply, const Deaths& known) {
    judgeDead(reply, known);
    judgeMute(reply);
}

void StateJudge::judgeDead(const Watcher::Reply& reply, const Deaths& known) {
    for (const auto& [driverID, death] : known) {
        const auto current = m_deaths.find(driverID);
        const bool isCurrent = current != m_deaths.end() && current->second.when == death.when;
        if (isCurrent && !std::exchange(current->second.isJudged, true))
            ++m_judgedDeaths;
        for (const Watcher::Row& row : reply.rows) {
            if (row.driverID != driverID || !row.isLive)
                continue;
            const bool isOfTheDead =
                row.instance > 0 ? row.instance <= death.instance : row.number <= death.ping;
            if (!isOfTheDead)
                continue;
            m_findings.push_back(driverID + "." + row.name + " was listed as live after its driver had died");
            const auto shown = std::chrono::ceil<std::chrono::milliseconds>(reply.when - death.when);
            if (!isCurrent) {
                m_shownLive += shown;
                continue;
            }
            // The longest counts, not each time that it was seen.
            m_shownLive += std::max(0ms, shown - current->second.shownLive);
            current->second.shownLive = std::max(shown, current->second.shownLive);
        }
    }
}

std::set<std::string> StateJudge::liveIn(const Watcher::Reply& reply) {
    std::set<std::string> live;
    for (const Watcher::Row& row : reply.rows)
        if (row.isLive)
            live.insert(row.driverID);
    return live;
}

void StateJudge::asked(const std::vector<std::string>& drivers, std::uint32_t number,
                       const Watcher::Reply& reply) {
    const auto live = liveIn(reply);
    for (const std::string& driver : drivers)
        if (live.contains(driver))
            m_rollCall.asked(driver, number, reply.when);
        else
            m_rollCall.excuse(driver);
}

void StateJudge::judgeMute(const Watcher::Reply& reply) {
    for (const std::string& driver : liveIn(reply)) {
        const auto owed = m_rollCall.owedFor(driver, reply.when);
        if (owed <= m_answerLimit)
            continue;
        ++m_mutesShownLive;
        m_findings.push_back(driver + " was listed as live, but has owed an answer for " +
                             std::to_string(std::chrono::duration_cast<std::chrono::seconds>(owed).count()) +
                             " s");
    }
}
