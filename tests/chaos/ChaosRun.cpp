#include "ChaosRun.h"

#include <signal.h>

#include <algorithm>
#include <fstream>
#include <utility>

using namespace std::chrono_literals;

namespace {

/// For what comes in moments, or never.
constexpr auto s_settlePatience = 30s;
/// What a driver may take beyond the host's time-outs before it must be seen to be mute.
constexpr auto s_answerSlack = 10s;

}  // namespace

ChaosRun::ChaosRun(ChaosWorkplace& workplace, const std::filesystem::path& output)
    : m_workplace(workplace),
      m_output(output),
      m_reader(
          m_watcher, [this] { return host(); }, workplace.drivers(),
          3 * workplace.hangTimeout() + s_answerSlack) {}

ChaosRun::~ChaosRun() {
    m_watcher.hostEnds();
}

std::shared_ptr<ChaosHost> ChaosRun::host() const {
    const std::lock_guard lock(m_mutex);
    return m_pHost;
}

void ChaosRun::launchHost() {
    m_filledRooms = 0;
    m_watcher.hostBegins();
    auto pHost = std::make_shared<ChaosHost>(
        m_workplace.host(),
        ChaosHost::Handlers{[this](const std::string& line) { m_watcher.output(line); },
                            [this](const std::string& line) { m_watcher.log(line); }},
        m_output / "host.txt");
    const std::lock_guard lock(m_mutex);
    m_pHost = pHost;
}

