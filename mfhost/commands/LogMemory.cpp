#include "LogMemory.h"

#include <algorithm>
#include <utility>

namespace {

/// The outputs that tell of everything, and may fill the memory.
bool isGeneral(const std::string& output) {
    return output == "HOST" || output == "MDM";
}

/// Of which driver the line tells. One in the host's process logs under its ID, and the host puts the ID
/// before what it says of one.
std::string driverOf(const LogMemory::Line& line, const std::set<std::string>& driverIDs) {
    if (!line.driver.empty())
        return line.driver;
    if (driverIDs.contains(line.output))
        return line.output;
    const std::string first = line.text.substr(0, line.text.find(": "));
    return first.size() < line.text.size() && driverIDs.contains(first) ? first : std::string();
}

}  // namespace

LogMemory::LogMemory(DriverIDs driverIDs) : LogMemory(std::move(driverIDs), Limits()) {}

LogMemory::LogMemory(DriverIDs driverIDs, const Limits& limits)
    : m_driverIDs(std::move(driverIDs)), m_limits(limits) {}

void LogMemory::line(const std::string& output, int level, const std::string& text) {
    take(output, {std::chrono::system_clock::now(), level, output, {}, text});
}

void LogMemory::add(const std::string& driverID, const sal::LogManager::Line& line) {
    take(driverID, {line.time, line.level, line.output, driverID, line.text});
}

void LogMemory::take(const std::string& owner, Line line) {
    if (line.text.size() > m_limits.lineLength) {
        line.text.resize(m_limits.lineLength);
        line.text += " ...";
    }
    const std::lock_guard lock(m_mutex);
    line.number = ++m_lastLine;
    m_lines.push_back(std::move(line));
    const auto own = m_owners.try_emplace(owner).first;
    own->second.push_back(std::prev(m_lines.end()));
    if (!isGeneral(owner) && own->second.size() > m_limits.linesOfADriver)
        forgetOldestOf(own);
    if (m_lines.size() > m_limits.lines)
        forgetOldestOf(std::max_element(
            m_owners.begin(), m_owners.end(),
            [](const auto& one, const auto& other) { return one.second.size() < other.second.size(); }));
}

void LogMemory::forgetOldestOf(std::map<std::string, std::deque<Lines::iterator>>::iterator owner) {
    m_lines.erase(owner->second.front());
    owner->second.pop_front();
    if (owner->second.empty())
        m_owners.erase(owner);
}

void LogMemory::setLastWords(const std::string& driverID, std::vector<std::string> words) {
    const std::lock_guard lock(m_mutex);
    if (m_lastWords.size() < m_limits.drivers || m_lastWords.contains(driverID))
        m_lastWords[driverID] = std::move(words);
}

bool LogMemory::hasNothingAfter(std::uint64_t number) const {
    const std::lock_guard lock(m_mutex);
    return m_lastLine <= number;
}

std::vector<LogMemory::Line> LogMemory::lines(const Query& query) const {
    if (hasNothingAfter(query.after))
        return {};
    // Threads that log with a driver's lock held wait for this object's.
    const std::set<std::string> driverIDs = m_driverIDs();
    std::vector<Line> found;
    {
        const std::lock_guard lock(m_mutex);
        for (auto line = m_lines.rbegin(); line != m_lines.rend() && found.size() < query.most; ++line) {
            if (line->number <= query.after)
                break;
            std::string driver = driverOf(*line, driverIDs);
            if (line->level > query.level || (!query.driver.empty() && driver != query.driver))
                continue;
            found.push_back(*line);
            found.back().driver = std::move(driver);
        }
    }
    std::reverse(found.begin(), found.end());
    return found;
}

std::vector<std::string> LogMemory::lastWords(const std::string& driverID) const {
    const std::lock_guard lock(m_mutex);
    const auto found = m_lastWords.find(driverID);
    return found == m_lastWords.end() ? std::vector<std::string>() : found->second;
}
