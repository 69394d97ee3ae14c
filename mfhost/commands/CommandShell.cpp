#include "CommandShell.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <future>
#include <iostream>
#include <memory>
#include <sstream>
#include <thread>
#include <utility>

#include "CommandHints.h"
#include "Console.h"
#include "FIDHelper.h"
#include "FidTap.h"
#include "FidWatch.h"
#include "HostLog.h"
#include "Nearest.h"
#include "Printable.h"
#include "QueueNames.h"
#include "TerminalView.h"
#include "Words.h"
#include "sal/MessageQueue.h"

namespace {

constexpr char s_sendFid[] = "sendFID";
/// How long a terminal waits for a command before it offers the next prompt.
constexpr std::chrono::seconds s_promptDelay{2};
/// An output that is closed for good is not worth a line for each command.
constexpr std::chrono::minutes s_outputComplaintInterval{1};
/// How long a driver must have held the command thread up before a script's lines overtake it.
constexpr std::chrono::seconds s_scriptPatience{5};
/// So many lines that have failed are told, and how many more there were.
constexpr std::size_t s_toldFailures = 20;

/// Places of a driver's queue that an operator's FIDs leave free: what drivers send there meanwhile would
/// have the command thread wait for the driver, without a limit.
constexpr unsigned int s_roomKept = 4;

/// The command that a thread executes: the command thread or, while that is held up, the console's, the API's
/// and that of its limits.
struct Running {
    std::ostream* pReply = nullptr;
    base::Table::Look look = {};  ///< how the reply is shown
    bool hasFailed = false;
    bool waitsForReports = true;  ///< of a script, for what is on its way
};
thread_local Running t_running;

std::ostream& currentReply() {
    return *t_running.pReply;
}

/// The command has not done what it was to do.
void fail() {
    t_running.hasFailed = true;
}

base::Table::Look currentLook() {
    return t_running.look;
}

/// At the host's own console.
base::Table::Look consoleLook() {
    if (!Console::isInteractive())
        return {};
    return {.width = terminalWidth(STDIN_FILENO), .isColoured = hasTerminalColours()};
}

}  // namespace

CommandShell::CommandShell(Context context)
    : m_context(std::move(context)),
      m_hostCommands({.store = m_context.store,
                      .drivers = m_context.drivers,
                      .alarms = m_context.alarms,
                      .reply = &currentReply,
                      .quit = m_context.quit,
                      .showModules = m_context.showModules,
                      .settle = [this] { settle(); },
                      .lookForEnds = m_context.lookForEnds,
                      .park = [this](const auto& driverID) { return m_context.workplace.park(driverID); },
                      .unpark = [this](const auto& driverID) { return m_context.workplace.unpark(driverID); },
                      .look = &currentLook,
                      .refused = &fail,
                      .follow = m_context.follow,
                      .unfollow = m_context.unfollow,
                      .place = [this](const auto& driverID) { return m_context.workplace.place(driverID); }}),
      m_planCommands(
          {.reply = &currentReply,
           .who = [this] { return std::string(m_origin == EOrigin::Driver ? "a driver" : "console"); },
           .plan = [this] { return m_context.workplace.plan(); },
           .apply = [this](const auto& plan,
                           const auto& who) { return m_context.workplace.apply(plan, who); },
           .undo = [this](unsigned number, const auto& who) { return m_context.workplace.undo(number, who); },
           .history = [this] { return m_context.workplace.history(); },
           .state = [this](unsigned number,
                           auto& error) { return m_context.workplace.historyState(number, error); },
           .look = &currentLook,
           .refused = &fail}),
      m_logCommands({.memory = m_context.log,
                     .reply = &currentReply,
                     .driverIDs = [this] { return driverIDs(); },
                     .refused = &fail}),
      m_completion(m_context.drivers, m_context.store, m_fids, m_context.alarms) {}

void CommandShell::begin() {
    m_hostCommands.registerCommands();
    m_planCommands.registerCommands();
    m_logCommands.registerCommands();
    m_completion.begin(m_processor.names());
}

