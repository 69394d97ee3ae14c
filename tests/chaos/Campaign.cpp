#include "Campaign.h"

#include <signal.h>

#include <algorithm>
#include <iterator>
#include <sstream>
#include <utility>

#include "ProcessEnd.h"

using namespace std::chrono_literals;

namespace {

constexpr auto s_patience = 40s;
/// A trial is as long as this, so that it can be struck.
constexpr const char* s_slowTrial = "load sleep 300";
constexpr const char* s_triedOut = "F7";
constexpr const char* s_triedOutModule = "loadsd.so";
/// A host that does not end in order although it was told to must be ended by somebody.
constexpr auto s_endPatience = 30s;
/// Beyond this nothing new is to be learned.
constexpr std::size_t s_mostFaults = 20;

std::vector<std::string> processesAmong(const std::vector<std::string>& drivers) {
    std::vector<std::string> found;
    std::copy_if(drivers.begin(), drivers.end(), std::back_inserter(found), ChaosWorkplace::isProcess);
    return found;
}

std::chrono::milliseconds ms(std::uint32_t count) {
    return std::chrono::milliseconds(count);
}

void stopFor(pid_t pid, std::uint32_t milliseconds) {
    ::kill(pid, SIGSTOP);
    if (milliseconds == 0)
        return;
    std::this_thread::sleep_for(ms(milliseconds));
    ::kill(pid, SIGCONT);
}

}  // namespace

Campaign::Campaign(ChaosWorkplace& workplace, Intruder* pIntruder, const Settings& settings)
    : m_settings(settings),
      m_plan(settings.seed, processesAmong(workplace.drivers()), s_triedOut, workplace.drivers()),
      m_run(workplace, settings.output),
      m_pIntruder(pIntruder),
      m_steps(settings.output / "steps.txt", std::ios::trunc) {}

Campaign::~Campaign() {
    for (std::thread& continuer : m_continuers)
        continuer.join();
}

void Campaign::pointIntruderAt(pid_t host) {
    if (m_pIntruder)
        m_pIntruder->setHost(host);
}

/// What the host may say of a driver that is killed at any time, and reloaded.
void Campaign::expectOf(const std::string& driverID, bool wasStopped) {
    Watcher::Verdicts right{"ended unexpectedly: signal 9", "ended: ", "has not ended",
                            "did not heed SIGTERM"};
    if (wasStopped)
        right.insert(right.end(), {"hangs", "has not taken", "cannot be sent to", "leaves its queue full",
                                   "ended unexpectedly: "});
    m_run.watcher().expect(driverID, right);
}

bool Campaign::strikeHost(const KillPlan::Strike& strike) {
    const auto pHost = host();
    if (!pHost || pHost->waitForEnd(0s))
        return false;
    if (strike.isKill) {
        m_run.watcher().hostEnds();
        pHost->signal(SIGKILL);
        return true;
    }
    const StateReader::Pause pause(m_run.reader());
    stopFor(pHost->pid(), strike.durationMs);
    return true;
}

/// The target, or another driver when that one waits for its next start.
std::pair<std::string, pid_t> Campaign::findDriver(const std::string& target) const {
    std::vector<std::string> drivers = processesAmong(m_run.workplace().drivers());
    std::stable_partition(drivers.begin(), drivers.end(),
                          [&](const std::string& driver) { return driver == target; });
    std::pair<std::string, pid_t> found{target, 0};
    const auto pHost = host();
    ChaosRun::eventually(s_patience, [&] {
        for (const std::string& driver : drivers)
            if (found.second = pHost->driverProcess(driver); found.second > 0) {
                found.first = driver;
                return true;
            }
        return pHost->waitForEnd(0s).has_value();
    });
    return found;
}

bool Campaign::strikeDriver(const KillPlan::Strike& strike) {
    const auto pHost = host();
    const auto [driver, pid] = findDriver(strike.target);
    if (pid == 0)
        return false;
    if (!strike.isKill) {
        expectOf(driver, true);
        if (strike.durationMs == 0)
            stopFor(pid, 0);
        else
            m_continuers.emplace_back([pid = pid, time = strike.durationMs] { stopFor(pid, time); });
        return true;
    }
    ::kill(pid, SIGKILL);
    if (isDeadWithin(pid, s_patience))
        m_run.reader().processDied(*pHost, driver, pid);
    else
        m_run.board().addFault("process " + std::to_string(pid) + " has outlived its kill -9");
    return true;
}

