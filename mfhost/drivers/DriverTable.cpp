#include "DriverTable.h"

#include <unistd.h>

#include <algorithm>
#include <iterator>
#include <string_view>
#include <utility>

#include "HostLog.h"
#include "PanelNames.h"

namespace {

/// A FID of any length can be sent from outside.
constexpr std::size_t s_longestFid = 80;

/// What is planned.
std::string textOf(const DriverTable::Next& next) {
    if (!next.delay)
        return "none: the limit is reached";
    if (*next.delay == RestartPlan::Duration::zero())
        return "at once";
    return "in " + std::to_string(next.delay->count()) + " ms";
}

}  // namespace

DriverTable::DriverTable(StateStore& store, std::optional<RestartPlan::Settings> restart)
    : m_store(store), m_restart(std::move(restart)) {
    // The module starts this one whatever the configuration says.
    Row& panel = row(protocol::panelDriverID);
    panel.type = protocol::panelType;
    panel.version = protocol::panelVersion;
    panel.interfaceType = EInterfaceTypes::Direct;
}

DriverTable::Row& DriverTable::row(const std::string& driverID) {
    const auto [position, isNew] = m_rows.try_emplace(driverID, m_restart ? *m_restart : m_noRestart);
    if (isNew)
        position->second.id = driverID;
    return position->second;
}

/// The row of a driver that may have left the table by now; null where it has.
DriverTable::Row* DriverTable::known(const std::string& driverID) {
    const auto found = m_rows.find(driverID);
    return found == m_rows.end() ? nullptr : &found->second;
}

bool DriverTable::mayHappen(const Row& row, EDriverEvent event) {
    const bool isAllowed = nextState(row.state, event).has_value();
    if (!isAllowed)
        hostLog(sal::LogOutput::eError) << row.id << ": \"" << inWords(event)
                                        << "\" is ignored: the driver is " << inWords(row.state) << std::endl;
    return isAllowed;
}

/// Whether the event may happen. What belongs to the new state is in the row by then: the follower sees it.
bool DriverTable::take(Row& row, EDriverEvent event) {
    if (!mayHappen(row, event))
        return false;
    const auto next = nextState(row.state, event);
    if (*next == row.state && event != EDriverEvent::InstanceBegins)
        return true;
    row.state = *next;
    if (row.state != EDriverState::Waiting && row.state != EDriverState::Due)
        row.nextTry.reset();
    if (m_follower)
        m_follower(row);
    return true;
}

void DriverTable::configure(const std::vector<WorkplaceFile::Entry>& entries, bool isWhole) {
    std::set<std::string_view> configuredIDs;
    const std::lock_guard lock(m_mutex);
    for (const WorkplaceFile::Entry& entry : entries) {
        configuredIDs.insert(entry.driverID);
        Row& configured = row(entry.driverID);
        configured.type = entry.driverType;
        configured.version = entry.version;
        configured.interfaceType = entry.interfaceType;
    }
    if (!isWhole)
        return;
    std::erase_if(m_rows, [&](const auto& item) {
        const Row& gone = item.second;
        const bool isParked = gone.state == EDriverState::Parking || gone.state == EDriverState::Parked;
        return !configuredIDs.contains(item.first) && item.first != protocol::panelDriverID &&
               !gone.isAlive && !isParked;
    });
}

void DriverTable::beginStart(const std::string& driverID) {
    const std::lock_guard lock(m_mutex);
    Row& started = row(driverID);
    started.plan.reset();
    started.isLeaving = false;
    started.isRestart = false;
    started.saidCause.clear();
    if (started.state == EDriverState::Parked)
        addStep(started, ELifeStep::Unparked);
    take(started, started.isAlive ? EDriverEvent::ReloadBegins : EDriverEvent::StartBegins);
}

bool DriverTable::beginRestart(const std::string& driverID) {
    const std::lock_guard lock(m_mutex);
    const auto found = m_rows.find(driverID);
    // A command that came first has taken it out of its waiting.
    if (found == m_rows.end() || found->second.state != EDriverState::Due)
        return false;
    found->second.isRestart = true;
    return take(found->second, EDriverEvent::RestartBegins);
}

void DriverTable::endStart(const std::string& driverID, const std::string& cause) {
    const std::lock_guard lock(m_mutex);
    Row& started = row(driverID);
    if (!started.isAlive && !cause.empty()) {
        started.cause = cause;
        addStep(started, ELifeStep::Failed, cause);
    }
    startIsOver(started);
}

