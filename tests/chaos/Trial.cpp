#include "Trial.h"

#include <signal.h>

#include <algorithm>
#include <iterator>
#include <thread>
#include <utility>

#include "DescriptorLimit.h"
#include "Leftovers.h"
#include "ProcessEnd.h"

using namespace std::chrono_literals;
using EKind = ChaosPlan::EKind;

namespace {

/// More than anything here takes on a machine that others use too; what has not come by then never comes.
/// Beside it a driver that computes may take three hang time-outs to be taken for hung.
constexpr auto s_patience = 40s;
constexpr auto s_pingInterval = 50ms;
/// How long nobody reads what is printed: the follower keeps so much, and what it drops cannot be judged.
constexpr auto s_longestHold = 5s;
/// A process that has run for so long has said what it runs, however busy the machine is.
constexpr auto s_longestStart = 15s;

std::chrono::microseconds between(Trial::Clock::time_point from, Trial::Clock::time_point to) {
    return std::max(0us, std::chrono::duration_cast<std::chrono::microseconds>(to - from));
}

/// What the host may say of the driver's processes, and so of nobody what was not done to it.
Watcher::Verdicts verdictsOf(EKind kind) {
    const std::string byItself = "ended unexpectedly: ";
    Watcher::Verdicts killed{byItself + "signal 9"};
    // Of the process that makes room for another, however hard it was made to.
    Watcher::Verdicts made{"ended: exit code 0", "ended: signal 15", "ended: signal 9", "has not ended",
                           "did not heed SIGTERM"};
    // A command may wait for its full queue before it is taken for hung.
    const Watcher::Verdicts hung{"hangs",           "has not taken a message for",
                                 "ended: hung",     "ended: signal 15",
                                 "ended: signal 9", "did not heed SIGTERM"};
    // One that has come to its end in order after it was replaced by an earlier fault.
    const Watcher::Verdicts late{"ended: exit code 0"};
    switch (kind) {
        case EKind::Crash:
            return {byItself + "signal 11"};
        case EKind::Abort:
            return {byItself + "signal 6"};
        case EKind::Exit:
            return {byItself + "exit code"};
        case EKind::Kill:
        case EKind::SlowStart:
        case EKind::Fork:
        case EKind::ForkAway:
            return killed;
        case EKind::DeathInLoad:
            return {killed.front(), byItself + "signal 11"};
        case EKind::Stop:
        case EKind::StopAndContinue:
        case EKind::Sleep:
        case EKind::Busy:
        case EKind::IgnoreSignals:
        case EKind::BlockOutput:
        case EKind::BlockLog:
            return hung;
        case EKind::LeaveTicket:
            return {"cannot be sent to, since a sender has not left its input queue", "hangs",
                    "ended: ", "did not heed SIGTERM"};
        case EKind::Exec:
        case EKind::CloseLocks:
            return {"cannot be reached any more: it has let go of its", "ended: ", byItself + "exit code",
                    "did not heed SIGTERM"};
        case EKind::DamageInput:
            return {"cannot be reached any more: its input queue is damaged",
                    "ended: ", byItself + "exit code 1", "did not heed SIGTERM"};
        case EKind::DamageOutput:
            return {"cannot be reached any more: its output queue is damaged",
                    "ended: ", byItself + "exit code 1", "did not heed SIGTERM"};
        case EKind::DeathInDeinit:
            return {byItself + "signal 11"};
        case EKind::KillStarting:
        case EKind::FileMissing:
        case EKind::FileEmpty:
        case EKind::FileCutShort:
        case EKind::FileIllFormed:
        case EKind::FileLinkLoop:
        case EKind::DescriptorsOfHost:
        case EKind::DirectoryOpened:
        case EKind::DirectoryTaken:
            made.insert(made.end(), killed.begin(), killed.end());
            return made;
        case EKind::IgnoredDeinit:
        case EKind::Reload:
        case EKind::Module:
        case EKind::Edit:
        case EKind::EditMode:
        case EKind::KillProbe:
        case EKind::FillStore:
            return made;
        default:
            return late;
    }
}

/// Holds a file in its wrong state.
class BrokenFile {
public:
    BrokenFile(ChaosWorkplace& workplace, ChaosWorkplace::EBroken how) : m_workplace(workplace) {
        workplace.breakConfiguration(how);
    }
    ~BrokenFile() { m_workplace.restore(); }
    BrokenFile(const BrokenFile&) = delete;
    BrokenFile& operator=(const BrokenFile&) = delete;

private:
    ChaosWorkplace& m_workplace;
};

constexpr const char* s_orphanName = "left-behind";

}  // namespace

