#include "ChangeCommands.h"

#include <algorithm>
#include <chrono>
#include <vector>

#include "ControlError.h"
#include "LocalTime.h"
#include "LogText.h"
#include "Printable.h"
#include "TextDifference.h"

using base::Table;

namespace {

/// Reading and checking waits for what the host is at.
constexpr ApiClient::Milliseconds s_readLimit{60'000};

Table::EColour colourOf(const JsonView& finding) {
    return finding.text("severity") == "error" ? Table::EColour::Bad : Table::EColour::Warning;
}

std::string outcome(const JsonView& change) {
    if (change.flag("done"))
        return "done";
    const std::string why = change.text("why");
    return "not done" + (why.empty() ? "" : ": " + why);
}

}  // namespace

void ChangeCommands::showFindings(const JsonView& answer) const {
    const Screen& screen = m_control.screen();
    for (const JsonView& finding : answer.list("findings")) {
        const std::string line = finding.has("line") ? " line " + finding.text("line") : "";
        screen.out << screen.coloured(colourOf(finding),
                                      base::printable(finding.text("severity") + ": " + finding.text("file") +
                                                      line + ": " + finding.text("text")))
                   << "\n";
    }
    screen.out << std::flush;
}

EExit ChangeCommands::check() {
    const ApiClient::Reply reply = m_control.act("/check", ApiClient::Json::object(), s_readLimit);
    const JsonView report = reply.view();
    const bool isRefused = report.number("errors") > 0;
    if (!m_control.asJson()) {
        showFindings(report);
        const auto counted = [&](const char* pName, const std::string& word) {
            const std::int64_t count = report.number(pName);
            return std::to_string(count) + " " + word + (count == 1 ? "" : "s");
        };
        m_control.screen().out << base::printable(report.text("file") + ": " + counted("errors", "error") +
                                                  ", " + counted("warnings", "warning"))
                               << std::endl;
    }
    return isRefused ? EExit::Failed : EExit::Done;
}

EExit ChangeCommands::plan(bool tellsChanges) {
    const ApiClient::Reply reply = m_control.act("/plan", ApiClient::Json::object(), s_readLimit);
    const JsonView plan = reply.view();
    const std::vector<JsonView> changes = plan.list("changes");
    const std::string refusal = plan.text("refusal");
    if (!m_control.asJson()) {
        const Screen& screen = m_control.screen();
        showFindings(plan);
        Table table({"action", "driver", "why"});
        for (const JsonView& change : changes)
            table.addRow({change.text("action"), change.text("driver"), change.text("reason")});
        if (changes.empty())
            screen.out << "no changes" << std::endl;
        else
            table.print(screen.out, screen.look);
        if (refusal.empty() && !changes.empty())
            screen.out << base::printable("mfctl apply " + plan.text("plan")) << " does this" << std::endl;
    }
    if (!refusal.empty())
        throw ControlError(EExit::Failed, "nothing may be applied: " + refusal);
    return tellsChanges && !changes.empty() ? EExit::Changes : EExit::Done;
}

EExit ChangeCommands::apply(const std::string& plan, ApiClient::Milliseconds limit) {
    ApiClient::Json members = ApiClient::Json::object();
    if (!plan.empty())
        members["plan"] = plan;
    return showApplied(m_control.act("/apply", members, limit));
}

EExit ChangeCommands::undo(unsigned number, ApiClient::Milliseconds limit) {
    ApiClient::Json members = ApiClient::Json::object();
    if (number > 0)
        members["number"] = number;
    return showApplied(m_control.act("/undo", members, limit));
}

EExit ChangeCommands::showApplied(const ApiClient::Reply& reply) const {
    const JsonView applied = reply.view();
    const std::vector<JsonView> changes = applied.list("changes");
    const bool isWhole = std::all_of(changes.begin(), changes.end(),
                                     [](const JsonView& change) { return change.flag("done"); });
    if (!m_control.asJson()) {
        const Screen& screen = m_control.screen();
        Table table({"action", "driver", "why", "outcome"});
        for (const JsonView& change : changes)
            table.addRow(
                {change.text("action"),
                 change.text("driver"),
                 change.text("reason"),
                 {outcome(change), change.flag("done") ? Table::EColour::None : Table::EColour::Bad}});
        if (changes.empty())
            screen.out << "no changes" << std::endl;
        else
            table.print(screen.out, screen.look);
        // Where there was nothing to do it may be the number of before.
        const std::int64_t number = applied.number("history");
        if (number > 0 && changes.empty())
            screen.out << "this is number " << number << std::endl;
        else if (number > 0)
            screen.out << "kept as number " << number << "; mfctl undo goes back" << std::endl;
    }
    if (!isWhole)
        throw ControlError(EExit::Failed, "not every change was done");
    return EExit::Done;
}

EExit ChangeCommands::history() {
    const ApiClient::Reply reply = m_control.ask("/history");
    if (m_control.asJson())
        return EExit::Done;
    const Screen& screen = m_control.screen();
    Table table({"number", "when", "who", "digest", "outcome"});
    for (const JsonView& entry : reply.view().list("history"))
        table.addRow({entry.text("number"), localTime(entry.text("when")), entry.text("who"),
                      entry.text("digest").substr(0, 12), entry.text("outcome")});
    if (table.empty())
        screen.out << "nothing was applied yet" << std::endl;
    else
        table.print(screen.out, screen.look);
    return EExit::Done;
}

ApiClient::Reply ChangeCommands::state(std::int64_t number) {
    ApiClient::Reply reply = m_control.client().get("/history/" + std::to_string(number));
    if (reply.isError())
        throw ControlError(RemoteControl::errorExit(reply), RemoteControl::errorText(reply));
    return reply;
}

EExit ChangeCommands::diff(unsigned number) {
    const ApiClient::Reply all = m_control.client().get("/history");
    if (all.isError())
        throw ControlError(RemoteControl::errorExit(all), RemoteControl::errorText(all));
    std::vector<std::int64_t> numbers;
    for (const JsonView& entry : all.view().list("history"))
        numbers.push_back(entry.number("number"));
    std::sort(numbers.begin(), numbers.end());
    if (numbers.empty())
        throw ControlError(EExit::Failed, "nothing was applied yet");
    const std::int64_t wanted = number > 0 ? number : numbers.back();
    const auto place = std::find(numbers.begin(), numbers.end(), wanted);
    if (place == numbers.end())
        throw ControlError(EExit::Failed, "the history has no number " + std::to_string(wanted) +
                                              "; it goes from " + std::to_string(numbers.front()) + " to " +
                                              std::to_string(numbers.back()));
    const ApiClient::Reply after = state(wanted);
    if (m_control.asJson()) {
        m_control.printJson(after.body);
        return EExit::Done;
    }
    std::string before;
    std::string beforeName = "nothing";
    if (place != numbers.begin()) {
        before = state(*std::prev(place)).view().text("file");
        beforeName = "number " + std::to_string(*std::prev(place));
    }
    std::string error;
    const std::string text = textDifference(
        {beforeName, before}, {"number " + std::to_string(wanted), after.view().text("file")}, error);
    if (!error.empty())
        throw ControlError(EExit::Failed, error);
    if (text.empty())
        m_control.screen().out << "the file is the same in " << beforeName << " and number " << wanted
                               << std::endl;
    printLines(text, m_control.screen());
    return EExit::Done;
}
