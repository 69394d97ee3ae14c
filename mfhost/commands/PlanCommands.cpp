#include "PlanCommands.h"

#include <charconv>
#include <sstream>
#include <utility>

#include "LineDiff.h"
#include "ModuleIdentity.h"
#include "Printable.h"
#include "RegularFile.h"
#include "Table.h"
#include "TimeText.h"
#include "sal/CmdProcessor.h"
#include "sal/CmdRegisterImpl.h"

namespace {

/// The number of a state; 0 for none, nothing for a word that is no number.
std::optional<unsigned> numberOf(const std::string& word) {
    if (word.empty())
        return 0;
    unsigned number = 0;
    const auto read = std::from_chars(word.data(), word.data() + word.size(), number);
    const bool isNumber = read.ec == std::errc() && read.ptr == word.data() + word.size();
    return isNumber && number > 0 ? std::optional(number) : std::nullopt;
}

/// "reload A: module changed"
std::string changeText(const WorkplacePlan::Change& change) {
    return std::string(inWords(change.action)) + (change.driverID.empty() ? "" : " " + change.driverID) +
           ": " + change.reason;
}

}  // namespace

PlanCommands::PlanCommands(Context context) : m_context(std::move(context)) {}

void PlanCommands::registerCommands() {
    struct Command {
        const char* name;
        const char* help;
        bool (PlanCommands::*handler)(sal::CmdParameters&);
    };
    const Command commands[] = {
        {"plan",
         "plan\n\ttells what apply would change: the drivers whose entry, descriptor or module has changed.",
         &PlanCommands::plan},
        {"apply",
         "apply [<plan>]\n\ttakes the changed files over: reloads what has changed, starts what is new, ends "
         "what "
         "is gone; with a plan's ID only if the files are still those of the plan.",
         &PlanCommands::apply},
        {"undo",
         "undo [<number>]\n\tgives the files of a former state back and applies them: of the one before the "
         "present one, or of that number.",
         &PlanCommands::undo},
        {"history", "history\n\tlists the states of the workplace that were applied.",
         &PlanCommands::history},
        {"diff",
         "diff [<number>]\n\ttells in what the files differ from those of a state: of the present one, or of "
         "that number.",
         &PlanCommands::diff},
    };
    for (const Command& command : commands)
        sal::CmdProcessor::getInstance()->registerCmd(
            new sal::CmdRegisterImpl<PlanCommands>(command.name, command.help, this, command.handler));
}

bool PlanCommands::plan(sal::CmdParameters&) {
    const WorkplacePlan plan = m_context.plan();
    std::ostream& reply = m_context.reply();
    for (const Finding& finding : plan.findings)
        reply << (finding.isError() ? "error: " : "warning: ") << base::printable(finding.inWords()) << "\n";
    if (!plan.refusal.empty()) {
        reply << "nothing can be applied: " << base::printable(plan.refusal) << std::endl;
        m_context.refused();
        return true;
    }
    for (const WorkplacePlan::Change& change : plan.changes)
        reply << base::printable(changeText(change)) << "\n";
    if (plan.changes.empty())
        reply << "no changes" << std::endl;
    else if (!plan.isEmpty())
        reply << "apply " << plan.id << " does this" << std::endl;
    return true;
}

bool PlanCommands::apply(sal::CmdParameters& parameters) {
    print(m_context.apply(parameters.argument(0), m_context.who()), "applied");
    return true;
}

bool PlanCommands::undo(sal::CmdParameters& parameters) {
    const auto number = numberOf(parameters.argument(0));
    if (!number)
        return false;
    print(m_context.undo(*number, m_context.who()), "undone");
    return true;
}

void PlanCommands::print(const Applied& applied, const std::string& what) {
    std::ostream& reply = m_context.reply();
    if (!applied.refusal.empty()) {
        reply << "nothing is " << what << ": " << base::printable(applied.refusal) << std::endl;
        m_context.refused();
        return;
    }
    for (const std::string& note : applied.notes)
        reply << base::printable(note) << "\n";
    for (const AppliedChange& change : applied.changes) {
        reply << base::printable(changeText(change.change)) << ": "
              << (change.isDone ? "done" : "not done: " + base::printable(change.reason)) << "\n";
        if (!change.isDone)
            m_context.refused();
    }
    reply << applied.outcome();
    if (applied.history)
        reply << "; this is state " << applied.history;
    reply << std::endl;
}

bool PlanCommands::history(sal::CmdParameters&) {
    base::Table table({"state", "time", "by", "outcome", "files"});
    for (const HistoryEntry& entry : m_context.history()) {
        const std::string number = std::to_string(entry.number);
        table.addRow({number, base::timeText(entry.when), entry.who, entry.outcome,
                      entry.restores ? "those of state " + std::to_string(entry.restores)
                                     : entry.digest.substr(0, 8)});
    }
    if (table.empty())
        m_context.reply() << "no state was kept" << std::endl;
    else
        table.print(m_context.reply(), m_context.look());
    return true;
}

bool PlanCommands::diff(sal::CmdParameters& parameters) {
    const auto number = numberOf(parameters.argument(0));
    if (!number)
        return false;
    std::ostream& reply = m_context.reply();
    std::string error;
    const auto state = m_context.state(*number, error);
    if (!state) {
        reply << base::printable(error) << std::endl;
        m_context.refused();
        return true;
    }
    bool isSame = true;
    for (const WorkplaceState::File& file : state->files) {
        const bool isText =
            file.kind == WorkplaceState::EKind::Workplace || file.kind == WorkplaceState::EKind::Descriptor;
        const auto now = base::RegularFile::read(file.path);
        const bool isOther = file.kind == WorkplaceState::EKind::Module
                                 ? ModuleIdentity::of(file.path).digest() != file.identity
                                 : file.bytes && (!now || now.bytes != *file.bytes);
        if (!isOther)
            continue;
        isSame = false;
        reply << base::printable(file.path) << (now ? " differs" : " is not there: " + now.reason) << "\n";
        if (!isText || !now)
            continue;
        std::istringstream lines(lineDiff(*file.bytes, now.bytes));
        for (std::string line; std::getline(lines, line);)
            reply << base::printable(line) << "\n";
    }
    if (isSame)
        reply << "no difference";
    reply << (isSame ? "\n" : "") << std::flush;
    return true;
}