Trial::Trial(Surroundings surroundings, ChaosPlan::Step step)
    : m_in(std::move(surroundings)),
      m_step(std::move(step)),
      m_outcome{.kind = m_step.kind, .target = m_step.target} {
    m_in.watcher.expect(m_step.target, verdictsOf(m_step.kind));
}

Trial::~Trial() {
    m_in.watcher.expectNothing(m_step.target);
}

std::chrono::milliseconds Trial::patience() const {
    return s_patience + 3 * m_in.workplace.hangTimeout();
}

Trial::Outcome Trial::run() {
    m_begun = Clock::now();
    const unsigned int standstills = Patience::standstills();
    const bool isDone = inject() && serve();
    m_outcome.stoodStill = Patience::standstills() != standstills;
    m_outcome.isOvertaken = !isDone && m_in.watcher.isHostGone();
    if (m_step.kind == EKind::SlowStart)
        m_in.workplace.planStages(m_step.target, "");
    if (isDone && m_step.kind == EKind::Leak)
        m_in.pHost->type("sendFID " + m_step.target + ".FAULT.STOP");
    return m_outcome;
}

bool Trial::inject() {
    switch (m_step.kind) {
        case EKind::Crash:
            return end("CRASH");
        case EKind::Abort:
            return end("ABORT");
        case EKind::Exit:
            return end("EXIT code=" + std::to_string(m_step.value % 4));
        case EKind::Kill:
            return kill();
        case EKind::KillStarting:
            return killStarting();
        case EKind::Stop:
            return stop();
        case EKind::StopAndContinue:
            return stopAndContinue();
        case EKind::Pause:
            return pause();
        case EKind::Sleep:
            return hang("SLEEP");
        case EKind::Busy:
            return hang("BUSY");
        case EKind::IgnoreSignals:
            return ignoreSignals();
        case EKind::FloodState:
            return survive("FLOODSTATE count=100000");
        case EKind::FloodFids:
            return survive("FLOODFIDS count=20000 fid=T" +
                           std::to_string(1 + m_step.value % m_in.workplace.talkers().size()) + ".FLOOD");
        case EKind::Garbage:
            // The same few seeds: what of it is a value stays in the host's store for ever.
            return survive("GARBAGE count=100 seed=" + std::to_string(1 + m_step.value % 5));
        case EKind::Leak:
            return survive("LEAK mib=4 descriptors=20");
        case EKind::Throw:
            return survive("THROW");
        case EKind::ThrowNumber:
            return survive("THROWNUMBER");
        case EKind::Fail:
            return survive("FAIL");
        case EKind::SlowStart:
            return startSlowly();
        case EKind::DeathInLoad:
            return dieInLoad();
        case EKind::DeathInDeinit:
            return dieInDeinit();
        case EKind::IgnoredDeinit:
            return ignoreDeinit();
        case EKind::Reload:
            return reload();
        case EKind::Module:
            return replaceModule();
        case EKind::Edit:
            return edit();
        case EKind::EditMode:
            return editMode();
        case EKind::EditBroken:
            return editBroken();
        case EKind::FileMissing:
            return breakFile(ChaosWorkplace::EBroken::Missing);
        case EKind::FileEmpty:
            return breakFile(ChaosWorkplace::EBroken::Empty);
        case EKind::FileCutShort:
            return breakFile(ChaosWorkplace::EBroken::CutShort);
        case EKind::FileIllFormed:
            return breakFile(ChaosWorkplace::EBroken::IllFormed);
        case EKind::FileLinkLoop:
            return breakFile(ChaosWorkplace::EBroken::LinkLoop);
        case EKind::KillProbe:
            return killProbe();
        case EKind::Fork:
            return leaveChild("FORK");
        case EKind::ForkAway:
            return leaveChild("FORKAWAY");
        case EKind::Exec:
            return loseLocks("EXEC");
        case EKind::CloseLocks:
            return loseLocks("CLOSELOCKS");
        case EKind::DamageInput:
            return damage("_INQ");
        case EKind::DamageOutput:
            return damage("_OUTQ");
        case EKind::LeaveTicket:
            return leaveTicket();
        case EKind::FillStore:
            return fillStore();
        case EKind::BlockOutput:
            return blockStream(ChaosHost::EStream::Output);
        case EKind::BlockLog:
            return blockStream(ChaosHost::EStream::Log);
        case EKind::DescriptorsOfDriver:
            return takeDriversDescriptors();
        case EKind::DescriptorsOfHost:
            return takeHostsDescriptors();
        case EKind::DirectoryOpened:
            return takeDirectory(TakenDirectory::EHow::Opened);
        case EKind::DirectoryTaken:
            return takeDirectory(TakenDirectory::EHow::Anothers);
        case EKind::StopHost:
            return stopHost();
        case EKind::KillHost:
            break;
    }
    return fails("a trial at a driver");
}