void CommandShell::endStart() {
    m_isStartOver = true;
    m_isStartOver.notify_all();
}

void CommandShell::readLine(const std::string& line) {
    if (Console::isInteractive())
        readTerminalLine(line);
    else
        readScriptLine(line);
}

void CommandShell::endInput() {
    if (!Console::isInteractive())
        m_isStartOver.wait(false);
    m_context.commands.stopWhenDone();
}

bool CommandShell::postDriverCommand(const std::string& line, const std::string& driverID) {
    return m_context.commands.postInLane(
        driverID, line, [this, line, driverID] { execute(line, EOrigin::Driver, driverID); },
        [this, line, driverID] { return fullQueueFor(line, driverID); });
}

void CommandShell::readTerminalLine(const std::string& line) {
    const bool mayOvertake = mayAnswerMeanwhile(line);
    if (mayOvertake && isHeldUp(s_promptDelay)) {
        answerMeanwhile(line);
        return;
    }
    /// The thread that takes it executes the line.
    struct Turn {
        std::atomic<bool> isTaken{false};
        std::promise<void> done;
    };
    // The prompt waits for the reply, but not for a command that takes long.
    auto pTurn = std::make_shared<Turn>();
    auto done = pTurn->done.get_future();
    const bool isPosted = m_context.commands.post(line, [this, line, pTurn] {
        if (pTurn->isTaken.exchange(true))
            return;
        execute(line, EOrigin::Console);
        pTurn->done.set_value();
    });
    if (!isPosted)
        std::cout << "the host is stopping or has too much to do; \"" << base::printable(line)
                  << "\" is ignored" << std::endl;
    else if (done.wait_for(s_promptDelay) != std::future_status::timeout)
        return;
    else if (mayOvertake && !pTurn->isTaken.exchange(true))
        answerMeanwhile(line);
    else
        std::cout << "\"" << base::printable(line) << "\" goes on; its reply comes later" << std::endl;
}

void CommandShell::readScriptLine(const std::string& line) {
    const std::size_t number = ++m_lineNumber;
    if (!m_isStartOver && base::splitWords(line).words == std::vector<std::string>{"quit"}) {
        // As at the end of the input, the drivers that are being started are not held to the shutdown's time.
        hostLog(sal::LogOutput::eInfo) << "shutting down: quit" << std::endl;
        m_context.commands.stopAfterCurrent();
        return;
    }
    m_isStartOver.wait(false);
    // A script's lines keep their order for as long as there is one.
    if (mayAnswerMeanwhile(line) && isHeldUpByDriver()) {
        if (!answerMeanwhile(line))
            noteFailure(number, line);
        return;
    }
    const auto run = [this, line, number] {
        // One that is broken off has failed, too.
        bool isDone = false;
        try {
            isDone = execute(line, EOrigin::Console);
        } catch (...) {
            noteFailure(number, line);
            throw;
        }
        if (!isDone)
            noteFailure(number, line);
    };
    m_context.commands.postInLaneWaiting({}, line, run, [this, line] { return fullQueueFor(line, {}); });
}

/// Whether the command needs the command thread for nothing: it looks at stores of which each has its lock.
bool CommandShell::mayAnswerMeanwhile(const std::string& line) const {
    const std::vector<std::string> words = base::splitWords(line).words;
    return m_isOpen && !words.empty() &&
           (HostCommands::isAnsweredAnywhere(words) || LogCommands::areMeantBy(words));
}

bool CommandShell::isHeldUp(std::chrono::milliseconds limit) const {
    const CommandActivity activity = m_context.commands.activity();
    return activity.busy && CommandThread::Clock::now() - activity.since >= limit;
}

bool CommandShell::isHeldUpByDriver() const {
    const CommandActivity activity = m_context.commands.activity();
    const auto calls = m_context.drivers.innermostCalls();
    return activity.busy && std::any_of(calls.begin(), calls.end(), [&](const DriverTable::Call& call) {
               return call.thread == activity.thread &&
                      DriverTable::Clock::now() - call.since >= s_scriptPatience;
           });
}

