#pragma once

#include <chrono>
#include <cstddef>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "UniqueFd.h"
#include "sal/CrashNote.h"
#include "sal/LogManager.h"

/// What one driver process writes to its standard error, line by line: the lines of its log as it has logged
/// them, and all else (an assertion, a sanitizer's report, what the driver itself prints) as lines with the
/// driver ID. Within bounds, whatever the process writes. Owned by DriverErrors, under the lock of its entry.
class ErrorStream {
public:
    using Clock = std::chrono::steady_clock;

    struct Limits {
        std::size_t lineLength = 64u << 10;  ///< what is beyond is cut off
        /// Lines in a second; one of more than a kilobyte counts as several. What is beyond is left out and
        /// counted.
        std::size_t lines = 2000;
        std::size_t lastWords = 10;
        std::size_t lastWordLength = 8u << 10;
    };
    /// A line for the log. isBare: the process has not logged it.
    using Sink =
        std::function<void(const std::string& driverID, const sal::LogManager::Line& line, bool isBare)>;

    ErrorStream(std::string driverID, base::UniqueFd pipe, const Limits& limits, const Sink& sink);

    const std::string& driverID() const { return m_driverID; }
    int fd() const { return m_pipe.get(); }
    /// Reads what there is, about so many bytes at most. False when no process has the other end any more.
    bool read(std::size_t most);
    /// Passes on a line that was begun but not ended, and the count of those that were left out.
    void finish();

    /// Whether lines are left out that are to be told of by tell().
    bool hasLeftOut() const { return m_leftOut > 0; }
    /// Tells of lines that were left out, once their second is over.
    void tell();

    /// The last of what the process has not logged.
    std::vector<std::string> lastWords() const;
    /// On which thread it dies, when it has said so since the last call.
    std::optional<sal::CrashNote::Crash> takeCrash() { return std::exchange(m_crash, std::nullopt); }
    /// Why it could not load its module, as it has logged it; empty when it has not.
    const std::string& loadFault() const { return m_loadFault; }

private:
    void take(std::string_view bytes);
    void endLine();
    void takeLogged(const sal::LogManager::Line& line);
    void takeBare(std::string_view text);
    bool hasRoomFor(std::size_t length);
    void tellLeftOut();

    const std::string m_driverID;
    const base::UniqueFd m_pipe;
    const Limits m_limits;
    const Sink m_sink;

    std::string m_begun;  ///< a line without its end
    bool m_isCut = false;
    Clock::time_point m_secondBegan;
    std::size_t m_inSecond = 0;
    std::size_t m_leftOut = 0;
    std::deque<std::string> m_lastWords;
    std::string m_loadFault;
    std::optional<sal::CrashNote::Crash> m_crash;
};