bool Trial::fails(const std::string& what) {
    if (!m_in.watcher.isHostGone())
        m_outcome.failure = what;
    return false;
}

bool Trial::findProcess() {
    m_pid = m_in.pHost->driverProcess(m_step.target);
    m_in.watcher.forgetNotice(m_pid);
    return m_pid > 0 || fails("a process to befall");
}

void Trial::begin() {
    beganAt(Clock::now());
}

void Trial::beganAt(Clock::time_point when) {
    m_begun = when;
    if (!std::exchange(m_outcome.isStruck, true) && m_in.struck)
        m_in.struck();
}

void Trial::fault(const std::string& text) {
    m_in.pHost->type("sendFID " + m_step.target + ".FAULT." + text);
}

void Trial::reloadDriver() {
    m_in.watcher.expectReload(m_step.target);
    m_in.pHost->type("reloadDriver " + m_step.target);
}

void Trial::leaveMessages() {
    for (int i = 0; i < 3; ++i)
        m_in.pHost->type("sendFID " + m_step.target + ".NOTHING");
}

void Trial::noticedAt(Clock::time_point when) {
    m_outcome.noticed = between(m_begun, when);
}

bool Trial::noticeEnd() {
    if (!isDeadWithin(m_pid, patience()))
        return fails("the end of process " + std::to_string(m_pid));
    m_in.reader.processDied(*m_in.pHost, m_step.target, m_pid);
    const auto when = m_in.watcher.waitForNotice(m_pid, patience());
    if (!when)
        return fails("the host's line on the end of process " + std::to_string(m_pid));
    noticedAt(*when);
    return true;
}

bool Trial::noticeHang(bool isContinued) {
    const auto when = m_in.watcher.waitForNotice(m_pid, patience());
    if (!when)
        return fails("the host's line on the hang of process " + std::to_string(m_pid));
    noticedAt(*when);
    if (isContinued)
        ::kill(m_pid, SIGCONT);
    if (!isDeadWithin(m_pid, patience()))
        return fails("the end of process " + std::to_string(m_pid) + ", which hangs");
    m_in.reader.processDied(*m_in.pHost, m_step.target, m_pid);
    return true;
}

bool Trial::kill() {
    if (!findProcess())
        return false;
    begin();
    ::kill(m_pid, SIGKILL);
    return noticeEnd();
}

bool Trial::killStarting() {
    if (!findProcess())
        return false;
    const pid_t before = m_pid;
    reloadDriver();
    Patience left(patience());
    while ((m_pid = m_in.pHost->driverProcess(m_step.target)) == before || m_pid == 0) {
        if (left.isOver() || m_in.watcher.isHostGone())
            return fails("a new process");
        std::this_thread::sleep_for(2ms);
    }
    // Somewhere in its start.
    std::this_thread::sleep_for(std::chrono::milliseconds(m_step.value % 50));
    m_in.watcher.forgetNotice(m_pid);
    begin();
    ::kill(m_pid, SIGKILL);
    return noticeEnd();
}

bool Trial::stop() {
    if (!findProcess())
        return false;
    begin();
    ::kill(m_pid, SIGSTOP);
    leaveMessages();
    return noticeHang();
}

bool Trial::hang(const std::string& text) {
    if (!findProcess() || !strike(text))
        return false;
    leaveMessages();
    return noticeHang();
}

