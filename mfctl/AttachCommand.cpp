#include "AttachCommand.h"

#include <unistd.h>

#include <string_view>
#include <utility>

#include "AlarmNotice.h"
#include "ConsoleInput.h"
#include "ControlError.h"
#include "LogText.h"
#include "Printable.h"
#include "TerminalView.h"
#include "Words.h"

namespace {

/// A console line may load a driver, whose start takes its time.
constexpr ApiClient::Milliseconds s_lineLimit{60'000};
/// Who waits for a key does not wait for a host that hangs.
constexpr ApiClient::Milliseconds s_completionLimit{1'000};
/// Nor is a line held up by what stands before it.
constexpr ApiClient::Milliseconds s_noticeLimit{500};
/// Before a host that has not answered is asked again.
constexpr std::chrono::seconds s_silence{5};

constexpr const char* s_detach = "detach";

bool isDetaching(const std::string& line) {
    const auto words = base::splitWords(line).words;
    return words.size() == 1 && (words[0] == s_detach || words[0] == "exit");
}

}  // namespace

EExit AttachCommand::run() {
    const Screen& screen = m_control.screen();
    const ApiClient::Reply host = m_control.client().get("");
    if (host.isError())
        throw ControlError(RemoteControl::errorExit(host), RemoteControl::errorText(host));
    ConsoleInput input(
        [this](const auto& before, const std::string& prefix) { return complete(before, prefix); },
        {.historyFile = HistoryFile::usualPath(),
         .notice = [this] { return notice(); },
         .hasColours = hasTerminalColours(),
         .historyLost =
             [&screen](const std::string& reason) {
                 screen.complain("the console's history is not kept: " + reason);
             }});
    if (input.isInteractive())
        screen.out << base::printable("attached to " + m_control.client().socket() + ", process " +
                                      host.view().text("pid") + ", as " + host.view().text("role"))
                   << "\ndetach or Ctrl-D leaves the host running" << std::endl;

    EExit last = EExit::Done;
    for (unsigned number = 1; const auto line = input.read(); ++number) {
        if (base::splitWords(*line).words.empty() && base::splitWords(*line).error.empty())
            continue;
        if (input.isInteractive() && isDetaching(*line))
            return EExit::Done;
        if (input.isInteractive() && !isMeant(*line))
            continue;
        const EExit exit =
            input.isInteractive()
                ? execute(*line, "", terminalWidth(STDOUT_FILENO))
                : execute(*line, "line " + std::to_string(number) + ", " + base::quoted(*line) + ": ", 0);
        if (exit != EExit::Done)
            last = exit;
        // Nothing that follows can be asked of it.
        if (exit == EExit::NoHost)
            return exit;
    }
    if (input.isInteractive())
        screen.out << std::endl;
    return input.isInteractive() ? EExit::Done : last;
}

/// A word that ends the workplace for everybody is asked for twice, since "quit" leaves other programs.
bool AttachCommand::isMeant(const std::string& line) {
    const auto words = base::splitWords(line).words;
    const bool isEnd = words.size() == 1 && words[0] == "quit";
    if (std::exchange(m_former, isEnd ? "quit" : "") == "quit" || !isEnd)
        return true;
    m_control.screen().out << "quit ends the workplace for everybody: type it again, or detach to leave"
                           << std::endl;
    return false;
}

EExit AttachCommand::execute(const std::string& line, const std::string& place, std::size_t columns) {
    const Screen& screen = m_control.screen();
    ApiClient::Json members = {{"line", line}};
    if (columns > 0)
        members["columns"] = columns;
    m_nextLook = {};
    try {
        const ApiClient::Reply reply = m_control.act("/console", members, s_lineLimit);
        const JsonView executed = reply.view();
        if (!m_control.asJson())
            printLines(executed.text("output"), screen);
        if (!executed.has("done") || executed.flag("done"))
            return EExit::Done;
        // At a terminal it is the line above.
        if (!place.empty())
            screen.complain(place + "has failed");
        return EExit::Failed;
    } catch (const ControlError& error) {
        screen.complain(place + error.what());
        return error.exit();
    }
}

/// Before the prompt, as at the host's own console. What a host that does not answer has said before is not
/// what holds now.
std::string AttachCommand::notice() {
    if (Clock::now() < m_nextLook)
        return m_notice;
    try {
        const ApiClient::Reply health = m_control.client().get("/health", s_noticeLimit);
        m_notice = alarmNotice(static_cast<std::size_t>(health.view().number("alarms")));
    } catch (const ControlError&) {
        m_notice = "no answer";
        m_nextLook = Clock::now() + s_silence;
    }
    return m_notice;
}

std::vector<std::string> AttachCommand::complete(const std::vector<std::string>& before,
                                                 const std::string& prefix) {
    std::string line;
    for (const std::string& word : before)
        line += word.find(' ') == std::string::npos ? word + " " : "'" + word + "' ";
    line += prefix;
    std::vector<std::string> found;
    try {
        const ApiClient::Reply reply = m_control.client().get(
            "/completion" + (line.empty() ? "" : "?line=" + ApiClient::encoded(line)), s_completionLimit);
        for (const JsonView& word : reply.view().list("words"))
            found.push_back(word.text());
    } catch (const ControlError&) {
        // The line that is typed will tell.
    }
    if (before.empty() && std::string_view(s_detach).starts_with(prefix))
        found.emplace_back(s_detach);
    return found;
}
