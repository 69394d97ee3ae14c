#include "QueueBoard.h"

#include <algorithm>
#include <chrono>
#include <cstring>

#include "Journal.h"

namespace fakehost {
namespace {

thread_local const QueueBoard::Stop* t_pStop = nullptr;

template <class Predicate>
bool waitUpTo(std::condition_variable& changed, std::unique_lock<std::mutex>& lock, int timeout,
              Predicate predicate) {
    if (timeout < 0) {
        changed.wait(lock, predicate);
        return true;
    }
    return changed.wait_for(lock, std::chrono::milliseconds(timeout), predicate);
}

}  // namespace

QueueBoard& QueueBoard::instance() {
    static QueueBoard s_board;
    return s_board;
}

void QueueBoard::reset() {
    std::lock_guard lock(m_mutex);
    m_queues.clear();
    m_noteReceives = false;
}

bool QueueBoard::create(const std::string& name, unsigned int capacity, int messageSize) {
    std::lock_guard lock(m_mutex);
    Queue& queue = m_queues[name];
    if (queue.held)
        return false;
    queue.held = true;
    queue.capacity = capacity;
    queue.messageSize = messageSize;
    return true;
}

void QueueBoard::release(const std::string& name) {
    std::lock_guard lock(m_mutex);
    m_queues[name].held = false;
}

bool QueueBoard::send(const std::string& name, const std::string& message, int timeout) {
    std::unique_lock lock(m_mutex);
    Queue& queue = m_queues[name];
    if (static_cast<int>(message.size()) > queue.messageSize)
        return false;
    if (!waitUpTo(m_changed, lock, timeout, [&] { return queue.messages.size() < queue.capacity; }))
        return false;
    queue.messages.push_back(message);
    ++queue.sent;
    m_changed.notify_all();
    return true;
}

int QueueBoard::receive(const std::string& name, unsigned char* buffer, int size, int timeout) {
    std::unique_lock lock(m_mutex);
    if (m_noteReceives)
        Journal::instance().note("queue receive " + name + " " + std::to_string(timeout));
    Queue& queue = m_queues[name];
    const auto stopped = [&] {
        if (!t_pStop || !t_pStop->requested)
            return false;
        const auto end = t_pStop->ends.find(name);
        return end == t_pStop->ends.end() || queue.received() >= end->second;
    };
    waitUpTo(m_changed, lock, timeout, [&] { return stopped() || !queue.messages.empty(); });
    if (stopped() || queue.messages.empty())
        return -1;
    const std::string message = queue.messages.front();
    queue.messages.pop_front();
    m_changed.notify_all();
    const int length = std::min(size, static_cast<int>(message.size()));
    std::memcpy(buffer, message.data(), static_cast<std::size_t>(length));
    return length;
}

void QueueBoard::requestStop(Stop& stop) {
    std::lock_guard lock(m_mutex);
    stop.requested = true;
    for (const auto& [name, queue] : m_queues)
        stop.ends[name] = queue.sent;
    m_changed.notify_all();
}

void QueueBoard::obey(const Stop* pStop) {
    t_pStop = pStop;
}

void QueueBoard::push(const std::string& name, const std::string& message) {
    std::lock_guard lock(m_mutex);
    Queue& queue = m_queues[name];
    queue.messages.push_back(message);
    ++queue.sent;
    m_changed.notify_all();
}

std::string QueueBoard::take(const std::string& name) {
    std::lock_guard lock(m_mutex);
    Queue& queue = m_queues[name];
    if (queue.messages.empty())
        return std::string();
    const std::string message = queue.messages.front();
    queue.messages.pop_front();
    m_changed.notify_all();
    return message;
}

std::vector<std::string> QueueBoard::messages(const std::string& name) const {
    std::lock_guard lock(m_mutex);
    const auto found = m_queues.find(name);
    if (found == m_queues.end())
        return {};
    return {found->second.messages.begin(), found->second.messages.end()};
}

bool QueueBoard::held(const std::string& name) const {
    std::lock_guard lock(m_mutex);
    const auto found = m_queues.find(name);
    return found != m_queues.end() && found->second.held;
}

void QueueBoard::noteReceives(bool on) {
    std::lock_guard lock(m_mutex);
    m_noteReceives = on;
}

}  // namespace fakehost
