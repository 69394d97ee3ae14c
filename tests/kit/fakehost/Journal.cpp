#include "Journal.h"

#include <algorithm>
#include <new>

#include "HangGuard.h"

namespace fakehost {

Journal& Journal::instance() {
    static Journal s_journal;
    return s_journal;
}

void Journal::reset() {
    std::lock_guard lock(m_mutex);
    m_lines.clear();
    m_failures.clear();
    m_observer = nullptr;
    m_counted = {};
    m_calls.clear();
    m_failingCall = -1;
}

void Journal::clear() {
    std::lock_guard lock(m_mutex);
    m_lines.clear();
}

void Journal::note(const std::string& line) {
    std::lock_guard lock(m_mutex);
    if (m_observer) {
        for (std::string& observed : m_observer())
            m_lines.push_back(std::move(observed));
    }
    m_lines.push_back(line);
    m_changed.notify_all();
}

bool Journal::perform(const std::string& line) {
    note(line);
    return permit(line);
}

bool Journal::permit(const std::string& line) {
    std::lock_guard lock(m_mutex);
    if (m_counted == std::this_thread::get_id()) {
        m_calls.push_back(line);
        if (m_failingCall == static_cast<int>(m_calls.size()) - 1) {
            if (m_failure == EFailure::Throws)
                throw std::bad_alloc();
            return false;
        }
    }
    for (auto& [pattern, times] : m_failures) {
        if (times == 0 || !begins(line, pattern))
            continue;
        if (times > 0)
            --times;
        return false;
    }
    return true;
}

void Journal::fail(const std::string& pattern, int times) {
    std::lock_guard lock(m_mutex);
    m_failures.emplace_back(pattern, times);
}

void Journal::failCall(int number, EFailure how) {
    std::lock_guard lock(m_mutex);
    m_counted = std::this_thread::get_id();
    m_calls.clear();
    m_failingCall = number;
    m_failure = how;
}

std::vector<std::string> Journal::countedCalls() const {
    std::lock_guard lock(m_mutex);
    return m_calls;
}

std::vector<std::string> Journal::lines() const {
    std::lock_guard lock(m_mutex);
    return m_lines;
}

std::vector<std::string> Journal::linesOf(const std::vector<std::string>& beginnings) const {
    std::lock_guard lock(m_mutex);
    std::vector<std::string> result;
    std::copy_if(m_lines.begin(), m_lines.end(), std::back_inserter(result), [&](const std::string& line) {
        return std::any_of(beginnings.begin(), beginnings.end(),
                           [&](const std::string& beginning) { return begins(line, beginning); });
    });
    return result;
}

int Journal::count(const std::string& line) const {
    std::lock_guard lock(m_mutex);
    return static_cast<int>(std::count(m_lines.begin(), m_lines.end(), line));
}

bool Journal::waitFor(const std::string& line, int times) const {
    std::unique_lock lock(m_mutex);
    return m_changed.wait_for(lock, c_hangGuard,
                              [&] { return std::count(m_lines.begin(), m_lines.end(), line) >= times; });
}

void Journal::setObserver(std::function<std::vector<std::string>()> observer) {
    std::lock_guard lock(m_mutex);
    m_observer = std::move(observer);
}

bool Journal::begins(const std::string& line, const std::string& pattern) {
    return line.starts_with(pattern) && (line.size() == pattern.size() || line[pattern.size()] == ' ');
}

std::string escaped(const std::string& bytes) {
    static const char s_digits[] = "0123456789abcdef";
    std::string result;
    for (unsigned char byte : bytes) {
        if (byte == '\\') {
            result += "\\\\";
        } else if (byte >= 0x20 && byte < 0x7f) {
            result += static_cast<char>(byte);
        } else {
            result += '\\';
            result += s_digits[byte >> 4];
            result += s_digits[byte & 15];
        }
    }
    return result;
}

}  // namespace fakehost
