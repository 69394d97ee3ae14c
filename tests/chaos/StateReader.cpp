#include "StateReader.h"

#include <algorithm>
#include <utility>

#include "ChaosWorkplace.h"

using namespace std::chrono_literals;

namespace {

constexpr auto s_interval = 200ms;
constexpr auto s_rollInterval = 1s;
/// The console waits for one driver after the other at times, for each of them not longer than the host's
/// time-outs let it.
constexpr auto s_patience = 40s;
/// Who waits longer is to be told why.
constexpr auto s_silentPatience = 10s;
/// Narrow enough to leave out what garbage has been taken for.
constexpr const char* s_questions = "state --now T?.N\nstate --now [TFS]?.[PM][OA][NR][GK]\n";

}  // namespace

StateReader::StateReader(Watcher& watcher, CurrentHost host, std::vector<std::string> drivers,
                         std::chrono::seconds answerLimit)
    : m_watcher(watcher),
      m_host(std::move(host)),
      m_drivers(std::move(drivers)),
      m_waits(s_silentPatience),
      m_judge(answerLimit),
      m_thread([this] { run(); }) {}

StateReader::~StateReader() {
    {
        const std::lock_guard lock(m_mutex);
        m_isStopping = true;
    }
    m_changed.notify_all();
    m_thread.join();
}

void StateReader::processDied(const ChaosHost& host, const std::string& driverID, pid_t pid) {
    const std::uint32_t instance = m_watcher.lastInstance(driverID);
    const std::uint32_t ping = m_watcher.lastAnswer(driverID);
    const pid_t newer = host.driverProcess(driverID);
    if (newer != 0 && newer != pid)
        return;
    {
        const std::lock_guard lock(m_mutex);
        m_judge.died(driverID, {Clock::now(), instance, ping});
        m_isAsked = true;
    }
    m_changed.notify_all();
}

/// What a host was asked that is gone, or before all stood still, counts no more.
void StateReader::forgetRollOfAnother(const std::shared_ptr<ChaosHost>& pHost) {
    const unsigned int standstills = Patience::standstills();
    const bool isOther = m_asked.lock() != pHost || standstills != m_standstills;
    m_asked = pHost;
    m_standstills = standstills;
    if (isOther) {
        const std::lock_guard lock(m_mutex);
        m_judge.rollCall().forget();
    }
}

std::vector<std::string> StateReader::callTheRoll(ChaosHost& host, std::uint32_t& ping) {
    std::vector<std::string> asked;
    if (Clock::now() < m_nextRoll)
        return asked;
    m_nextRoll = Clock::now() + s_rollInterval;
    {
        const std::lock_guard lock(m_mutex);
        std::copy_if(m_drivers.begin(), m_drivers.end(), std::back_inserter(asked),
                     [this](const std::string& driver) { return !m_judge.rollCall().owes(driver); });
    }
    ping = m_watcher.nextPing();
    for (const std::string& driver : asked)
        host.type(ChaosWorkplace::ping(driver, ping));
    return asked;
}

std::optional<Watcher::Reply> StateReader::ask() {
    const std::lock_guard askLock(m_askMutex);
    StateJudge::Deaths known;
    {
        const std::lock_guard lock(m_mutex);
        known = m_judge.deaths();
    }
    const auto pHost = m_host();
    if (!pHost)
        return std::nullopt;
    forgetRollOfAnother(pHost);
    const auto begun = Clock::now();
    const std::uint64_t warnings = m_watcher.warnings();
    std::uint32_t ping = 0;
    const auto asked = callTheRoll(*pHost, ping);
    const std::uint32_t mark = ++m_mark;
    std::optional<Watcher::Reply> reply;
    if (pHost->type(s_questions + ("mark" + std::to_string(mark))))
        reply = m_watcher.waitForReply(mark, s_patience);

    const std::lock_guard lock(m_mutex);
    const bool isExcused = m_watcher.isHostGone() || m_isStopping || m_standstills != Patience::standstills();
    const auto waited = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begun);
    if (!isExcused && reply)
        m_waits.answered(waited, m_watcher.warnings() != warnings);
    else if (!isExcused)
        m_waits.notAnswered(waited);
    if (!reply)
        return reply;
    ++m_replies;
    for (const std::string& driver : m_drivers)
        m_judge.rollCall().heard(driver, m_watcher.lastAnswer(driver), m_watcher.timesStale(driver));
    m_judge.judge(*reply, known);
    // Whoever was asked before the mark has it in its queue by now.
    m_judge.asked(asked, ping, *reply);
    for (const std::string& driver : asked)
        m_judge.rollCall().heard(driver, m_watcher.lastAnswer(driver), m_watcher.timesStale(driver));
    return reply;
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
        if (m_watcher.isHostStarted())
            ask();
    }
}

std::chrono::milliseconds StateReader::shownLive() const {
    const std::lock_guard lock(m_mutex);
    return m_judge.shownLive();
}

std::uint64_t StateReader::mutesShownLive() const {
    const std::lock_guard lock(m_mutex);
    return m_judge.mutesShownLive();
}

std::uint64_t StateReader::judgedDeaths() const {
    const std::lock_guard lock(m_mutex);
    return m_judge.judgedDeaths();
}

std::vector<std::string> StateReader::findings() const {
    const std::lock_guard lock(m_mutex);
    std::vector<std::string> all = m_judge.findings();
    all.insert(all.end(), m_waits.findings().begin(), m_waits.findings().end());
    return all;
}

std::uint64_t StateReader::replies() const {
    const std::lock_guard lock(m_mutex);
    return m_replies;
}

ConsoleWaits StateReader::waits() const {
    const std::lock_guard lock(m_mutex);
    return m_waits;
}
