#include "StateReader.h"

#include <algorithm>
#include <utility>

using namespace std::chrono_literals;

namespace {

constexpr auto s_interval = 200ms;
constexpr auto s_patience = 20s;
/// Narrow enough to leave out what garbage has been taken for.
constexpr const char* s_questions = "state --now T?.N\nstate --now [TFS]?.[PM][OA][NR][GK]\n";

}  // namespace

StateReader::StateReader(Watcher& watcher, CurrentHost host)
    : m_watcher(watcher), m_host(std::move(host)), m_thread([this] { run(); }) {}

StateReader::~StateReader() {
    {
        const std::lock_guard lock(m_mutex);
        m_isStopping = true;
    }
    m_changed.notify_all();
    m_thread.join();
}

void StateReader::died(const std::string& driverID, std::uint32_t instance, std::uint32_t ping) {
    {
        const std::lock_guard lock(m_mutex);
        m_deaths[driverID] = {Clock::now(), instance, ping, 0ms, false};
        m_isAsked = true;
    }
    m_changed.notify_all();
}

std::optional<Watcher::Reply> StateReader::ask() {
    const std::lock_guard askLock(m_askMutex);
    std::map<std::string, Death> known;
    {
        const std::lock_guard lock(m_mutex);
        known = m_deaths;
    }
    const auto pHost = m_host();
    const std::uint32_t mark = ++m_mark;
    if (!pHost || !pHost->type(s_questions + ("mark" + std::to_string(mark))))
        return std::nullopt;
    auto reply = m_watcher.waitForReply(mark, s_patience);
    if (reply)
        judge(*reply, known);
    return reply;
}

void StateReader::judge(const Watcher::Reply& reply, const std::map<std::string, Death>& known) {
    const std::lock_guard lock(m_mutex);
    ++m_replies;
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

void StateReader::run() {
    for (;;) {
        {
            std::unique_lock lock(m_mutex);
            m_changed.wait_for(lock, s_interval, [this] { return m_isStopping || m_isAsked; });
            if (m_isStopping)
                return;
            m_isAsked = false;
        }
        if (!m_watcher.isHostGone())
            ask();
    }
}

std::chrono::milliseconds StateReader::shownLive() const {
    const std::lock_guard lock(m_mutex);
    return m_shownLive;
}

std::vector<std::string> StateReader::findings() const {
    const std::lock_guard lock(m_mutex);
    return m_findings;
}

std::uint64_t StateReader::replies() const {
    const std::lock_guard lock(m_mutex);
    return m_replies;
}

std::uint64_t StateReader::judgedDeaths() const {
    const std::lock_guard lock(m_mutex);
    return m_judgedDeaths;
}
