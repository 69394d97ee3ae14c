#include "CommandThread.h"

#include <unistd.h>

#include <exception>
#include <utility>

#include "HostLog.h"
#include "Needed.h"
#include "ThreadName.h"

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
        if (m_stopping || m_items.size() >= s_capacity)
            return false;
        m_items.push_back({what, std::move(task)});
    }
    m_changed.notify_all();
    return true;
}

bool CommandThread::postWaiting(const std::string& what, Task task) {
    {
        std::unique_lock lock(m_mutex);
        m_changed.wait(lock, [this] { return m_stopping || m_items.size() < s_capacity; });
        if (m_stopping)
            return false;
        m_items.push_back({what, std::move(task)});
    }
    m_changed.notify_all();
    return true;
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

void CommandThread::run() {
    base::nameThread("commands");
    for (;;) {
        Item item;
        {
            std::unique_lock lock(m_mutex);
            m_changed.wait(lock, [this] { return m_stopping || !m_items.empty() || !m_behind.empty(); });
            std::deque<Item>& next = m_items.empty() ? m_behind : m_items;
            if (next.empty())
                break;
            item = std::move(next.front());
            next.pop_front();
        }
        m_changed.notify_all();
        perform(item);
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