bool Trial::end(const std::string& text) {
    return findProcess() && strike(text) && noticeEnd();
}

/// The driver says what it is about to do. Until then the console may have waited for another command.
bool Trial::strike(const std::string& text) {
    const std::uint64_t since = m_in.watcher.position();
    fault(text);
    const auto struck = m_in.watcher.waitForText(" " + m_step.target + ": as told: ", since, patience());
    if (!struck)
        return fails("the driver's line on the fault that it was told");
    beganAt(*struck);
    return true;
}

bool Trial::survive(const std::string& text) {
    begin();
    fault(text);
    return true;
}

bool Trial::startSlowly() {
    m_in.workplace.planStages(m_step.target, "start sleep 700");
    return kill();
}

bool Trial::dieInLoad() {
    m_in.workplace.planLoading(m_step.target, "load crash");
    const unsigned int ends = m_in.watcher.endsOf(m_step.target);
    const bool isDone = kill() && (m_in.watcher.waitForEnds(m_step.target, ends + 2, patience()) ||
                                   fails("the end of a process that dies while it loads"));
    m_in.workplace.planLoading(m_step.target, "");
    return isDone;
}

bool Trial::dieInDeinit() {
    if (!findProcess())
        return false;
    fault("AT stage=deinitialize fault=crash");
    begin();
    reloadDriver();
    return noticeEnd();
}

bool Trial::ignoreDeinit() {
    if (!findProcess())
        return false;
    fault("AT stage=deinitialize fault=sleep");
    begin();
    reloadDriver();
    return noticeEnd();
}

bool Trial::reload() {
    begin();
    reloadDriver();
    return true;
}

bool Trial::replaceModule() {
    m_in.workplace.replaceModule(m_step.target);
    return reload();
}

bool Trial::edit() {
    m_in.workplace.moveDriver();
    return reload();
}

bool Trial::editMode() {
    m_in.workplace.setMode(true);
    const bool isDirect = reload() && serve();
    m_in.workplace.setMode(false);
    reloadDriver();
    return isDirect;
}

bool Trial::editBroken() {
    const pid_t before = m_in.pHost->driverProcess(m_step.target);
    const std::uint64_t since = m_in.watcher.position();
    begin();
    m_in.workplace.breakConfiguration(static_cast<ChaosWorkplace::EBroken>(m_step.value % 4));
    reloadDriver();
    const auto refused =
        m_in.watcher.waitForText(m_step.target + " is not reloaded, nothing is unloaded", since, patience());
    m_in.workplace.restore();
    if (!refused)
        return fails("the refusal of a reload with a broken workplace file");
    noticedAt(*refused);
    if (m_in.pHost->driverProcess(m_step.target) != before)
        return fails("that a refused reload leaves the driver's process alone");
    return true;
}

bool Trial::killProbe() {
    m_in.workplace.planLoading(m_step.target, "load sleep 60000");
    m_in.workplace.replaceModule(m_step.target);
    const std::uint64_t since = m_in.watcher.position();
    reloadDriver();
    Patience left(patience());
    pid_t trial = 0;
    while ((trial = m_in.pHost->childWith("loadsd.so")) == 0) {
        if (left.isOver() || m_in.watcher.isHostGone())
            break;
        std::this_thread::sleep_for(2ms);
    }
    begin();
    if (trial > 0)
        ::kill(trial, SIGKILL);
    const auto when = m_in.watcher.waitForText("cannot load the driver module", since, patience());
    m_in.workplace.planLoading(m_step.target, "");
    if (trial == 0 || !when)
        return fails(trial == 0 ? "the trial of a changed module"
                                : "the refusal of a module whose trial died");
    noticedAt(*when);
    reloadDriver();
    return true;
}

bool Trial::answers(const std::string& driverID) {
    const std::uint32_t first = m_in.watcher.nextPing();
    Patience left(patience());
    std::uint32_t ping = first;
    while (!left.isOver() && !m_in.watcher.isHostGone()) {
        m_in.pHost->type(ChaosWorkplace::ping(driverID, ping));
        if (const auto when = m_in.watcher.waitForAnswer(driverID, first, s_pingInterval)) {
            if (driverID == m_step.target && !m_outcome.served)
                m_outcome.served = between(m_begun, *when);
            return true;
        }
        ping = m_in.watcher.nextPing();
    }
    return fails("an answer of " + driverID + " to a ping");
}

