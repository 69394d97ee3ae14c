#pragma once

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

#include "HangGuard.h"

/// Calls in the order in which they came, one line each. Any thread writes and waits.
class CallLog {
public:
    void add(const std::string& line) {
        std::lock_guard lock(m_mutex);
        m_lines.push_back(line);
        m_changed.notify_all();
    }

    std::vector<std::string> lines() const {
        std::lock_guard lock(m_mutex);
        return m_lines;
    }

    std::vector<std::string> linesOf(const std::string& beginning) const {
        std::lock_guard lock(m_mutex);
        std::vector<std::string> found;
        std::copy_if(m_lines.begin(), m_lines.end(), std::back_inserter(found),
                     [&](const std::string& line) { return line.starts_with(beginning); });
        return found;
    }

    int count(const std::string& line) const {
        std::lock_guard lock(m_mutex);
        return countLocked(line);
    }

    /// Waits until the line has come that many times in all. False when it has not before the hang guard.
    bool waitFor(const std::string& line, int times = 1) const {
        std::unique_lock lock(m_mutex);
        return m_changed.wait_for(lock, c_hangGuard, [&] { return countLocked(line) >= times; });
    }

private:
    int countLocked(const std::string& line) const {
        return static_cast<int>(std::count(m_lines.begin(), m_lines.end(), line));
    }

    mutable std::mutex m_mutex;
    mutable std::condition_variable m_changed;
    std::vector<std::string> m_lines;
};
