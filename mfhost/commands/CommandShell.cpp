#include "CommandShell.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <future>
#include <iostream>
#include <memory>
#include <sstream>
#include <thread>
#include <utility>

#include "Console.h"
#include "FidTap.h"
#include "FidWatch.h"
#include "HostLog.h"
#include "Printable.h"
#include "Words.h"
#include "sal/MessageQueue.h"

namespace {

/// How long a terminal waits for a command before it offers the next prompt.
constexpr std::chrono::seconds s_promptDelay{2};
/// An output that is closed for good is not worth a line for each command.
constexpr std::chrono::minutes s_outputComplaintInterval{1};
/// How long a driver must have held the command thread up before a script's lines overtake it.
constexpr std::chrono::seconds s_scriptPatience{5};

/// Of the command that the thread executes: the command thread or, while that is held up, the console's.
thread_local std::ostream* t_pReply = nullptr;

/// What comes after the line that says what is wrong; nothing where nothing is meant.
std::string didYouMean(const std::vector<std::string>& names) {
    std::string text;
    for (std::size_t i = 0; i < names.size(); ++i)
        text += (i == 0 ? "; did you mean " : i + 1 == names.size() ? " or " : ", ") + base::quoted(names[i]);
    return text.empty() ? text : text + "?";
}

}  // namespace

CommandShell::CommandShell(Context context)
    : m_context(std::move(context)),
      m_hostCommands(
          {.store = m_context.store,
           .drivers = m_context.drivers,
           .reply = []() -> std::ostream& { return *t_pReply; },
           .quit = m_context.quit,
           .showModules = m_context.showModules,
           .settle = [this] { settle(); },
           .lookForEnds = m_context.lookForEnds,
           .park = [this](const auto& driverID) { return m_context.workplace.park(driverID); },
           .unpark = [this](const auto& driverID) { return m_context.workplace.unpark(driverID); }}),
      m_planCommands(
          {.reply = []() -> std::ostream& { return *t_pReply; },
           .who = [this] { return std::string(m_origin == EOrigin::Driver ? "a driver" : "console"); },
           .plan = [this] { return m_context.workplace.plan(); },
           .apply = [this](const auto& plan,
                           const auto& who) { return m_context.workplace.apply(plan, who); },
           .undo = [this](unsigned number, const auto& who) { return m_context.workplace.undo(number, who); },
           .history = [this] { return m_context.workplace.history(); },
           .state = [this](unsigned number,
                           auto& error) { return m_context.workplace.historyState(number, error); }}),
      m_completion(m_context.drivers, m_context.store) {}

void CommandShell::begin() {
    m_hostCommands.registerCommands();
    m_planCommands.registerCommands();
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

bool CommandShell::postDriverCommand(const std::string& line) {
    return m_context.commands.post(line, [this, line] { execute(line, EOrigin::Driver); });
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
    if (!m_isStartOver && base::splitWords(line).words == std::vector<std::string>{"quit"}) {
        // As at the end of the input, the drivers that are being started are not held to the shutdown's time.
        hostLog(sal::LogOutput::eInfo) << "shutting down: quit" << std::endl;
        m_context.commands.stopAfterCurrent();
        return;
    }
    m_isStartOver.wait(false);
    // A script's lines keep their order for as long as there is one.
    if (mayAnswerMeanwhile(line) && isHeldUpByDriver()) {
        answerMeanwhile(line);
        return;
    }
    m_context.commands.postWaiting(line, [this, line] { execute(line, EOrigin::Console); });
}

/// Whether the command needs the command thread for nothing: it looks at stores of which each has its lock.
bool CommandShell::mayAnswerMeanwhile(const std::string& line) const {
    const std::vector<std::string> words = base::splitWords(line).words;
    return m_isOpen && !words.empty() && HostCommands::isAnsweredAnywhere(words);
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

/// On the console thread, while the command thread is inside another command.
void CommandShell::answerMeanwhile(const std::string& line) {
    std::ostringstream reply;
    const CommandActivity activity = m_context.commands.activity();
    if (activity.busy)
        reply << "\"" << base::printable(activity.what)
              << "\" has not come back yet; meanwhile:" << std::endl;
    t_pReply = &reply;
    m_hostCommands.answer(base::splitWords(line).words);
    t_pReply = nullptr;
    std::cout << reply.str() << std::flush;
}

void CommandShell::execute(const std::string& line, EOrigin origin) {
    const FidTap::WatchedThread watched;
    std::ostringstream driverReply;
    std::ostream& reply = origin == EOrigin::Console ? std::cout : driverReply;
    t_pReply = &reply;
    m_origin = origin;
    executeChecked(line, reply);
    t_pReply = nullptr;
    reply << std::flush;
    std::istringstream lines(driverReply.str());
    for (std::string text; std::getline(lines, text);)
        hostLog(sal::LogOutput::eInfo) << "a driver's command \"" << line << "\": " << text << std::endl;
}

std::string CommandShell::executeFor(const std::string& line) {
    const FidTap::WatchedThread watched;
    std::ostringstream reply;
    t_pReply = &reply;
    m_origin = EOrigin::Console;
    executeChecked(line, reply);
    t_pReply = nullptr;
    return reply.str();
}

void CommandShell::executeChecked(const std::string& line, std::ostream& reply) {
    const std::vector<std::string> words = base::splitWords(line).words;
    if (!m_isOpen)
        return;
    const std::string command = words.empty() ? std::string() : words.front();
    if (command == "reloadDriver" && words.size() > 1 && words[1] != "--help") {
        reload(line, words[1], reply);
        return;
    }
    if (command == "sendFID" && words.size() > 1 && words[1] != "--help") {
        sendFid(line, FidLine(words), reply);
        return;
    }
    // Without an ID there is nothing to reload, only the command's use to tell.
    if (command == "reloadDriver") {
        m_processor.help(command, reply);
        return;
    }
    std::optional<StateStore::ConsoleMark> mark;
    if (HostCommands::setsState(command))
        mark.emplace();
    m_processor.execute(line, reply);
}

/// The module's own command does not say what it sends, nor what becomes of it.
void CommandShell::sendFid(const std::string& line, const FidLine& sent, std::ostream& reply) {
    const FidWatch watch(m_context.drivers, sent.fid, sent.parameters);
    m_processor.execute(line, reply);
    if (sent.hasStrayWord)
        reply << "sent " << sent.text() << "; a value with blanks stands in quotes" << std::endl;
    const FidOutcome outcome = watch.outcome();
    if (outcome.reason == EFidReason::None)
        return;
    reply << base::quoted(sent.fid)
          << (outcome.stage == EFidStage::Nobody    ? " has reached nobody: "
              : outcome.stage == EFidStage::Written ? " has not reached its driver whole: "
                                                    : ": ")
          << base::printable(outcome.text) << didYouMean(outcome.nearest) << std::endl;
}

void CommandShell::reload(const std::string& line, const std::string& driverID, std::ostream& reply) {
    // The module's own command, with its own words.
    const std::string reason =
        m_context.workplace.reload(driverID, [&] { m_processor.execute(line, reply); });
    if (!reason.empty())
        reply << base::printable(driverID + " is not reloaded, nothing is unloaded: " + reason) << std::endl;
}

/// A script cannot look again as an operator at a terminal can: it waits until no driver has messages left
/// and nothing has arrived for a moment, a second at most.
void CommandShell::settle() const {
    using Clock = std::chrono::steady_clock;
    if (Console::isInteractive())
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