bool ChaosRun::startHost() {
    const std::uint64_t since = m_watcher.position();
    launchHost();
    if (!m_watcher.waitForText("the workplace is started", since, startPatience) || !allServe()) {
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
    if (!m_made)
        m_made = leftovers();
    return true;
}

bool ChaosRun::doServe(const std::vector<std::string>& drivers) {
    const auto pHost = host();
    const std::uint32_t first = m_watcher.nextPing();
    Patience left(startPatience);
    while (pHost && !left.isOver() && !m_watcher.isHostGone()) {
        bool doAll = true;
        for (const std::string& driver : drivers) {
            if (m_watcher.lastAnswer(driver) >= first)
                continue;
            doAll = false;
            pHost->type(ChaosWorkplace::ping(driver, m_watcher.nextPing()));
        }
        if (doAll)
            return true;
        std::this_thread::sleep_for(100ms);
    }
    return false;
}

bool ChaosRun::forgetHost() {
    const auto pHost = host();
    // A driver that is stopped cannot follow; the next host is to see to it.
    const bool areGone = pHost->waitForEnd(30s).has_value() && eventually(s_settlePatience, [this] {
                             return Leftovers::running(m_workplace.mark()).empty();
                         });
    if (!areGone)
        for (const auto& [pid, command] : Leftovers::running(m_workplace.mark()))
            m_board.addFinding("after its host's death there was still process " + std::to_string(pid) +
                               ": " + command);
    m_watcher.hostEnds();
    const std::lock_guard lock(m_mutex);
    m_pHost.reset();
    return areGone;
}

Holdings ChaosRun::holdings() const {
    return Holdings::of(host()->pid(), m_workplace.mark(), m_workplace.temporary());
}

Leftovers ChaosRun::leftovers() const {
    return Leftovers::of({"/var/data", m_workplace.workdir(), m_workplace.modules()})
        .withoutHistory(m_workplace.workdir());
}

void ChaosRun::endLifetime() {
    if (!m_before)
        return;
    Holdings after;
    eventually(s_settlePatience, [&] {
        after = holdings();
        return after.isLike(*m_before);
    });
    m_board.addLifetime({*m_before, after, m_filledRooms});
    m_before.reset();
}

bool ChaosRun::endInOrder() {
    const bool doAllServe = allServe();
    if (doAllServe) {
        judgeList();
        quieten();
        judgeMessages();
        judgeStates();
        endLifetime();
    } else {
        m_board.addFault("at the end not all drivers served again");
    }
    endHost();
    return doAllServe;
}

/// The list of drivers says so, too.
void ChaosRun::judgeList() {
    for (const std::string& driver : m_workplace.drivers()) {
        const bool isListed = eventually(s_settlePatience, [&] {
            const std::uint64_t since = m_watcher.position();
            host()->type("drivers");
            const auto line = m_watcher.lineThatBegins(driver + " ", since, 5s);
            return line && line->find(" running ") != std::string::npos;
        });
        if (!isListed)
            m_board.addFault("at the end " + driver + " is not listed as running");
    }
}

std::set<std::int32_t> ChaosRun::talkersProcesses() const {
    const auto pHost = host();
    std::set<std::int32_t> processes{pHost->pid()};
    for (const std::string& driver : m_workplace.talkers())
        if (ChaosWorkplace::isProcess(driver))
            processes.insert(pHost->driverProcess(driver));
    processes.erase(0);
    return processes;
}

bool ChaosRun::areTalkersQuiet() const {
    const MessageJudge judge(m_workplace.ledgers(), talkersProcesses());
    const auto survivors = judge.survivors();
    return survivors.size() == m_workplace.talkers().size() &&
           std::all_of(survivors.begin(), survivors.end(),
                       [](const auto& talker) { return (*talker.second)->isQuiet == 1; });
}

void ChaosRun::quieten() {
    for (const std::string& driver : m_workplace.talkers())
        host()->type("sendFID " + driver + ".QUIET");
    if (!eventually(s_settlePatience, [this] { return areTalkersQuiet(); }))
        m_board.addFault("at the end not all talkers were there and quiet");
}

void ChaosRun::judgeMessages() {
    const MessageJudge judge(m_workplace.ledgers(), talkersProcesses());
    eventually(s_settlePatience, [&] {
        m_board.messages = judge.judge(m_watcher.events(), m_watcher.lives());
        return m_board.messages.lost + m_board.messages.lostOfDead + m_board.messages.eventsLost == 0;
    });
}

void ChaosRun::judgeStates() {
    const MessageJudge judge(m_workplace.ledgers(), talkersProcesses());
    const auto survivors = judge.survivors();
    eventually(s_settlePatience, [&] {
        const auto reply = m_reader.ask();
        m_board.statesJudged = survivors.size();
        m_board.statesWrong = survivors.size();
        for (const auto& row : reply ? reply->rows : std::vector<Watcher::Row>()) {
            if (!ChaosWorkplace::isTalker(row.driverID))
                continue;
            const auto talker = survivors.find(m_workplace.indexOf(row.driverID));
            if (row.name == "N" && talker != survivors.end() && row.isLive &&
                row.instance == (*talker->second)->instance && row.number == (*talker->second)->state)
                --m_board.statesWrong;
        }
        return m_board.statesWrong == 0;
    });
}

void ChaosRun::endHost() {
    for (const std::string& driver : m_workplace.drivers())
        m_watcher.expect(driver, {"ended"});
    host()->type("quit");
    m_board.hostExit = host()->waitForEnd(30s);
    m_watcher.hostEnds();
    eventually(10s, [this] { return Leftovers::processes(m_workplace.mark()).empty(); });
    for (const auto& [pid, command] : Leftovers::processes(m_workplace.mark()))
        m_board.left.push_back("process " + std::to_string(pid) + ": " + command);
    for (const std::string& line : leftovers().beyond(m_made.value_or(Leftovers())))
        m_board.left.push_back(line);
    for (const std::string& line : Leftovers::below({"/dev/shm", m_workplace.temporary()}).lines())
        m_board.left.push_back(line);
}

void ChaosRun::noteFindings(const std::filesystem::path& path) {
    m_board.shownLive = m_reader.shownLive();
    m_board.mutesShownLive = m_reader.mutesShownLive();
    m_board.stateReplies = m_reader.replies();
    m_board.judgedDeaths = m_reader.judgedDeaths();
    const ConsoleWaits waits = m_reader.waits();
    m_board.unanswered = waits.unanswered();
    m_board.untold = waits.untold();
    m_board.longestWait = waits.longest();
    m_board.deadShownLive = m_watcher.deadShownLive().size();
    m_board.droppedLines = m_watcher.droppedLines();
    m_board.unexpectedEnds = m_watcher.unexpectedEnds().size();
    m_board.falseVerdicts = m_watcher.falseVerdicts().size();
    m_board.sanitizerReports = m_watcher.sanitizerReports().size();
    std::ofstream file(path, std::ios::trunc);
    for (const auto& lines : {m_reader.findings(), m_watcher.deadShownLive(), m_watcher.unexpectedEnds(),
                              m_watcher.falseVerdicts(), m_watcher.sanitizerReports(),
                              m_board.messages.findings, m_board.left, m_board.findings()})
        for (const std::string& line : lines)
            file << line << "\n";
}