void DriverTable::startIsOver(Row& row) {
    row.isRestart = false;
    take(row, EDriverEvent::StartIsOver);
    // The former instance, which goes on, takes messages no more than before.
    if (row.isHung && row.state == EDriverState::Running)
        take(row, EDriverEvent::InstanceHangs);
    if (row.pid == 0)
        answers(row);
}

std::optional<DriverTable::MissingProcess> DriverTable::endProcessStart(const std::string& driverID,
                                                                        const std::string& cause,
                                                                        bool isTried) {
    const std::lock_guard lock(m_mutex);
    Row& started = row(driverID);
    if (started.state != EDriverState::Starting) {
        startIsOver(started);
        return std::nullopt;
    }
    started.isRestart = false;
    started.pid = 0;
    started.cause = cause;
    started.lastEnd = EEnd::NoStart;
    started.since = std::chrono::system_clock::now();
    MissingProcess missing;
    addStep(started, ELifeStep::Failed, cause);
    missing.next = plan(started, {}, isTried);
    recordPlan(driverID, missing.next);
    if (m_restart)
        addStep(started, ELifeStep::Restart, textOf(missing.next));
    take(started, missing.next.delay ? EDriverEvent::StartFails : EDriverEvent::StartFailsForGood);
    m_store.driverEnded(driverID, cause);
    missing.isNews = std::exchange(started.saidCause, cause) != cause || !missing.next.delay;
    return missing;
}

void DriverTable::giveUp(const std::string& driverID) {
    const std::lock_guard lock(m_mutex);
    Row& left = row(driverID);
    if (take(left, EDriverEvent::IsGivenUp)) {
        left.isRestart = false;
        addStep(left, ELifeStep::Restart, "none: it is given up");
    }
}

void DriverTable::addRestart(const std::string& driverID) {
    const std::lock_guard lock(m_mutex);
    Row& restarted = row(driverID);
    ++restarted.restarts;
    ++restarted.restartsAfter.at(static_cast<std::size_t>(restarted.lastEnd));
}

void DriverTable::beginParking(const std::string& driverID, const std::string& cause) {
    const std::lock_guard lock(m_mutex);
    Row& parked = row(driverID);
    parked.parkCause = cause;
    parked.plan.reset();
    parked.isRestart = false;
    take(parked, EDriverEvent::ParkBegins);
}

void DriverTable::endParking(const std::string& driverID) {
    const std::lock_guard lock(m_mutex);
    Row& parked = row(driverID);
    if (!mayHappen(parked, EDriverEvent::ParkIsOver))
        return;
    parked.cause = parked.parkCause;
    parked.since = std::chrono::system_clock::now();
    addStep(parked, ELifeStep::Parked, parked.parkCause);
    if (m_pObservation)
        m_pObservation->restart(driverID, "none: " + parked.parkCause);
    take(parked, EDriverEvent::ParkIsOver);
    m_store.driverParked(driverID, parked.parkCause);
}

void DriverTable::forget(const std::string& driverID) {
    const std::lock_guard lock(m_mutex);
    Row* pLeft = known(driverID);
    if (!pLeft || pLeft->state != EDriverState::Parked)
        return;
    pLeft->isLeaving = true;
    eraseIfGone(driverID);
}

void DriverTable::eraseIfGone(const std::string& driverID) {
    const Row* pLeft = known(driverID);
    if (pLeft && pLeft->isLeaving && !pLeft->isAlive)
        m_rows.erase(driverID);
}

/// What is planned next for a driver that runs no more; nothing where none is ever started again.
DriverTable::Next DriverTable::plan(Row& row, RestartPlan::Duration ran, bool isTried) {
    if (!m_restart)
        return {};
    Next next;
    next.delay = isTried ? row.plan.ended(ran) : row.plan.putOff();
    if (!next.delay)
        next.limit = m_restart->limit;
    if (next.delay)
        row.nextTry = Clock::now() + *next.delay;
    return next;
}

void DriverTable::recordPlan(const std::string& driverID, const Next& next) const {
    if (m_pObservation && m_restart)
        m_pObservation->restart(driverID, textOf(next));
}

void DriverTable::addStep(Row& row, ELifeStep step, const std::string& text) {
    row.life.push_back({step, std::chrono::system_clock::now(), row.pid, row.start, text});
    if (row.life.size() > s_mostSteps)
        row.life.pop_front();
}

/// The first sign of the instance that is there.
void DriverTable::answers(Row& row) {
    if (row.isAlive && !row.isHung && !std::exchange(row.hasAnswered, true))
        addStep(row, ELifeStep::Answer);
}