/// On the console thread, while the command thread is inside another command. Whether the line has done what
/// it was to do.
bool CommandShell::answerMeanwhile(const std::string& line) {
    const Executed executed = answerMeanwhile(line, consoleLook(), true);
    std::cout << executed.output << std::flush;
    return executed.isDone;
}

std::optional<CommandShell::Executed> CommandShell::executeMeanwhile(const std::string& line,
                                                                     std::size_t columns) {
    if (!mayAnswerMeanwhile(line) || !isHeldUp(s_promptDelay))
        return std::nullopt;
    // Threads of the API wait for nothing.
    return answerMeanwhile(line, {.width = columns}, false);
}

CommandShell::Executed CommandShell::answerMeanwhile(const std::string& line, base::Table::Look look,
                                                     bool waitsForReports) {
    std::ostringstream text;
    const CommandActivity activity = m_context.commands.activity();
    if (activity.busy)
        text << "\"" << base::printable(activity.what) << "\" has not come back yet; meanwhile:" << std::endl;
    t_running = {.pReply = &text, .look = look, .waitsForReports = waitsForReports};
    const std::vector<std::string> words = base::splitWords(line).words;
    if (LogCommands::areMeantBy(words))
        m_logCommands.answer(words);
    else
        m_hostCommands.answer(words);
    const bool isDone = !std::exchange(t_running, {}).hasFailed;
    return {text.str(), isDone};
}

void CommandShell::skipLine() {
    noteFailure(++m_lineNumber, "(too long)");
}

void CommandShell::noteFailure(std::size_t number, const std::string& line) {
    const std::lock_guard lock(m_failedMutex);
    if (++m_failures <= s_toldFailures)
        m_failedLines.push_back("line " + std::to_string(number) + " of the input failed: " + line);
}

bool CommandShell::sayFailedLines() const {
    const std::lock_guard lock(m_failedMutex);
    for (const std::string& line : m_failedLines)
        hostLog(sal::LogOutput::eWarning) << line << std::endl;
    if (m_failures > m_failedLines.size())
        hostLog(sal::LogOutput::eWarning)
            << m_failures - m_failedLines.size() << " more lines of the input failed" << std::endl;
    return m_failures > 0;
}

/// Whether the line has done what it was to do.
bool CommandShell::execute(const std::string& line, EOrigin origin, const std::string& driverID) {
    if (origin == EOrigin::Console)
        return execute(line, origin, {}, std::cout, consoleLook());
    std::ostringstream reply;
    const bool isDone = execute(line, origin, driverID, reply, {});
    std::istringstream lines(reply.str());
    for (std::string text; std::getline(lines, text);)
        hostLog(sal::LogOutput::eInfo) << "a driver's command \"" << line << "\": " << text << std::endl;
    return isDone;
}

CommandShell::Executed CommandShell::executeFor(const std::string& line, std::size_t columns) {
    std::ostringstream reply;
    const bool isDone = execute(line, EOrigin::Remote, {}, reply, {.width = columns});
    return {reply.str(), isDone};
}

bool CommandShell::execute(const std::string& line, EOrigin origin, const std::string& driverID,
                           std::ostream& reply, base::Table::Look look) {
    const FidTap::WatchedThread watched;
    t_running = {.pReply = &reply, .look = look};
    m_origin = origin;
    m_driverID = driverID;
    // An empty line is none.
    const bool isCommand = line.find_first_not_of(" \t") != std::string::npos;
    Observation::Command command(isCommand ? m_pObservation : nullptr, asker(), line);
    executeChecked(line, reply);
    reply << std::flush;
    const bool isDone = !std::exchange(t_running, {}).hasFailed;
    command.setResult(isDone);
    return isDone;
}

Observation::Asker CommandShell::asker() const {
    switch (m_origin) {
        case EOrigin::Console:
            return {.origin = stream::EOrigin::Console};
        case EOrigin::Remote:
            return {.origin = FidTrail::origin(), .who = FidTrail::who()};
        default:
            return {.origin = stream::EOrigin::Driver, .driverID = m_driverID};
    }
}

