#include "LinkJudge.h"

#include <algorithm>
#include <cstdlib>
#include <sstream>

namespace {

constexpr std::size_t s_toldOfAKind = 5;

}  // namespace

/// The last of its numbers.
std::int64_t LinkJudge::sentAt(const std::string& id) {
    return std::strtoll(id.substr(id.rfind('_') + 1).c_str(), nullptr, 10);
}

void LinkJudge::addLedger(const std::string& text, std::optional<std::int64_t> killedAt,
                          std::chrono::nanoseconds waits) {
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::string what;
        std::string id;
        words >> what >> id;
        if (what == "G") {
            m_missedEvents += static_cast<std::size_t>(std::strtoull(id.c_str(), nullptr, 10));
            continue;
        }
        Fid& fid = m_fids[id];
        if (what == "S") {
            fid.isSent = true;
            fid.mayBeUntold = killedAt && sentAt(id) > *killedAt - waits.count();
        } else if (what == "R") {
            fid.isRefusedAtOnce = true;
        } else if (what == "X") {
            std::int64_t when = 0;
            words >> when;
            fid.doneAt.push_back(when);
        } else if (what == "O") {
            std::string outcome;
            std::getline(words >> std::ws, outcome);
            fid.outcomes.insert(outcome);
            ++fid.told;
        }
    }
}

/// "... SITE2: T.N12_1_99: not known: no answer came", "... SITE2: T.N12_1_99 is not sent: no broker: ..."
void LinkJudge::addLog(const std::string& text) {
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        const auto begin = line.find(": T.N");
        if (begin == std::string::npos)
            continue;
        const auto end = line.find_first_not_of("N0123456789_", begin + 4);
        if (end == std::string::npos)
            continue;
        Fid& fid = m_fids[line.substr(begin + 4, end - begin - 4)];
        const std::string outcome = line.substr(end);
        // The event says so, too.
        if (outcome.starts_with(" is not sent: "))
            fid.outcomes.insert("refused");
        for (const char* const pWords : {"refused", "expired", "not known"}) {
            if (outcome.starts_with(std::string(": ") + pWords))
                fid.outcomes.insert(pWords);
        }
    }
}

std::vector<std::string> LinkJudge::findings() const {
    std::map<std::string, std::vector<std::string>> found;
    std::size_t untold = 0;
    for (const auto& [id, fid] : m_fids) {
        if (fid.doneAt.size() > 1)
            found["done twice"].push_back(id);
        if (!fid.doneAt.empty() && fid.doneAt.front() - sentAt(id) > m_oldest.count())
            found["done late"].push_back(id);
        const bool isRefusedByBoth = fid.isRefusedAtOnce && fid.outcomes.contains("refused");
        if (fid.told > 1 || fid.outcomes.size() + (fid.isRefusedAtOnce && !isRefusedByBoth ? 1 : 0) > 1)
            found["told twice what became of it"].push_back(id);
        if (fid.outcomes.contains("done") && fid.doneAt.empty())
            found["told that it was done, and it was not"].push_back(id);
        const bool isToldNo =
            fid.isRefusedAtOnce || fid.outcomes.contains("refused") || fid.outcomes.contains("expired");
        if (isToldNo && !fid.doneAt.empty())
            found["told that it was not done, and it was"].push_back(id);
        const bool isUntold = fid.isSent && !fid.isRefusedAtOnce && fid.outcomes.empty();
        if (isUntold && !fid.mayBeUntold && ++untold > m_missedEvents)
            found["not told what became of it"].push_back(id);
    }
    std::vector<std::string> lines;
    for (const auto& [what, ids] : found) {
        for (std::size_t i = 0; i < std::min(ids.size(), s_toldOfAKind); ++i)
            lines.push_back(ids[i] + " was " + what);
        if (ids.size() > s_toldOfAKind)
            lines.push_back("so were " + std::to_string(ids.size() - s_toldOfAKind) + " more");
    }
    return lines;
}

LinkJudge::Counts LinkJudge::counts() const {
    Counts counts;
    for (const auto& [id, fid] : m_fids) {
        counts.sent += fid.isSent ? 1 : 0;
        counts.refusedAtOnce += fid.isRefusedAtOnce ? 1 : 0;
        for (const std::int64_t when : fid.doneAt)
            counts.oldest = std::max(counts.oldest, std::chrono::nanoseconds(when - sentAt(id)));
        counts.done += fid.doneAt.empty() ? 0 : 1;
        for (const std::string& outcome : fid.outcomes)
            ++counts.outcomes[outcome];
        counts.untold += fid.isSent && !fid.isRefusedAtOnce && fid.outcomes.empty() ? 1 : 0;
    }
    return counts;
}
