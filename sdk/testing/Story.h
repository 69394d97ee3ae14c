#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "FIDParameterList.h"

namespace mfd::testing {

/// What happened between a driver and its test, line by line, and what its states are. Owned by the
/// workplace; written by any thread, read by the test's.
class Story {
public:
    void addState(const std::string& id, const std::string& value);
    void addUnset(const std::string& id);
    void addEvent(const std::string& id, const std::string& text);
    void addFid(const std::string& kind, const std::string& fid, const FIDParameterList& parameters);
    void add(const std::string& line);

    std::vector<std::string> lines() const;
    std::string text() const;
    std::size_t count(const std::string& line) const;
    std::optional<std::string> state(const std::string& id) const;
    bool hasReported(const std::string& id) const;

    /// Waits until the condition, which asks this story, holds. False when the time is over.
    bool wait(const std::function<bool()>& condition, std::chrono::milliseconds patience) const;

private:
    mutable std::mutex m_mutex;
    mutable std::condition_variable m_changed;
    std::vector<std::string> m_lines;
    std::map<std::string, std::optional<std::string>> m_states;
    unsigned long m_changes = 0;
};

}  // namespace mfd::testing