void CommandShell::executeChecked(const std::string& line, std::ostream& reply) {
    const std::vector<std::string> words = base::splitWords(line).words;
    if (!m_isOpen)
        return;
    const std::string command = words.empty() ? std::string() : words.front();
    const std::string subject = words.size() > 1 ? words[1] : std::string();
    if (hintAt(command, reply) || (command == "help" && hintAt(subject, reply)))
        return;
    if (command == "follow" && m_origin == EOrigin::Remote) {
        reply << "follow prints at the host's own terminal; from here, mfctl state --watch shows each change"
              << std::endl;
        fail();
        return;
    }
    if (command == "reloadDriver" && words.size() > 1 && words[1] != "--help") {
        reload(line, words[1], reply);
        return;
    }
    if (command == s_sendFid && words.size() > 1 && words[1] != "--help") {
        sendFid(line, FidLine(words), reply);
        return;
    }
    // Without an ID there is nothing to reload, only the command's use to tell.
    if (command == "reloadDriver") {
        m_processor.help(command, reply);
        if (subject.empty())
            fail();
        return;
    }
    std::optional<StateStore::ConsoleMark> mark;
    if (HostCommands::setsState(command))
        mark.emplace();
    if (!m_processor.execute(line, reply))
        fail();
}

/// Whether the word is a command of other consoles only, which the reply says.
bool CommandShell::hintAt(const std::string& word, std::ostream& reply) {
    const std::string hint = commandHint(word);
    const auto names = m_processor.names();
    if (hint.empty() || std::find(names.begin(), names.end(), word) != names.end())
        return false;
    reply << hint << std::endl;
    fail();
    return true;
}

/// Which driver the line has to wait for, since its input queue is full; the supervisor ends one that takes
/// nothing. Only operators are refused at once: nobody is there to type a script's lines again, or a
/// driver's.
std::optional<CommandThread::Hold> CommandShell::fullQueueFor(const std::string& line,
                                                              const std::string& lane) {
    if (line.find(s_sendFid) == std::string::npos || !m_isOpen)
        return std::nullopt;
    const std::vector<std::string> words = base::splitWords(line).words;
    if (words.size() < 2 || words.front() != s_sendFid || words[1] == "--help")
        return std::nullopt;
    const std::string driverID = FIDHelper(words[1]).getDriverID();
    const auto level = sal::MessageQueue::level(protocol::inputQueue(driverID));
    const auto driver = m_context.drivers.find(driverID);
    const bool hasProcess = m_context.drivers.hasProcess(driverID);
    if (!level || level->depth < level->capacity || !driver || (hasProcess && !driver->isAlive)) {
        m_waits.erase(lane);
        return std::nullopt;
    }
    const auto now = CommandThread::Clock::now();
    Wait& wait = m_waits[lane];
    if (wait.driverID != driverID || wait.made != level->made || wait.received != level->received)
        wait = {driverID, level->made, level->received, now};
    // A process that is not the host's own has nobody who ends it.
    if (!hasProcess && now - wait.since >= m_context.queuePatience)
        return std::nullopt;
    return CommandThread::Hold{driverID, wait.since, wait.received};
}

/// Why the FID is not sent to the driver; empty where it is. Operators leave room for others. What a script
/// or a driver has come here with has waited for room, for as long as somebody sees to it that there will be
/// some.
std::string CommandShell::queueFault(const std::string& driverID) const {
    const bool isOperator =
        m_origin == EOrigin::Remote || (m_origin == EOrigin::Console && Console::isInteractive());
    const auto level = sal::MessageQueue::level(protocol::inputQueue(driverID));
    if (!level || level->depth + (isOperator ? s_roomKept : 1) <= level->capacity ||
        (!isOperator && m_context.drivers.hasProcess(driverID)))
        return {};
    return "the input queue of " + driverID + " holds " + std::to_string(level->depth) + " of " +
           std::to_string(level->capacity) + " messages";
}