bool DriverTable::instanceBegins(Row& row, int pid, bool isByHand) {
    if (!mayHappen(row, EDriverEvent::InstanceBegins))
        return false;
    // The end of the former one has not been noticed yet, and is not told any more.
    if (row.isAlive) {
        m_store.driverEnded(row.id, "unloaded");
        addStep(row, ELifeStep::End, "unloaded");
    }
    row.isAlive = true;
    row.isHung = false;
    row.pid = pid;
    row.isByHand = isByHand;
    if (pid > 0)
        row.interfaceType = EInterfaceTypes::Queue;
    row.since = std::chrono::system_clock::now();
    row.receivedPerSecond = 0;
    row.sentPerSecond = 0;
    row.saidCause.clear();
    row.start = m_store.driverStarted(row.id);
    row.hasAnswered = false;
    const std::string text = isByHand ? "by hand" : row.isRestart ? "again" : "";
    addStep(row, ELifeStep::Start, text);
    if (m_pObservation)
        m_pObservation->started(row.id, pid, text);
    take(row, EDriverEvent::InstanceBegins);
    return std::exchange(row.isRestart, false);
}

/// How many values have become stale.
std::size_t DriverTable::instanceEnds(Row& row, EDriverEvent event, const std::string& cause) {
    const bool isParked = row.state == EDriverState::Parking || row.state == EDriverState::Parked;
    row.cause = isParked ? row.parkCause : cause;
    row.since = std::chrono::system_clock::now();
    row.receivedPerSecond = 0;
    row.sentPerSecond = 0;
    const bool wasHung = std::exchange(row.isHung, event == EDriverEvent::InstanceHangs);
    row.isAlive = row.isHung;
    if (!row.isHung)
        addStep(row, ELifeStep::End, row.cause);
    else if (!wasHung)
        addStep(row, ELifeStep::Hang, row.cause);
    take(row, event);
    return m_store.driverEnded(row.id, row.cause, row.start);
}

bool DriverTable::processStarted(const std::string& driverID, int pid, bool isByHand) {
    const std::lock_guard lock(m_mutex);
    return instanceBegins(row(driverID), pid, isByHand);
}

std::optional<DriverTable::End> DriverTable::processEnded(const std::string& driverID, int pid,
                                                          const std::string& cause, RestartPlan::Duration ran,
                                                          bool isPlanned, EEnd end, int status) {
    const std::lock_guard lock(m_mutex);
    Row* pEnded = known(driverID);
    const bool isLast = pEnded && pEnded->pid == pid && pEnded->isAlive;
    End told;
    told.wasAsked = isLast && pEnded->state != EDriverState::Running && pEnded->state != EDriverState::Hung;
    // That it hangs was an incident already.
    if (m_pObservation)
        m_pObservation->exited(driverID, status, cause,
                               isLast && isPlanned && !told.wasAsked && !pEnded->isHung);
    if (!isLast)
        return std::nullopt;
    pEnded->lastEnd = pEnded->isHung ? EEnd::Hang : end;
    const bool isToPlan = isPlanned && !told.wasAsked;
    if (isToPlan) {
        told.next = plan(*pEnded, ran, true);
        recordPlan(driverID, told.next);
    }
    told.staleValues = instanceEnds(
        *pEnded, told.next.delay ? EDriverEvent::InstanceEndsEarly : EDriverEvent::InstanceEnds, cause);
    if (isToPlan && m_restart)
        addStep(*pEnded, ELifeStep::Restart, textOf(told.next));
    eraseIfGone(driverID);
    return told;
}

std::optional<std::size_t> DriverTable::processHung(const std::string& driverID, int pid,
                                                    const std::string& cause) {
    const std::lock_guard lock(m_mutex);
    Row* pHung = known(driverID);
    if (!pHung || pHung->pid != pid || !pHung->isAlive)
        return std::nullopt;
    pHung->hangs += pHung->isHung ? 0 : 1;
    if (m_pObservation)
        m_pObservation->hangs(driverID, cause);
    return instanceEnds(*pHung, EDriverEvent::InstanceHangs, cause);
}

void DriverTable::setTraffic(const std::string& driverID, double receivedPerSecond, double sentPerSecond) {
    const std::lock_guard lock(m_mutex);
    Row* pMeasured = known(driverID);
    if (!pMeasured)
        return;
    pMeasured->receivedPerSecond = receivedPerSecond;
    pMeasured->sentPerSecond = sentPerSecond;
    if (receivedPerSecond > 0 || sentPerSecond > 0)
        answers(*pMeasured);
}

void DriverTable::callBegins(const std::string& driverID, const char* operation) {
    const std::lock_guard lock(m_mutex);
    m_calls.push_back({driverID, operation, Clock::now(), ::gettid()});
    if (std::string_view(operation) == "setConfiguration")
        instanceBegins(row(driverID), 0, false);
}

