#include "Story.h"

#include <algorithm>
#include <sstream>

namespace mfd::testing {

void Story::addState(const std::string& id, const std::string& value) {
    {
        std::lock_guard lock(m_mutex);
        m_states[id] = value;
    }
    add("state " + id + " = " + value);
}

void Story::addUnset(const std::string& id) {
    {
        std::lock_guard lock(m_mutex);
        m_states[id] = std::nullopt;
    }
    add("state " + id + " unset");
}

void Story::addEvent(const std::string& id, const std::string& text) {
    add("event " + id + (text.empty() ? "" : " " + text));
}

void Story::addFid(const std::string& kind, const std::string& fid, const FIDParameterList& parameters) {
    std::ostringstream text;
    text << kind << " " << fid;
    if (!parameters.empty())
        text << " " << parameters;
    add(text.str());
}

void Story::add(const std::string& line) {
    std::lock_guard lock(m_mutex);
    m_lines.push_back(line);
    ++m_changes;
    m_changed.notify_all();
}

std::vector<std::string> Story::lines() const {
    std::lock_guard lock(m_mutex);
    return m_lines;
}

std::string Story::text() const {
    std::string text;
    for (const std::string& line : lines())
        text += "  " + line + "\n";
    return text;
}

std::size_t Story::count(const std::string& line) const {
    std::lock_guard lock(m_mutex);
    return static_cast<std::size_t>(std::count(m_lines.begin(), m_lines.end(), line));
}

std::optional<std::string> Story::state(const std::string& id) const {
    std::lock_guard lock(m_mutex);
    const auto found = m_states.find(id);
    return found == m_states.end() ? std::nullopt : found->second;
}

bool Story::hasReported(const std::string& id) const {
    std::lock_guard lock(m_mutex);
    return m_states.contains(id);
}

bool Story::wait(const std::function<bool()>& condition, std::chrono::milliseconds patience) const {
    const auto end = std::chrono::steady_clock::now() + patience;
    while (true) {
        unsigned long seen = 0;
        {
            std::lock_guard lock(m_mutex);
            seen = m_changes;
        }
        if (condition())
            return true;
        std::unique_lock lock(m_mutex);
        if (!m_changed.wait_until(lock, end, [&] { return m_changes != seen; }))
            return false;
    }
}

}  // namespace mfd::testing
