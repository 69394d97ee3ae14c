#include "Chaos.h"

#include <signal.h>

#include <algorithm>
#include <set>
#include <thread>
#include <utility>

using namespace std::chrono_literals;
using EKind = ChaosPlan::EKind;

namespace {

constexpr auto s_startPatience = 90s;
/// For what comes in moments, or never.
constexpr auto s_settlePatience = 30s;
/// What is left for the quiet at the end.
constexpr auto s_endTime = 20s;
/// A host that is started anew gets this long at least to live.
constexpr auto s_lifeTime = 45s;

/// Looks again and again.
template <class Condition>
bool eventually(std::chrono::milliseconds patience, Condition condition) {
    for (Patience left(patience); !left.isOver(); std::this_thread::sleep_for(20ms))
        if (condition())
            return true;
    return condition();
}

}  // namespace

Chaos::Chaos(ChaosWorkplace& workplace, const Settings& settings)
    : m_workplace(workplace),
      m_settings(settings),
      m_plan(settings.seed),
      m_steps(settings.output / "steps.txt", std::ios::trunc),
      m_reader(m_watcher, [this] { return host(); }) {}

Chaos::~Chaos() {
    m_watcher.hostEnds();
}

std::shared_ptr<ChaosHost> Chaos::host() const {
    const std::lock_guard lock(m_mutex);
    return m_pHost;
}

bool Chaos::startHost() {
    m_watcher.hostBegins();
    const std::uint64_t since = m_watcher.position();
    auto pHost = std::make_shared<ChaosHost>(
        m_workplace.host(),
        ChaosHost::Handlers{[this](const std::string& line) { m_watcher.output(line); },
                            [this](const std::string& line) { m_watcher.log(line); }},
        m_settings.output / "host.txt");
    {
        const std::lock_guard lock(m_mutex);
        m_pHost = pHost;
    }
    if (!m_watcher.waitForText("the workplace is started", since, s_startPatience) || !allServe()) {
        m_board.addFault("a host was not up in time with all its drivers");
        return false;
    }
    // Until nothing more moves.
    m_before = holdings();
    eventually(s_settlePatience, [this] {
        std::this_thread::sleep_for(200ms);
        const Holdings now = holdings();
        return now.isLike(*std::exchange(m_before, now));
    });
    return true;
}

bool Chaos::allServe() {
    const auto pHost = host();
    const auto drivers = ChaosWorkplace::all();
    const std::uint32_t first = m_watcher.nextPing();
    Patience left(s_startPatience);
    while (!left.isOver() && !m_watcher.isHostGone()) {
        bool doAll = true;
        for (const std::string& driver : drivers) {
            if (m_watcher.lastAnswer(driver) >= first)
                continue;
            doAll = false;
            pHost->type("sendFID " + driver + (driver.front() == 'S' ? ".MARK text=p" : ".PING value=p") +
                        std::to_string(m_watcher.nextPing()));
        }
        if (doAll)
            return true;
        std::this_thread::sleep_for(100ms);
    }
    return false;
}

Holdings Chaos::holdings() const {
    return Holdings::of(host()->pid(), m_workplace.mark(), m_workplace.temporary());
}

void Chaos::endLifetime() {
    if (!m_before)
        return;
    Holdings after;
    eventually(s_settlePatience, [&] {
        after = holdings();
        return after.isLike(*m_before);
    });
    m_board.addLifetime({*m_before, after});
    m_before.reset();
}

void Chaos::killHost(Scoreboard::EPhase phase, const ChaosPlan::Step& step, bool isAlone) {
    if (isAlone)
        endLifetime();
    m_before.reset();
    const auto pHost = host();
    Trial::Outcome outcome{.kind = step.kind};
    const auto begun = Clock::now();
    const unsigned int standstills = Patience::standstills();
    m_watcher.hostEnds();
    pHost->signal(SIGKILL);
    const auto since = [begun] {
        return std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - begun);
    };
    // A driver that is stopped cannot follow; the next host is to see to it.
    const bool areGone = pHost->waitForEnd(30s).has_value() && eventually(s_settlePatience, [this] {
                             return Holdings::runningOf(m_workplace.mark()).empty();
                         });
    if (areGone)
        outcome.noticed = since();
    else
        outcome.failure = "the end of all drivers of a host that was killed";
    {
        const std::lock_guard lock(m_mutex);
        m_pHost.reset();
    }
    if (areGone && startHost())
        outcome.served = since();
    outcome.stoodStill = Patience::standstills() != standstills;
    m_board.add(phase, outcome);
}

bool Chaos::inject(Scoreboard::EPhase phase, const std::vector<ChaosPlan::Step>& steps) {
    for (const ChaosPlan::Step& step : steps)
        m_steps << (&step == &steps.front() ? "" : "  and ") << ChaosPlan::name(step.kind) << " "
                << step.target << " " << step.value << "\n";
    m_steps << std::flush;
    std::vector<Trial::Outcome> outcomes(steps.size());
    std::vector<std::thread> threads;
    const ChaosPlan::Step* pKill = nullptr;
    for (std::size_t i = 0; i < steps.size(); ++i) {
        if (steps[i].kind == EKind::KillHost) {
            pKill = &steps[i];
            continue;
        }
        threads.emplace_back([this, &step = steps[i], &outcome = outcomes[i], pHost = host()] {
            outcome = Trial({m_workplace, m_watcher, m_reader, pHost}, step).run();
        });
    }
    if (pKill) {
        if (!threads.empty())
            std::this_thread::sleep_for(std::chrono::milliseconds(pKill->value % 1500));
        m_watcher.hostEnds();
        for (std::thread& thread : threads)
            thread.join();
        // No plan of an overtaken fault is left for the next host.
        killHost(phase, *pKill, steps.size() == 1);
    } else {
        for (std::thread& thread : threads)
            thread.join();
    }
    for (std::size_t i = 0; i < steps.size(); ++i)
        if (&steps[i] != pKill)
            m_board.add(phase, outcomes[i]);
    if (!m_watcher.isHostGone() && !host()->waitForEnd(0s))
        return true;
    m_board.addFault("the host has ended by itself");
    m_watcher.hostEnds();
    return false;
}