void DriverTable::callEnded(const std::string& driverID, const char* operation) {
    const std::lock_guard lock(m_mutex);
    const auto call = std::find_if(m_calls.begin(), m_calls.end(), [&](const Call& candidate) {
        return candidate.driverID == driverID && candidate.operation == operation &&
               candidate.thread == ::gettid();
    });
    if (call != m_calls.end())
        m_calls.erase(call);
}

void DriverTable::driverDeleted(const std::string& driverID) {
    const std::lock_guard lock(m_mutex);
    Row* pDeleted = known(driverID);
    if (pDeleted && pDeleted->isAlive && pDeleted->pid == 0) {
        if (m_pObservation)
            m_pObservation->exited(driverID, 0, "unloaded", false);
        instanceEnds(*pDeleted, EDriverEvent::InstanceEnds, "unloaded");
    }
    eraseIfGone(driverID);
}

void DriverTable::fidBegins(const std::string& driverID, const std::string& fid, const FIDParameterList&) {
    const std::lock_guard lock(m_mutex);
    m_calls.push_back({driverID, "sendFID(" + fid.substr(0, s_longestFid) + ")", Clock::now(), ::gettid()});
}

void DriverTable::fidEnded(const std::string& driverID, bool, const char*) {
    const std::lock_guard lock(m_mutex);
    // The calls of one thread end in the opposite order.
    const auto call = std::find_if(m_calls.rbegin(), m_calls.rend(), [&](const Call& candidate) {
        return candidate.driverID == driverID && candidate.thread == ::gettid();
    });
    if (call != m_calls.rend())
        m_calls.erase(std::prev(call.base()));
}

std::vector<std::string> DriverTable::takeDue(Clock::time_point now) {
    std::vector<std::string> due;
    const std::lock_guard lock(m_mutex);
    for (auto& [driverID, row] : m_rows) {
        if (row.state != EDriverState::Waiting || *row.nextTry > now)
            continue;
        take(row, EDriverEvent::TimeComes);
        due.push_back(driverID);
    }
    return due;
}

std::optional<DriverTable::Clock::time_point> DriverTable::nextDue() const {
    std::optional<Clock::time_point> next;
    const std::lock_guard lock(m_mutex);
    for (const auto& [driverID, row] : m_rows) {
        if (row.state == EDriverState::Waiting)
            next = next ? std::min(*next, *row.nextTry) : *row.nextTry;
    }
    return next;
}

std::vector<DriverTable::Driver> DriverTable::drivers() const {
    std::vector<Driver> all;
    const std::lock_guard lock(m_mutex);
    for (const auto& [id, row] : m_rows)
        all.push_back(row);
    return all;
}

std::optional<DriverTable::Driver> DriverTable::find(const std::string& driverID) const {
    const std::lock_guard lock(m_mutex);
    const auto position = m_rows.find(driverID);
    return position == m_rows.end() ? std::nullopt : std::optional<Driver>(position->second);
}

std::vector<LifeStep> DriverTable::life(const std::string& driverID) const {
    const std::lock_guard lock(m_mutex);
    const auto position = m_rows.find(driverID);
    if (position == m_rows.end())
        return {};
    return {position->second.life.begin(), position->second.life.end()};
}

bool DriverTable::isRunning(const std::string& driverID) const {
    const auto driver = find(driverID);
    return driver && driver->state == EDriverState::Running;
}

bool DriverTable::hasProcess(const std::string& driverID) const {
    const auto driver = find(driverID);
    return driver && driver->pid > 0 && !driver->isByHand;
}

bool DriverTable::isLast(const std::string& driverID, int pid) const {
    const auto driver = find(driverID);
    return driver && driver->pid == pid;
}

std::optional<DriverTable::Call> DriverTable::oldestCall() const {
    const std::lock_guard lock(m_mutex);
    if (m_calls.empty())
        return std::nullopt;
    return m_calls.front();
}

std::vector<DriverTable::Call> DriverTable::innermostCalls() const {
    std::vector<Call> innermost;
    const std::lock_guard lock(m_mutex);
    for (const Call& call : m_calls) {
        std::erase_if(innermost, [&](const Call& outer) { return outer.thread == call.thread; });
        innermost.push_back(call);
    }
    return innermost;
}

const char* inWords(DriverTable::EEnd end) {
    static constexpr std::array<const char*, DriverTable::s_ends> s_words{"unknown", "exit", "signal", "hang",
                                                                          "no-start"};
    return s_words.at(static_cast<std::size_t>(end));
}