/// The module's own command does not say what it sends, nor what becomes of it.
void CommandShell::sendFid(const std::string& line, const FidLine& sent, std::ostream& reply) {
    if (const std::string fault = queueFault(FIDHelper(sent.fid).getDriverID()); !fault.empty()) {
        FidOutcome refused;
        refused.stage = EFidStage::Nobody;
        refused.reason = EFidReason::QueueFull;
        refused.driverID = FIDHelper(sent.fid).getDriverID();
        m_context.fidSent(refused.driverID, refused);
        fail();
        reply << base::quoted(sent.fid) << " has reached nobody: " << base::printable(fault) << std::endl;
        return;
    }
    const FidTrail::Asking asking(
        asker().origin, m_origin == EOrigin::Remote ? FidTrail::who() : std::string_view(m_driverID));
    const FidTrail::Sending sending(m_pTrail, sent.fid, sent.parameters);
    const FidWatch watch(m_context.drivers, sent.fid, sent.parameters);
    if (!m_processor.execute(line, reply))
        fail();
    if (sent.hasStrayWord)
        reply << "sent " << sent.text() << "; a value with blanks stands in quotes" << std::endl;
    const FidOutcome outcome = watch.outcome();
    m_context.fidSent(outcome.driverID, outcome);
    learn(sent.fid, outcome);
    if (outcome.reason == EFidReason::None)
        return;
    fail();
    reply << base::quoted(sent.fid)
          << (outcome.stage == EFidStage::Nobody    ? " has reached nobody: "
              : outcome.stage == EFidStage::Written ? " has not reached its driver whole: "
                                                    : ": ")
          << base::printable(outcome.text) << base::didYouMeanQuoted(outcome.nearest) << std::endl;
}

void CommandShell::learn(const std::string& fid, const FidOutcome& outcome) {
    // Completion offers what there may be. One that is only accepted may be anything.
    if (outcome.stage != EFidStage::Accepted && outcome.reason != EFidReason::NoSuchDriver &&
        outcome.reason != EFidReason::UnknownFunction)
        m_fids.add(fid);
}

void CommandShell::reload(const std::string& line, const std::string& driverID, std::ostream& reply) {
    // The module's own command, with its own words.
    const std::string reason = m_context.workplace.reload(driverID, [&] {
        if (!m_processor.execute(line, reply))
            fail();
    });
    if (reason.empty())
        return;
    fail();
    reply << base::printable(driverID + " is not reloaded, nothing is unloaded: " + reason) << std::endl;
}

std::vector<std::string> CommandShell::driverIDs() const {
    std::vector<std::string> ids;
    for (const DriverTable::Driver& driver : m_context.drivers.drivers())
        ids.push_back(driver.id);
    return ids;
}

/// A script cannot look again as an operator at a terminal can: it waits until no driver has messages left
/// and nothing has arrived for a moment, a second at most.
void CommandShell::settle() const {
    using Clock = std::chrono::steady_clock;
    if (Console::isInteractive() || !t_running.waitsForReports)
        return;
    constexpr std::chrono::milliseconds quietTime{100};
    const auto limit = Clock::now() + std::chrono::seconds(1);
    auto quietSince = Clock::now();
    for (auto arrivals = m_context.store.arrivals(); Clock::now() < limit;) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        const auto queues = sal::MessageQueue::statuses();
        const bool isAllTaken =
            std::all_of(queues.begin(), queues.end(), [](const auto& queue) { return queue.depth == 0; });
        const auto arrived = m_context.store.arrivals();
        if (!isAllTaken || arrived != std::exchange(arrivals, arrived))
            quietSince = Clock::now();
        else if (Clock::now() - quietSince >= quietTime)
            return;
    }
}

/// A disk that is full for a moment must not silence standard output for good. What was printed meanwhile is
/// lost.
void CommandShell::recoverOutput() {
    if (std::cout && !std::ferror(stdout))
        return;
    std::cout.clear();
    std::clearerr(stdout);
    const auto now = std::chrono::steady_clock::now();
    if (m_outputLost && now - *m_outputLost < s_outputComplaintInterval)
        return;
    m_outputLost.emplace(now);
    hostLog(sal::LogOutput::eWarning)
        << "standard output could not be written; what was printed is lost" << std::endl;
}