bool Campaign::strikeTrial(const KillPlan::Strike& strike) {
    const auto pHost = host();
    pid_t pid = 0;
    ChaosRun::eventually(s_patience, [&] {
        pid = pHost->childWith(s_triedOutModule);
        return pid > 0 || pHost->waitForEnd(0s);
    });
    if (pid == 0)
        return false;
    if (strike.isKill)
        ::kill(pid, SIGKILL);
    else
        stopFor(pid, strike.durationMs);
    return true;
}

void Campaign::wish(const KillPlan::Wish& wish) {
    m_steps << "  " << wish.name() << " " << wish.target << "\n" << std::flush;
    m_run.board().addWish(wish.name());
    switch (wish.what) {
        case KillPlan::EWish::Park:
            m_parked.insert(wish.target);
            m_parkJudge.parkTyped(wish.target, m_run.watcher().timesParked(wish.target));
            host()->type("stopDriver " + wish.target);
            break;
        case KillPlan::EWish::Unpark:
            m_parked.erase(wish.target);
            m_parkJudge.unparkTyped(wish.target);
            host()->type("startDriver " + wish.target);
            break;
        case KillPlan::EWish::Reload:
            host()->type("reloadDriver " + wish.target);
            break;
        case KillPlan::EWish::TakeOut:
        case KillPlan::EWish::PutIn: {
            const FileMeddler::Rest rest(*m_pMeddler);
            m_edited.insert(wish.target);
            m_run.workplace().setEntry(wish.target, wish.what == KillPlan::EWish::PutIn);
            host()->type("reloadDriver " + wish.target);
            break;
        }
    }
}

std::set<std::string> Campaign::marks() const {
    std::set<std::string> found;
    std::istringstream lines(readFile(m_run.workplace().workdir() / "mfhost.parked"));
    for (std::string line; std::getline(lines, line);)
        if (!line.starts_with('#'))
            found.insert(line);
    return found;
}

/// While no host is busy with what was typed.
void Campaign::judgeMarks() {
    std::map<std::string, std::uint32_t> timesParked;
    for (const std::string& driver : m_run.workplace().drivers())
        timesParked[driver] = m_run.watcher().timesParked(driver);
    for (const std::string& wrong : m_parkJudge.judge(marks(), timesParked))
        m_run.board().addFault(wrong);
}

/// Those in the file that are not parked.
std::vector<std::string> Campaign::askedFor() const {
    std::vector<std::string> drivers = m_run.workplace().configured();
    std::erase_if(drivers, [this](const std::string& driver) { return m_parked.contains(driver); });
    return drivers;
}

/// As an operator does whose command was refused while the file was broken, or died with its host.
void Campaign::insistOnWishes() {
    m_run.reader().ask();
    judgeMarks();
    const std::set<std::string> marked = marks();
    for (const std::string& driver : m_run.workplace().drivers()) {
        if (m_parked.contains(driver) && !marked.contains(driver)) {
            m_parkJudge.parkTyped(driver, m_run.watcher().timesParked(driver));
            host()->type("stopDriver " + driver);
        }
        const bool isMissing = marked.contains(driver) || m_edited.contains(driver);
        if (!m_parked.contains(driver) && isMissing) {
            m_parkJudge.unparkTyped(driver);
            host()->type("startDriver " + driver);
        }
    }
    m_run.reader().ask();
    judgeMarks();
}

/// Exactly those run that file and marks ask for. One that was taken out of the file runs on until it ends.
void Campaign::judgeRoll() {
    Watcher& watcher = m_run.watcher();
    if (!m_run.doServe(askedFor())) {
        m_run.board().addFault("not all drivers served again");
        return;
    }
    const std::set<std::string> marked = marks();
    for (const std::string& driver : m_run.workplace().configured()) {
        // Of one that is out of the file the host refuses some of what is asked.
        if (m_parked.contains(driver) != marked.contains(driver))
            m_run.board().addFault(driver + (marked.contains(driver)
                                                 ? " is marked as parked and was given back"
                                                 : " was to be parked and has no mark"));
        if (!m_parked.contains(driver))
            continue;
        const bool isParked = ChaosRun::eventually(s_patience, [&] {
            const std::uint64_t since = watcher.position();
            host()->type("drivers");
            const auto line = watcher.lineThatBegins(driver + " ", since, 5s);
            return line && line->find(" parked ") != std::string::npos && host()->driverProcess(driver) == 0;
        });
        if (!isParked)
            m_run.board().addFault(driver + " was to be parked and is not");
    }
    ++m_run.board().rollsJudged;
}

