#pragma once

#include <sys/types.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "Patience.h"

/// Reads what hosts write, and knows from it what they have noticed, which drivers have answered, and which
/// events and values have been shown. Owned by Chaos, outlives each host. Fed by the host's readers; any
/// thread may ask and wait.
class Watcher {
public:
    using Clock = std::chrono::steady_clock;

    /// A value that the command "state" has listed.
    struct Row {
        std::string driverID;
        std::string name;
        std::uint32_t instance = 0;  ///< of the talker that reported it; 0 for an answer
        std::uint32_t number = 0;
        bool isLive = false;
    };
    struct Reply {
        std::uint32_t mark = 0;
        Clock::time_point when;
        std::vector<Row> rows;
    };
    /// What was to be seen of the events of one instance.
    struct Events {
        std::uint32_t next = 0;  ///< expected
        std::uint64_t seen = 0;
        std::uint64_t missing = 0;
        std::uint64_t disordered = 0;
    };

    using EventsByInstance = std::map<std::uint32_t, Events>;
    /// Of one host.
    struct Life {
        std::int64_t begun = 0;
        /// The latest moment at which an event that it has printed was triggered: what came to the follower
        /// before that moment it has printed as well.
        std::int64_t horizon = 0;
    };
    /// How the lines begin, after the process's number, that the host may write on a driver's processes.
    using Verdicts = std::vector<std::string>;

    void output(const std::string& line);
    void log(const std::string& line);

    /// A new host begins; before any of its output.
    void hostBegins();
    /// Whoever waits for something of the host waits in vain.
    void hostEnds();
    bool isHostGone() const;
    /// It has started its drivers and reads its console.
    bool isHostStarted() const;

    /// Waits until the condition, which is asked under the lock, holds. False when the host has ended or the
    /// time is over.
    template <class Condition>
    bool wait(std::chrono::milliseconds patience, Condition condition) {
        Patience left(patience);
        std::unique_lock lock(m_mutex);
        while (!m_isHostGone && !condition()) {
            if (left.isOver())
                return false;
            m_changed.wait_for(lock, std::min(left.left(), std::chrono::milliseconds(200)));
        }
        return !m_isHostGone;
    }

    /// Another process of that number may have ended long ago.
    void forgetNotice(pid_t pid);
    /// When the host said that this process has ended or hangs.
    std::optional<Clock::time_point> waitForNotice(pid_t pid, std::chrono::milliseconds patience);
    /// How many ends of processes of the driver the host has told of.
    unsigned int endsOf(const std::string& driverID) const;
    bool waitForEnds(const std::string& driverID, unsigned int count, std::chrono::milliseconds patience);

    /// A number that no other ping has.
    std::uint32_t nextPing();
    /// When the driver answered this ping or a later one.
    std::optional<Clock::time_point> waitForAnswer(const std::string& driverID, std::uint32_t ping,
                                                   std::chrono::milliseconds patience);
    /// How often the host has said that the driver is parked now.
    std::uint32_t timesParked(const std::string& driverID) const;
    /// The last ping that it has answered; 0 for none.
    std::uint32_t lastAnswer(const std::string& driverID) const;
    /// How often its values have become stale.
    std::uint32_t timesStale(const std::string& driverID) const;
    /// The highest number of an instance of that talker whose value was shown.
    std::uint32_t lastInstance(const std::string& driverID) const;

    /// What comes from here on counts for waitForText().
    std::uint64_t position() const;
    std::optional<Clock::time_point> waitForText(const std::string& text, std::uint64_t since,
                                                 std::chrono::milliseconds patience);

    /// The last line that begins so; nothing when none comes in time.
    std::optional<std::string> lineThatBegins(const std::string& begin, std::uint64_t since,
                                              std::chrono::milliseconds patience);

    /// What was listed before the unknown command "markN".
    std::optional<Reply> waitForReply(std::uint32_t mark, std::chrono::milliseconds patience);

