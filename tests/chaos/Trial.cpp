#include "Trial.h"

#include <poll.h>
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <thread>
#include <utility>

using namespace std::chrono_literals;
using EKind = ChaosPlan::EKind;

namespace {

/// More than anything here takes on a machine that others use too; what has not come by then never comes.
constexpr auto s_patience = 40s;
constexpr auto s_pingInterval = 50ms;

/// Waits until the process is dead.
bool isDeadWithin(pid_t pid, std::chrono::milliseconds patience) {
    const int fd = static_cast<int>(::syscall(SYS_pidfd_open, pid, 0));
    if (fd < 0)
        return true;
    pollfd watched{fd, POLLIN, 0};
    bool isDead = false;
    for (Patience left(patience); !isDead && !left.isOver();)
        isDead = ::poll(&watched, 1, 100) > 0;
    ::close(fd);
    return isDead;
}

std::chrono::microseconds between(Trial::Clock::time_point from, Trial::Clock::time_point to) {
    return std::max(0us, std::chrono::duration_cast<std::chrono::microseconds>(to - from));
}

}  // namespace

Trial::Trial(Surroundings surroundings, ChaosPlan::Step step)
    : m_in(std::move(surroundings)),
      m_step(std::move(step)),
      m_outcome{.kind = m_step.kind, .target = m_step.target} {
    m_in.watcher.expectEnds(m_step.target);
}

Trial::~Trial() {
    m_in.watcher.expectNoEnds(m_step.target);
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
        case EKind::Sleep:
            return hang("SLEEP");
        case EKind::Busy:
            return hang("BUSY");
        case EKind::FloodState:
            return survive("FLOODSTATE count=100000");
        case EKind::FloodFids:
            return survive("FLOODFIDS count=20000 fid=T" +
                           std::to_string(1 + m_step.value % ChaosWorkplace::s_talkers) + ".FLOOD");
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
        case EKind::KillProbe:
            return killProbe();
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
    m_begun = Clock::now();
}

void Trial::fault(const std::string& text) {
    m_in.pHost->type("sendFID " + m_step.target + ".FAULT." + text);
}

void Trial::reloadDriver() {
    m_in.pHost->type("reloadDriver " + m_step.target);
}

void Trial::leaveMessages() {
    for (int i = 0; i < 3; ++i)
        m_in.pHost->type("sendFID " + m_step.target + ".NOTHING");
}

void Trial::noticedAt(Clock::time_point when) {
    m_outcome.noticed = between(m_begun, when);
}

/// What was shown of the driver is the dead process's only as long as there is no newer one.
void Trial::tellReader(pid_t pid) {
    const std::uint32_t instance = m_in.watcher.lastInstance(m_step.target);
    const std::uint32_t ping = m_in.watcher.lastAnswer(m_step.target);
    const pid_t newer = m_in.pHost->driverProcess(m_step.target);
    if (newer == 0 || newer == pid)
        m_in.reader.died(m_step.target, instance, ping);
}

bool Trial::noticeEnd() {
    if (!isDeadWithin(m_pid, s_patience))
        return fails("the end of process " + std::to_string(m_pid));
    tellReader(m_pid);
    const auto when = m_in.watcher.waitForNotice(m_pid, s_patience);
    if (!when)
        return fails("the host's line on the end of process " + std::to_string(m_pid));
    noticedAt(*when);
    return true;
}

bool Trial::noticeHang() {
    const auto when = m_in.watcher.waitForNotice(m_pid, s_patience);
    if (!when)
        return fails("the host's line on the hang of process " + std::to_string(m_pid));
    noticedAt(*when);
    if (!isDeadWithin(m_pid, s_patience))
        return fails("the end of process " + std::to_string(m_pid) + ", which hangs");
    tellReader(m_pid);
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
    Patience left(s_patience);
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
    const auto struck = m_in.watcher.waitForText(" " + m_step.target + ": as told: ", since, s_patience);
    if (!struck)
        return fails("the driver's line on the fault that it was told");
    m_begun = *struck;
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
    const bool isDone = kill() && (m_in.watcher.waitForEnds(m_step.target, ends + 2, s_patience) ||
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
        m_in.watcher.waitForText(m_step.target + " is not reloaded, nothing is unloaded", since, s_patience);
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
    Patience left(s_patience);
    pid_t trial = 0;
    while ((trial = m_in.pHost->childWith("loadsd.so")) == 0) {
        if (left.isOver() || m_in.watcher.isHostGone())
            break;
        std::this_thread::sleep_for(2ms);
    }
    begin();
    if (trial > 0)
        ::kill(trial, SIGKILL);
    const auto when = m_in.watcher.waitForText("cannot load the driver module", since, s_patience);
    m_in.workplace.planLoading(m_step.target, "");
    if (trial == 0 || !when)
        return fails(trial == 0 ? "the trial of a changed module"
                                : "the refusal of a module whose trial died");
    noticedAt(*when);
    reloadDriver();
    return true;
}

bool Trial::serve() {
    const bool isSysMon = m_step.target.front() == 'S';
    const std::uint32_t first = m_in.watcher.nextPing();
    Patience left(s_patience);
    std::uint32_t ping = first;
    while (!left.isOver() && !m_in.watcher.isHostGone()) {
        m_in.pHost->type("sendFID " + m_step.target + (isSysMon ? ".MARK text=p" : ".PING value=p") +
                         std::to_string(ping));
        if (const auto when = m_in.watcher.waitForAnswer(m_step.target, first, s_pingInterval)) {
            m_outcome.served = between(m_begun, *when);
            return true;
        }
        ping = m_in.watcher.nextPing();
    }
    return fails("an answer to a ping");
}