/// A host that starts with what is parked and what is in the file by now runs nobody else; then all are taken
/// back.
void Campaign::judgeStart() {
    Watcher& watcher = m_run.watcher();
    const std::uint64_t since = watcher.position();
    for (const std::string& driver : processesAmong(m_run.workplace().drivers()))
        expectOf(driver, false);
    m_edited.clear();
    m_run.launchHost();
    pointIntruderAt(host()->pid());
    if (!watcher.waitForText("the workplace is started", since, ChaosRun::startPatience)) {
        m_run.board().addFault("a host did not start with what is parked");
        bury();
        return;
    }
    judgeRoll();
    const auto wanted = askedFor();
    const std::uint32_t first = watcher.nextPing();
    for (const std::string& driver : m_run.workplace().drivers())
        host()->type(ChaosWorkplace::ping(driver, first));
    m_run.reader().ask();
    m_run.doServe(wanted);
    for (const std::string& driver : m_run.workplace().drivers()) {
        const bool isWanted = std::find(wanted.begin(), wanted.end(), driver) != wanted.end();
        if (!isWanted && (watcher.lastAnswer(driver) >= first || host()->driverProcess(driver) > 0))
            m_run.board().addFault(driver + " runs, and neither file nor marks ask for it");
    }
    m_parked.clear();
    for (const std::string& driver : m_run.workplace().drivers()) {
        m_run.workplace().setEntry(driver, true);
        m_edited.insert(driver);
    }
    insistOnWishes();
    judgeRoll();
    end(nullptr);
    bury();
}

bool Campaign::strike(const KillPlan::Strike& strike) {
    for (const KillPlan::Wish& each : strike.wishes)
        wish(each);
    m_steps << "  " << strike.name() << " " << strike.target << " after " << strike.delayMs << " ms";
    if (!strike.isKill)
        m_steps << " for " << strike.durationMs << " ms";
    const bool isTrialPlanned =
        strike.when == KillPlan::EWhen::Reload && strike.what == KillPlan::EWhat::Trial;
    // A reload is refused as long as the file is broken, and then there is none to strike into.
    std::unique_ptr<FileMeddler::Rest> pRest;
    if (isTrialPlanned) {
        m_run.workplace().planLoading(s_triedOut, s_slowTrial);
        m_run.workplace().replaceModule(s_triedOut);
    }
    if (strike.when == KillPlan::EWhen::Reload) {
        if (isTrialPlanned || strike.delayMs % 2 == 0)
            pRest = std::make_unique<FileMeddler::Rest>(*m_pMeddler);
        host()->type("reloadDriver " + strike.target);
    }
    if (strike.what != KillPlan::EWhat::Trial)
        std::this_thread::sleep_for(ms(strike.delayMs));
    bool isDone = false;
    switch (strike.what) {
        case KillPlan::EWhat::Host:
            isDone = strikeHost(strike);
            break;
        case KillPlan::EWhat::Driver:
            isDone = strikeDriver(strike);
            break;
        case KillPlan::EWhat::Trial:
            isDone = strikeTrial(strike);
            break;
    }
    if (isTrialPlanned)
        m_run.workplace().planLoading(s_triedOut, "");
    m_steps << (isDone ? "\n" : ": nobody was there\n") << std::flush;
    m_struck += isDone ? 1 : 0;
    if (isDone)
        m_run.board().addStrike(strike.name());
    return isDone;
}

/// As an operator does. A driver in the host's process does not come by itself, nor does one that a start
/// with a broken file has not reached.
void Campaign::reloadMissing(bool withProcesses) {
    const std::uint32_t first = m_run.watcher().nextPing();
    const auto drivers = askedFor();
    for (const std::string& driver : drivers)
        host()->type(ChaosWorkplace::ping(driver, first));
    for (const std::string& driver : drivers)
        if ((withProcesses || !ChaosWorkplace::isProcess(driver)) &&
            !m_run.watcher().waitForAnswer(driver, first, 500ms))
            host()->type("reloadDriver " + driver);
}

/// Gone with all that it has started, and told why if it has ended by itself.
void Campaign::bury() {
    m_run.watcher().hostEnds();
    pointIntruderAt(0);
    if (!m_run.forgetHost())
        m_run.board().addFault("a host, or what it had started, has not ended in time");
    for (std::thread& continuer : std::exchange(m_continuers, {}))
        continuer.join();
    judgeMarks();
}

bool Campaign::startOnce(bool isWhole, const KillPlan::Strike* pStrike) {
    Watcher& watcher = m_run.watcher();
    const std::uint64_t since = watcher.position();
    for (const std::string& driver : processesAmong(m_run.workplace().drivers()))
        expectOf(driver, false);
    std::unique_ptr<FileMeddler::Rest> pRest;
    if (isWhole)
        pRest = std::make_unique<FileMeddler::Rest>(*m_pMeddler);
    m_run.launchHost();
    pointIntruderAt(host()->pid());
    if (pStrike && strike(*pStrike) && pStrike->endsLife())
        return false;
    bool isUp = false;
    ChaosRun::eventually(ChaosRun::startPatience, [&] {
        isUp = watcher.waitForText("the workplace is started", since, 50ms).has_value();
        return isUp || host()->waitForEnd(0s);
    });
    return isUp;
}