bool Trial::serve() {
    return answers(m_step.target);
}

bool Trial::otherServes() {
    return answers(m_step.target == "S3" ? "S4" : "S3");
}

bool Trial::serveAndReload() {
    const bool isServing = serve();
    reloadDriver();
    return isServing;
}

/// It is not taken for hung, nor for anything else.
bool Trial::pause() {
    if (!findProcess())
        return false;
    const auto limit = m_in.workplace.hangTimeout();
    begin();
    ::kill(m_pid, SIGSTOP);
    leaveMessages();
    std::this_thread::sleep_for(limit / 4);
    ::kill(m_pid, SIGCONT);
    const auto stoodStill = Clock::now() - m_begun;
    if (!serve())
        return false;
    const bool isSame = m_in.pHost->driverProcess(m_step.target) == m_pid;
    return isSame || stoodStill > limit / 2 ||
           fails("that a driver which has stood still for a moment is left alone");
}

bool Trial::stopAndContinue() {
    if (!findProcess())
        return false;
    begin();
    ::kill(m_pid, SIGSTOP);
    leaveMessages();
    return noticeHang(true);
}

bool Trial::ignoreSignals() {
    if (!findProcess() || !strike("IGNORESIGNALS") || !strike("SLEEP"))
        return false;
    leaveMessages();
    return noticeHang();
}

/// A file that is none is a reason to try again, never to forget.
bool Trial::breakFile(ChaosWorkplace::EBroken how) {
    if (!findProcess())
        return false;
    {
        const BrokenFile broken(m_in.workplace, how);
        std::uint64_t since = m_in.watcher.position();
        begin();
        reloadDriver();
        if (!m_in.watcher.waitForText(m_step.target + " is not reloaded, nothing is unloaded", since,
                                      patience()))
            return fails("the refusal of a reload without a whole workplace file");
        if (m_in.pHost->driverProcess(m_step.target) != m_pid)
            return fails("that a refused reload leaves the driver's process alone");
        since = m_in.watcher.position();
        begin();
        ::kill(m_pid, SIGKILL);
        if (!noticeEnd())
            return false;
        if (!m_in.watcher.waitForText(" " + m_step.target + ": no process runs: ", since, patience()))
            return fails("the reason why the driver is not started");
        since = m_in.watcher.position();
        m_in.pHost->type("drivers");
        if (!m_in.watcher.lineThatBegins(m_step.target + " ", since, patience()))
            return fails("the driver in the list of drivers");
    }
    return serveAndReload();
}

bool Trial::leaveChild(const std::string& text) {
    if (!findProcess())
        return false;
    const auto before = Leftovers::named(s_orphanName);
    if (!strike(text))
        return false;
    std::set<pid_t> left;
    for (Patience patience(this->patience()); left.empty() && !patience.isOver();) {
        const auto now = Leftovers::named(s_orphanName);
        std::set_difference(now.begin(), now.end(), before.begin(), before.end(),
                            std::inserter(left, left.end()));
        std::this_thread::sleep_for(5ms);
    }
    if (left.empty())
        return fails("a child that stays behind");
    begin();
    ::kill(m_pid, SIGKILL);
    if (!noticeEnd() || !serve())
        return false;
    for (const pid_t pid : left)
        if (!isDeadWithin(pid, patience()))
            return fails("the end of process " + std::to_string(pid) + ", which a driver had left behind");
    return true;
}

bool Trial::loseLocks(const std::string& text) {
    return findProcess() && strike(text) && noticeEnd();
}

bool Trial::damage(const std::string& queueSuffix) {
    if (!findProcess())
        return false;
    const QueueMeddler queue(m_pid, m_step.target + queueSuffix);
    begin();
    if (!queue.damage(static_cast<QueueMeddler::EDamage>(m_step.value % 3), m_step.value))
        return fails("a queue to damage");
    return noticeEnd();
}

bool Trial::leaveTicket() {
    if (!findProcess())
        return false;
    const QueueMeddler queue(m_pid, m_step.target + "_INQ");
    begin();
    if (!queue.damage(QueueMeddler::EDamage::Ticket, m_step.value))
        return fails("a queue to leave a ticket in");
    leaveMessages();
    return noticeEnd();
}

