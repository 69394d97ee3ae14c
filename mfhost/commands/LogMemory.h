#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <list>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "sal/LogManager.h"

/// The last lines of the log: the host's own, of which libsal tells, and those of the driver processes; and
/// the last words of each driver. When it is full, the oldest line goes of whoever has the most in it, so
/// that nobody who talks much drives out the others. Owned by Host; any thread, and calls nobody while it is
/// told.
class LogMemory : public sal::LogManager::Observer {
public:
    struct Limits {
        std::size_t lines = 2000;
        std::size_t linesOfADriver = 200;  ///< and of each output but the host's and the module's
        std::size_t lineLength = 8u << 10;
        std::size_t drivers = 1000;  ///< whose last words are kept
    };
    struct Line {
        std::chrono::system_clock::time_point time;
        int level = sal::LogOutput::eInfo;
        std::string output;
        std::string driver;  ///< of which it tells; empty for none
        std::string text;
        std::uint64_t number = 0;  ///< counts all lines from 1 on
    };
    struct Query {
        std::string driver = {};                          ///< only what tells of it; empty for all
        int level = sal::LogOutput::eTrace;               ///< only lines up to this level
        std::size_t most = static_cast<std::size_t>(-1);  ///< only so many, the last ones
        std::uint64_t after = 0;                          ///< only lines that came after that number
    };
    /// The IDs of all drivers. Called for a query, on its thread.
    using DriverIDs = std::function<std::set<std::string>()>;

    explicit LogMemory(DriverIDs driverIDs);
    LogMemory(DriverIDs driverIDs, const Limits& limits);

    void line(const std::string& output, int level, const std::string& text) override;
    /// A line of a driver process, or of the host about one.
    void add(const std::string& driverID, const sal::LogManager::Line& line);
    /// What the driver's process has written last before its end, besides its log.
    void setLastWords(const std::string& driverID, std::vector<std::string> words);

    /// Those that are asked for, the oldest first.
    std::vector<Line> lines(const Query& query) const;
    /// Of the driver's last process that has ended; empty where it had none to say.
    std::vector<std::string> lastWords(const std::string& driverID) const;

private:
    using Lines = std::list<Line>;

    void take(const std::string& owner, Line line);
    bool hasNothingAfter(std::uint64_t number) const;
    void forgetOldestOf(std::map<std::string, std::deque<Lines::iterator>>::iterator owner);

    const DriverIDs m_driverIDs;
    const Limits m_limits;
    mutable std::mutex m_mutex;
    Lines m_lines;  ///< as they came
    std::uint64_t m_lastLine = 0;
    std::map<std::string, std::deque<Lines::iterator>> m_owners;
    std::map<std::string, std::vector<std::string>> m_lastWords;
};