bool Campaign::start(const KillPlan::Life& life) {
    const bool isStruck = !life.strikes.empty() && life.strikes.front().when == KillPlan::EWhen::Start;
    const KillPlan::Strike* pStrike = isStruck ? &life.strikes.front() : nullptr;
    const bool isTrial = pStrike && pStrike->what == KillPlan::EWhat::Trial;
    if (isTrial)
        m_run.workplace().planLoading(s_triedOut, s_slowTrial);
    const bool isMeddled = life.isFileMeddledAtStart && !isTrial;
    bool isUp = startOnce(!isMeddled, pStrike);
    if (isTrial)
        m_run.workplace().planLoading(s_triedOut, "");
    if (isUp && isMeddled) {
        const FileMeddler::Rest rest(*m_pMeddler);
        reloadMissing(true);
    }
    if (isUp || (pStrike && pStrike->endsLife()))
        return isUp;
    // With a file that is no whole one a host may refuse, with a reason.
    if (!isMeddled)
        m_run.board().addFault("a host did not start");
    else if (host()->waitForEnd(s_patience) != 1)
        m_run.board().addFault("a host that refuses its workplace file has not ended with 1");
    bury();
    isUp = startOnce(true, nullptr);
    if (!isUp)
        m_run.board().addFault("a host did not start with a whole workplace file");
    return isUp;
}

void Campaign::end(const KillPlan::Strike* pStrike) {
    const auto pHost = host();
    m_run.watcher().hostEnds();
    pHost->type("quit");
    if (pStrike)
        strike(*pStrike);
    const auto exit = pHost->waitForEnd(s_endPatience);
    const bool isKilled = pStrike && pStrike->endsLife();
    if (!exit)
        m_run.board().addFault("a host has not ended in time after it was told to");
    // What was refused meanwhile has failed as a line, and the host ended in order.
    else if (!isKilled && *exit > 1 && *exit != 3)
        m_run.board().addFault("a host that was told to end ended with " + std::to_string(*exit));
}

void Campaign::live(const KillPlan::Life& life) {
    m_edited.clear();
    m_steps << (life.isFileMeddledAtStart ? "a host with the file meddled with\n" : "a host\n") << std::flush;
    if (!start(life)) {
        bury();
        return;
    }
    const KillPlan::Strike* pEnd = nullptr;
    bool isDead = false;
    for (const KillPlan::Strike& each : life.strikes) {
        if (each.when == KillPlan::EWhen::Start)
            continue;
        if (each.when == KillPlan::EWhen::End) {
            pEnd = &each;
            break;
        }
        const bool isDone = strike(each);
        isDead = isDone && each.endsLife();
        if (!isDead && host()->waitForEnd(0s)) {
            m_run.board().addFault("a host has ended by itself");
            isDead = true;
        }
        if (isDead || m_struck >= m_settings.strikes)
            break;
    }
    if (!isDead) {
        // With a whole file each comes back.
        const FileMeddler::Rest rest(*m_pMeddler);
        insistOnWishes();
        reloadMissing(false);
        judgeRoll();
    }
    if (!isDead)
        end(pEnd);
    bury();
}

const Scoreboard& Campaign::run() {
    m_run.board().demandShares(false);
    {
        m_pMeddler = std::make_unique<FileMeddler>(m_run.workplace(), m_settings.seed);
        while (m_struck < m_settings.strikes && m_run.board().faultCount() < s_mostFaults)
            live(m_plan.next());
        m_run.board().fileWrites = m_pMeddler->writes();
        m_run.board().fileBreaks = m_pMeddler->breaks();
        m_pMeddler.reset();
    }
    if (m_struck < m_settings.strikes)
        m_run.board().addFault("only " + std::to_string(m_struck) + " of " +
                               std::to_string(m_settings.strikes) + " kills and stops were done");
    judgeStart();
    // The last host starts beside the other user, too.
    m_run.startHost();
    pointIntruderAt(host()->pid());
    if (m_pIntruder) {
        m_run.board().attempts = m_pIntruder->attempts();
        m_run.board().intrusions = m_pIntruder->successes();
        m_pIntruder->end();
    }
    m_run.endInOrder();
    m_run.noteFindings(m_settings.output / "findings.txt");
    return m_run.board();
}
