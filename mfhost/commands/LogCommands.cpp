#include "LogCommands.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <optional>
#include <utility>

#include "Nearest.h"
#include "Printable.h"
#include "TimeText.h"
#include "sal/CmdParameters.h"
#include "sal/CmdProcessor.h"
#include "sal/CmdRegisterImpl.h"

namespace {

constexpr const char* s_name = "log";
constexpr std::size_t s_lines = 20;

/// To the millisecond.
std::string exactTime(std::chrono::system_clock::time_point when) {
    const auto whole = std::chrono::floor<std::chrono::seconds>(when);
    const auto rest = std::chrono::floor<std::chrono::milliseconds>(when - whole).count();
    const std::string digits = std::to_string(1000 + rest);
    return base::timeText(when) + "." + digits.substr(1);
}

/// As in the log itself.
const char* levelText(int level) {
    switch (level) {
        case sal::LogOutput::eCritical:
            return "critical";
        case sal::LogOutput::eError:
            return "error   ";
        case sal::LogOutput::eWarning:
            return "warning ";
        case sal::LogOutput::eInfo:
            return "info    ";
        default:
            return "trace   ";
    }
}

std::optional<std::size_t> countIn(const std::string& text) {
    std::size_t count = 0;
    const auto [pEnd, error] = std::from_chars(text.data(), text.data() + text.size(), count);
    return error == std::errc() && pEnd == text.data() + text.size() && count > 0
               ? std::optional<std::size_t>(count)
               : std::nullopt;
}

}  // namespace

void LogCommands::registerCommands() {
    sal::CmdProcessor::getInstance()->registerCmd(
        new sal::CmdRegisterImpl<LogCommands>(s_name,
                                              "log [<driverID>] [-n <number>]\n\tshows the last lines of the "
                                              "log, 20 or that many: all, or those of a "
                                              "driver, with the last words of its last process.",
                                              this, &LogCommands::log));
}

bool LogCommands::areMeantBy(const std::vector<std::string>& words) {
    return !words.empty() && words.front() == s_name;
}

void LogCommands::answer(std::vector<std::string> words) {
    words.erase(words.begin());
    sal::CmdParameters parameters(std::move(words));
    if (parameters.argument(0) == "--help" || !log(parameters))
        sal::CmdProcessor::getInstance()->help(s_name, m_context.reply());
}

bool LogCommands::log(sal::CmdParameters& parameters) {
    LogMemory::Query query{.most = s_lines};
    for (unsigned int i = 0; i < parameters.argumentCount(); ++i) {
        const std::string word = parameters.argument(i);
        if (word != "-n" && (!query.driver.empty() || word.empty()))
            return false;
        if (word != "-n") {
            query.driver = word;
            continue;
        }
        const auto count = countIn(parameters.argument(++i));
        if (!count)
            return false;
        query.most = *count;
    }
    const std::vector<std::string> driverIDs = m_context.driverIDs();
    const bool isKnown = query.driver.empty() ||
                         std::find(driverIDs.begin(), driverIDs.end(), query.driver) != driverIDs.end();
    if (isKnown)
        print(query);
    else
        sayUnknown(query.driver, driverIDs);
    return true;
}

void LogCommands::print(const LogMemory::Query& query) const {
    const auto lines = m_context.memory.lines(query);
    std::ostream& reply = m_context.reply();
    for (const LogMemory::Line& line : lines)
        reply << exactTime(line.time) << ' ' << levelText(line.level) << ' ' << line.output << ": "
              << line.text << '\n';
    const auto words =
        query.driver.empty() ? std::vector<std::string>() : m_context.memory.lastWords(query.driver);
    if (!words.empty())
        reply << "last words of the process that ended last:\n";
    for (const std::string& word : words)
        reply << "    " << word << '\n';
    if (lines.empty() && words.empty())
        reply << "no lines\n";
    reply << std::flush;
}

void LogCommands::sayUnknown(const std::string& driverID, const std::vector<std::string>& driverIDs) const {
    const auto nearest = base::nearest(driverID, driverIDs, 1);
    m_context.reply() << base::printable("there is no driver " + driverID)
                      << (nearest.empty() ? "; drivers lists them"
                                          : "; did you mean " + base::printable(nearest.front()) + "?")
                      << std::endl;
    m_context.refused();
}