    /// From now on the host may say this of the driver's processes, and nothing else. Of one of which
    /// nothing is expected it may only say that it has ended as it was asked to.
    void expect(const std::string& driverID, const Verdicts& verdicts);
    void expectNothing(const std::string& driverID);
    /// A reload of the driver is asked for: once the host may say that a process of it made room in order,
    /// whatever else is expected by then.
    void expectReload(const std::string& driverID);
    /// As long as it lives the host may say this, too, of each driver of which something is expected: what
    /// befalls all ends one that comes up at that moment after a fault of its own. Not of the processes that
    /// it leaves alone. The watcher outlives it.
    class OfAll {
    public:
        OfAll(Watcher& watcher, std::string verdict, std::set<pid_t> unharmed = {});
        ~OfAll();
        OfAll(const OfAll&) = delete;
        OfAll& operator=(const OfAll&) = delete;

    private:
        friend class Watcher;
        Watcher& m_watcher;
        const std::string m_verdict;
        const std::set<pid_t> m_unharmed;
    };

    EventsByInstance events() const;
    std::vector<Life> lives() const;
    /// Values of instances that had ended that were printed as live after the line that said so.
    std::vector<std::string> deadShownLive() const;
    /// Lines on processes that nobody had harmed.
    std::vector<std::string> unexpectedEnds() const;
    /// Lines on processes that were harmed, in another way than the line says.
    std::vector<std::string> falseVerdicts() const;
    /// How many lines of at least a warning the host has written on its own or its queues' behalf.
    std::uint64_t warnings() const;
    std::vector<std::string> sanitizerReports() const;
    std::uint64_t droppedLines() const;

private:
    struct Line {
        std::uint64_t position;
        Clock::time_point when;
        std::string text;
    };

    void keep(const std::string& line);
    template <class IsMeant>
    std::optional<Line> waitForKept(IsMeant isMeant, std::uint64_t since, std::chrono::milliseconds patience);
    static std::optional<Clock::time_point> timeOf(const std::optional<Line>& line) {
        return line ? std::optional(line->when) : std::nullopt;
    }
    bool parse(const std::string& text);
    bool parseEvent(const std::string& text);
    bool parseValue(const std::string& text);
    bool parseStale(const std::string& text);
    bool parseMark(const std::string& text);
    bool parseRow(const std::string& text);
    void countEvent(std::uint32_t instance, std::uint32_t number, std::int64_t triggered);
    void judgeVerdict(const std::string& driverID, pid_t pid, const std::string& verdict,
                      const std::string& line);
    void showLive(const std::string& driverID, std::uint32_t instance, std::uint32_t ping,
                  const std::string& text);

    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_isHostGone = true;
    bool m_isHostStarted = false;
    std::uint64_t m_position = 0;
    std::deque<Line> m_lines;

    std::map<pid_t, Clock::time_point> m_notices;
    std::map<std::string, unsigned int> m_ends;
    std::uint32_t m_pings = 0;
    struct Shown {
        std::uint32_t instance = 0;
        std::uint32_t ping = 0;
    };
    std::map<std::string, Shown> m_shown;      ///< the last of each driver
    std::map<std::string, Shown> m_staleUpTo;  ///< what was shown when its values became stale
    std::map<std::string, std::uint32_t> m_timesStale;
    std::map<std::string, std::uint32_t> m_timesParked;
    std::map<std::string, Clock::time_point> m_answers;
    std::vector<Row> m_rows;
    Reply m_reply;

    std::map<std::string, Verdicts> m_expected;
    std::set<const OfAll*> m_expectedOfAll;
    std::vector<Life> m_lives;
    EventsByInstance m_events;
    std::vector<std::string> m_deadShownLive;
    std::map<std::string, unsigned int> m_reloads;  ///< by driver: asked for, and nothing replaced yet
    std::set<pid_t> m_rightlyEnded;                 ///< of which the host has said so, and was right
    std::vector<std::string> m_unexpected;
    std::vector<std::string> m_false;
    std::uint64_t m_warnings = 0;
    std::vector<std::string> m_sanitizer;
    std::uint64_t m_dropped = 0;
};
