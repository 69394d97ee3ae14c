#include "CommandThread.h"

#include <unistd.h>

#include <algorithm>
#include <exception>
#include <utility>

#include "HostLog.h"
#include "Needed.h"
#include "ThreadName.h"

namespace {

/// Between two looks at what a task waits for.
constexpr std::chrono::milliseconds s_gateInterval{1};

}  // namespace

CommandThread::~CommandThread() {
    stopAfterCurrent();
    join();
}

void CommandThread::join() {
    if (m_thread.joinable())
        m_thread.join();
}

void CommandThread::start(Task onActivity, Task last, Task onEnd) {
    m_onActivity = std::move(onActivity);
    m_last = std::move(last);
    m_onEnd = std::move(onEnd);
    m_thread = base::neededThread("commands", [this] { run(); });
}

bool CommandThread::post(const std::string& what, Task task) {
    {
        const std::lock_guard lock(m_mutex);
        if (m_stopping || m_inNoLane >= s_capacity)
            return false;
        m_items.push_back({what, std::move(task)});
        ++m_inNoLane;
    }
    m_changed.notify_all();
    return true;
}

bool CommandThread::postInLane(const std::string& lane, const std::string& what, Task task, Gate gate) {
    {
        const std::lock_guard lock(m_mutex);
        if (m_stopping || !hasRoom(lane))
            return false;
        addToLane({what, std::move(task), lane, std::move(gate)});
    }
    m_changed.notify_all();
    return true;
}

bool CommandThread::postInLaneWaiting(const std::string& lane, const std::string& what, Task task,
                                      Gate gate) {
    {
        std::unique_lock lock(m_mutex);
        m_changed.wait(lock, [&] { return m_stopping || hasRoom(lane); });
        if (m_stopping)
            return false;
        addToLane({what, std::move(task), lane, std::move(gate)});
    }
    m_changed.notify_all();
    return true;
}

bool CommandThread::hasRoom(const std::string& lane) const {
    const auto found = m_lanes.find(lane);
    return found == m_lanes.end() || found->second.waiting < s_capacity;
}

void CommandThread::addToLane(Item item) {
    ++m_lanes[*item.lane].waiting;
    m_items.push_back(std::move(item));
}

bool CommandThread::postBehind(const std::string& what, Task task) {
    {
        const std::lock_guard lock(m_mutex);
        if (m_stopping)
            return false;
        m_behind.push_back({what, std::move(task)});
    }
    m_changed.notify_all();
    return true;
}

void CommandThread::stopAfterCurrent() {
    {
        const std::lock_guard lock(m_mutex);
        m_stopping = true;
        m_items.clear();
        m_inNoLane = 0;
        m_lanes.clear();
        m_behind.clear();
    }
    m_changed.notify_all();
}

void CommandThread::stopWhenDone() {
    {
        const std::lock_guard lock(m_mutex);
        m_stopping = true;
        m_behind.clear();
    }
    m_changed.notify_all();
}

void CommandThread::setDriver(const std::string& driverID) {
    const std::lock_guard lock(m_mutex);
    m_activity.driverID = driverID;
}

CommandActivity CommandThread::activity() const {
    const std::lock_guard lock(m_mutex);
    return m_activity;
}

std::vector<CommandWait> CommandThread::waits() const {
    const std::lock_guard lock(m_mutex);
    std::vector<CommandWait> waits;
    for (const auto& [key, lane] : m_lanes) {
        if (lane.wait)
            waits.push_back(*lane.wait);
    }
    return waits;
}

CommandThread::Items::iterator CommandThread::firstReady(Clock::time_point now) {
    return std::find_if(m_items.begin(), m_items.end(), [&](const Item& item) {
        const Lane* const pLane = item.lane ? &m_lanes.at(*item.lane) : nullptr;
        return !pLane || !pLane->wait || pLane->next <= now;
    });
}

/// Whether the task need not wait. Gives the lock up meanwhile, in which everything may be dropped.
bool CommandThread::passesGate(const Item& item, std::unique_lock<std::mutex>& lock) {
    if (!item.gate)
        return true;
    lock.unlock();
    std::optional<Hold> hold = item.gate();
    lock.lock();
    const auto lane = m_lanes.find(*item.lane);
    if (lane == m_lanes.end())
        return false;
    lane->second.wait.reset();
    if (!hold)
        return true;
    lane->second.wait = CommandWait{item.what, std::move(hold->driverID), hold->since, hold->received};
    lane->second.next = Clock::now() + s_gateInterval;
    return false;
}

/// Nothing when the thread is to stop.
std::optional<CommandThread::Item> CommandThread::next() {
    std::unique_lock lock(m_mutex);
    for (;;) {
        if (const auto ready = firstReady(Clock::now()); ready != m_items.end()) {
            const auto place = ready - m_items.begin();
            Item item = std::move(*ready);
            m_items.erase(ready);
            if (!item.lane) {
                --m_inNoLane;
                return item;
            }
            if (passesGate(item, lock)) {
                if (const auto lane = m_lanes.find(*item.lane); --lane->second.waiting == 0)
                    m_lanes.erase(lane);
                return item;
            }
            if (m_lanes.contains(*item.lane))
                m_items.insert(m_items.begin() + place, std::move(item));
            continue;
        }
        if (!m_behind.empty()) {
            Item item = std::move(m_behind.front());
            m_behind.pop_front();
            return item;
        }
        if (m_items.empty() && m_stopping)
            return std::nullopt;
        // Each lane that has tasks waits.
        if (m_items.empty())
            m_changed.wait(lock);
        else
            m_changed.wait_for(lock, s_gateInterval);
    }
}

void CommandThread::run() {
    base::nameThread("commands");
    while (const auto item = next()) {
        m_changed.notify_all();
        perform(*item);
    }
    perform({"shutdown", m_last});
    m_onEnd();
}

void CommandThread::perform(const Item& item) {
    {
        const std::lock_guard lock(m_mutex);
        m_activity = {true, item.what, {}, Clock::now(), ::gettid()};
    }
    m_onActivity();
    try {
        item.task();
    } catch (const std::exception& error) {
        hostLog(sal::LogOutput::eCritical)
            << "\"" << item.what << "\" is broken off: " << error.what() << std::endl;
    }
    {
        const std::lock_guard lock(m_mutex);
        m_activity = {};
    }
    m_onActivity();
}