const Scoreboard& Chaos::run() {
    const auto begun = Clock::now();
    const auto middle = begun + m_settings.time / 2;
    const auto end = begun + m_settings.time - s_endTime;
    bool isUp = startHost();
    while (isUp && Clock::now() < middle) {
        const auto step = m_plan.next();
        if (step.kind == EKind::KillHost && end - Clock::now() < s_lifeTime)
            continue;
        isUp = inject(Scoreboard::EPhase::Single, {step});
    }
    while (isUp && Clock::now() < end) {
        auto steps = m_plan.nextSeveral();
        if (steps.back().kind == EKind::KillHost && end - Clock::now() < s_lifeTime)
            steps.pop_back();
        if (!steps.empty())
            isUp = inject(Scoreboard::EPhase::Several, steps);
    }
    if (isUp && allServe()) {
        quieten();
        judgeMessages();
        judgeStates();
        endLifetime();
    } else if (isUp) {
        m_board.addFault("at the end not all drivers served again");
    }
    if (isUp)
        endHost();
    noteFindings();
    return m_board;
}

std::set<std::int32_t> Chaos::talkersProcesses() const {
    const auto pHost = host();
    std::set<std::int32_t> processes{pHost->pid()};
    for (const std::string& driver : ChaosWorkplace::members("T", true))
        processes.insert(pHost->driverProcess(driver));
    processes.erase(0);
    return processes;
}

bool Chaos::areTalkersQuiet() const {
    const MessageJudge judge(m_workplace.ledgers(), talkersProcesses());
    const auto survivors = judge.survivors();
    return survivors.size() == ChaosWorkplace::s_talkers &&
           std::all_of(survivors.begin(), survivors.end(),
                       [](const auto& talker) { return (*talker.second)->isQuiet == 1; });
}

void Chaos::quieten() {
    for (const std::string& driver : ChaosWorkplace::members("T", false))
        host()->type("sendFID " + driver + ".QUIET");
    if (!eventually(s_settlePatience, [this] { return areTalkersQuiet(); }))
        m_board.addFault("at the end not all talkers were there and quiet");
}

void Chaos::judgeMessages() {
    const MessageJudge judge(m_workplace.ledgers(), talkersProcesses());
    eventually(s_settlePatience, [&] {
        m_board.messages = judge.judge(m_watcher.events());
        return m_board.messages.lost + m_board.messages.lostOfDead + m_board.messages.eventsLost == 0;
    });
}

void Chaos::judgeStates() {
    const MessageJudge judge(m_workplace.ledgers(), talkersProcesses());
    const auto survivors = judge.survivors();
    eventually(s_settlePatience, [&] {
        const auto reply = m_reader.ask();
        m_board.statesJudged = survivors.size();
        m_board.statesWrong = survivors.size();
        for (const auto& row : reply ? reply->rows : std::vector<Watcher::Row>()) {
            const auto talker = survivors.find(ChaosWorkplace::indexOf(row.driverID));
            if (row.name == "N" && talker != survivors.end() && row.isLive &&
                row.instance == (*talker->second)->instance && row.number == (*talker->second)->state)
                --m_board.statesWrong;
        }
        return m_board.statesWrong == 0;
    });
}

void Chaos::endHost() {
    for (const std::string& driver : ChaosWorkplace::all())
        m_watcher.expectEnds(driver);
    host()->type("quit");
    m_board.hostExit = host()->waitForEnd(30s);
    m_watcher.hostEnds();
    const auto processes = [this] { return Holdings::processesOf(m_workplace.mark()); };
    eventually(10s, [&] { return processes().empty(); });
    m_board.leftProcesses = processes().size();
    m_board.leftQueues = static_cast<std::size_t>(Holdings::filesBelow("/dev/shm"));
    m_board.leftFiles = static_cast<std::size_t>(Holdings::filesBelow(m_workplace.temporary()));
}

void Chaos::noteFindings() {
    m_board.shownLive = m_reader.shownLive();
    m_board.stateReplies = m_reader.replies();
    m_board.judgedDeaths = m_reader.judgedDeaths();
    m_board.deadShownLive = m_watcher.deadShownLive().size();
    m_board.droppedLines = m_watcher.droppedLines();
    m_board.unexpectedEnds = m_watcher.unexpectedEnds().size();
    m_board.sanitizerReports = m_watcher.sanitizerReports().size();
    std::ofstream file(m_settings.output / "findings.txt", std::ios::trunc);
    for (const auto& lines : {m_reader.findings(), m_watcher.deadShownLive(), m_watcher.unexpectedEnds(),
                              m_watcher.sanitizerReports(), m_board.messages.findings})
        for (const std::string& line : lines)
            file << line << "\n";
}