/// The others' new values must still be shown.
bool Trial::fillStore() {
    if (!findProcess())
        return false;
    const std::string other = m_step.target == "F6" ? "F7" : "F6";
    const std::string fresh = "fresh" + std::to_string(m_in.watcher.nextPing());
    const std::uint64_t since = m_in.watcher.position();
    begin();
    fault("FILLSTORE");
    bool isTold = false;
    for (Patience left(patience()); !isTold && !left.isOver() && !m_in.watcher.isHostGone();) {
        const std::uint64_t asked = m_in.watcher.position();
        m_in.pHost->type("state --now " + m_step.target + ".READY");
        const auto line = m_in.watcher.lineThatBegins(m_step.target + ": ", asked, 500ms);
        isTold = line && line->find(" dropped, at most ") != std::string::npos;
    }
    if (!isTold)
        return fails("that the loss of values is told");
    noticedAt(Clock::now());
    m_in.pHost->type("sendFID " + other + ".REPORT name=N" + fresh + " value=" + fresh);
    if (!m_in.watcher.waitForText("N" + fresh + " = " + fresh, since, patience()))
        return fails("a new value of " + other + " beside a driver that fills the store");
    return serveAndReload();
}

/// A driver that prints what nobody reads hangs, like any other that does not come back. The host itself may
/// be held up as well, as soon as it prints: then all goes on when somebody reads again.
bool Trial::blockStream(ChaosHost::EStream stream) {
    if (!findProcess())
        return false;
    // A process that another fault has the host start meanwhile waits for room in the same output, where it
    // says first what it runs. The others have said so.
    if (stream == ChaosHost::EStream::Output) {
        const std::set<pid_t> older = m_in.pHost->driverProcesses(s_longestStart);
        for (const std::string& verdict : verdictsOf(m_step.kind))
            m_ofAll.emplace_back(m_in.watcher, verdict, older);
    }
    bool isDead = false;
    {
        const StateReader::Pause pause(m_in.reader);
        const ChaosHost::Hold hold(*m_in.pHost, stream);
        begin();
        fault(stream == ChaosHost::EStream::Output ? "PRINT mib=1" : "PRINTLOG mib=1");
        leaveMessages();
        isDead = isDeadWithin(m_pid, s_longestHold);
    }
    return !isDead || noticeHang();
}

bool Trial::takeDriversDescriptors() {
    if (!findProcess())
        return false;
    const DescriptorLimit limit(m_pid);
    begin();
    if (!limit)
        return fails("a limit for the driver's descriptors");
    if (!serve())
        return false;
    std::this_thread::sleep_for(500ms);
    return serve();
}

bool Trial::takeHostsDescriptors() {
    if (!findProcess())
        return false;
    {
        const DescriptorLimit limit(m_in.pHost->pid());
        begin();
        if (!limit)
            return fails("a limit for the host's descriptors");
        ::kill(m_pid, SIGKILL);
        if (!noticeEnd() || !otherServes())
            return false;
        std::this_thread::sleep_for(1s);
        if (!otherServes())
            return false;
    }
    return serveAndReload();
}

/// The others go on and are reached, and the reason is told.
bool Trial::takeDirectory(TakenDirectory::EHow how) {
    if (!findProcess())
        return false;
    const QueueMeddler queue(m_pid, m_step.target + "_INQ");
    if (!queue)
        return fails("a queue directory");
    // A process that another fault has the host start just then finds no queues.
    const Watcher::OfAll noQueues(m_in.watcher, "ended unexpectedly: exit code 1");
    {
        const std::uint64_t since = m_in.watcher.position();
        const TakenDirectory taken(queue.directory(), how);
        begin();
        if (!taken)
            return fails("that the queue directory can be taken");
        ::kill(m_pid, SIGKILL);
        if (!noticeEnd())
            return false;
        if (!m_in.watcher.waitForText("queue directory", since, patience()))
            return fails("the host's line on its queue directory");
        if (!otherServes())
            return false;
    }
    return serveAndReload();
}

bool Trial::stopHost() {
    const StateReader::Pause pause(m_in.reader);
    m_in.pHost->signal(SIGSTOP);
    begin();
    std::this_thread::sleep_for(std::chrono::milliseconds(500 + m_step.value % 2500));
    m_in.pHost->signal(SIGCONT);
    return serve();
}
