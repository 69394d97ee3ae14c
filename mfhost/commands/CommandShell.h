#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "AlarmList.h"
#include "CommandThread.h"
#include "Completion.h"
#include "DriverTable.h"
#include "FidLine.h"
#include "FidMemory.h"
#include "FidOutcome.h"
#include "FidTrail.h"
#include "HostCommands.h"
#include "LogCommands.h"
#include "Observation.h"
#include "PlanCommands.h"
#include "StateStore.h"
#include "Workplace.h"
#include "sal/CmdProcessor.h"

/// Executes command lines, of the console and of drivers, on the command thread: the host's own commands and
/// those that the module registers. Owned by Host; outlives the manager.
class CommandShell {
public:
    struct Context {
        CommandThread& commands;
        StateStore& store;
        const DriverTable& drivers;
        Workplace& workplace;
        AlarmList& alarms;
        const LogMemory& log;
        /// Tells the table of drivers and the store of processes that have ended by now.
        std::function<void()> lookForEnds;
        std::function<void()> quit;
        std::function<void()> showModules;
        std::function<void(const std::string& glob)> follow = [](const auto&) {};
        std::function<bool()> unfollow = [] { return false; };
        /// What became of a FID that was sent by a line. driverID is empty where the FID names none.
        std::function<void(const std::string& driverID, const FidOutcome& outcome)> fidSent =
            [](const auto&, const auto&) {};
        /// How long a script or a driver waits for room in the input queue of a driver process that the host
        /// has not started, and that takes nothing.
        std::chrono::milliseconds queuePatience{3000};
    };

    explicit CommandShell(Context context);
    CommandShell(const CommandShell&) = delete;
    CommandShell& operator=(const CommandShell&) = delete;

    /// Registers the host's commands, once the module has registered its own. Command thread.
    void begin();
    /// Lines are executed from here on.
    void open() { m_isOpen = true; }
    /// The start is over, even if it failed: scripts go on. Any thread.
    void endStart();

    /// A line of the console, on its thread. At a terminal returns when it was executed, or after a while; a
    /// script's lines wait for the end of the start.
    void readLine(const std::string& line);
    /// A line of a script was too long to be read. Console thread.
    void skipLine();
    /// The console's input has ended: stops the host when all is done.
    void endInput();
    struct Executed {
        std::string output;   ///< what is printed for the line
        bool isDone = false;  ///< it has done what it was to do
    };
    /// Executes a line as the console's, for a client at another terminal, whose columns tables fit into; 0:
    /// it has none. Command thread.
    Executed executeFor(const std::string& line, std::size_t columns);
    /// The same for a line that only looks, where the command thread is held up by another one; nothing for
    /// others, and where that thread can be waited for. Any thread.
    std::optional<Executed> executeMeanwhile(const std::string& line, std::size_t columns);
    /// Where commands and FIDs are recorded, before the first command; none by default.
    void setStream(Observation* pObservation, FidTrail* pTrail) {
        m_pObservation = pObservation;
        m_pTrail = pTrail;
    }
    /// A command of that driver; false when there is no room for it. Any thread.
    bool postDriverCommand(const std::string& line, const std::string& driverID = {});
    /// The words that begin with the prefix and may follow these. Any thread.
    std::vector<std::string> complete(const std::vector<std::string>& before,
                                      const std::string& prefix) const {
        return m_completion.words(before, prefix);
    }

    /// Learns from a line of the log which FIDs there are. Any thread.
    void learn(const std::string& logLine) { m_fids.learn(logLine); }
    /// Learns from what became of a FID that there is one. Any thread.
    void learn(const std::string& fid, const FidOutcome& outcome);

    /// Whether a line of a script has failed: a command that there is not, or that was refused. Each is in
    /// the log then, with its number. Once the command thread has ended.
    bool sayFailedLines() const;

    /// Has a standard output that could not be written tried again. Command thread.
    void recoverOutput();

private:
    enum class EOrigin { Console, Remote, Driver };
    /// Of the lines of one sender, for room in a driver's input queue.
    struct Wait {
        std::string driverID;
        CommandThread::Clock::time_point made;  ///< the queue
        std::uint32_t received = 0;             ///< messages that the driver has taken
        CommandThread::Clock::time_point since;
    };

    void readTerminalLine(const std::string& line);
    void readScriptLine(const std::string& line);
    bool mayAnswerMeanwhile(const std::string& line) const;
    bool isHeldUp(std::chrono::milliseconds limit) const;
    bool isHeldUpByDriver() const;
    bool answerMeanwhile(const std::string& line);
    Executed answerMeanwhile(const std::string& line, base::Table::Look look, bool waitsForReports);
    bool execute(const std::string& line, EOrigin origin, const std::string& driverID = {});
    bool execute(const std::string& line, EOrigin origin, const std::string& driverID, std::ostream& reply,
                 base::Table::Look look);
    Observation::Asker asker() const;
    void executeChecked(const std::string& line, std::ostream& reply);
    std::optional<CommandThread::Hold> fullQueueFor(const std::string& line, const std::string& lane);
    std::string queueFault(const std::string& driverID) const;
    void sendFid(const std::string& line, const FidLine& sent, std::ostream& reply);
    void reload(const std::string& line, const std::string& driverID, std::ostream& reply);
    bool hintAt(const std::string& word, std::ostream& reply);
    void noteFailure(std::size_t number, const std::string& line);
    void settle() const;
    std::vector<std::string> driverIDs() const;

    const Context m_context;
    sal::CmdProcessor m_processor;
    EOrigin m_origin = EOrigin::Console;  ///< of the running command
    std::string m_driverID;               ///< whose it is, where it is a driver's
    std::map<std::string, Wait> m_waits;  ///< by lane; the command thread's own
    Observation* m_pObservation = nullptr;
    FidTrail* m_pTrail = nullptr;
    HostCommands m_hostCommands;
    PlanCommands m_planCommands;
    FidMemory m_fids;
    LogCommands m_logCommands;
    Completion m_completion;

    std::size_t m_lineNumber = 0;  ///< of a script; the console's thread's own
    mutable std::mutex m_failedMutex;
    std::vector<std::string> m_failedLines;  ///< the first ones
    std::size_t m_failures = 0;

    std::optional<std::chrono::steady_clock::time_point> m_outputLost;  ///< when it was last said
    std::atomic<bool> m_isOpen = false;
    std::atomic<bool> m_isStartOver = false;
};
