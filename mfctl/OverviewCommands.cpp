#include "OverviewCommands.h"

#include "AlarmNotice.h"
#include "HeldUpText.h"
#include "LocalTime.h"
#include "LogText.h"
#include "Printable.h"
#include "QueueTable.h"
#include "Table.h"

EExit OverviewCommands::health() {
    const ApiClient::Reply reply = m_control.ask("/health");
    const JsonView health = reply.view();
    const bool isWell = health.text("status") == "ok";
    if (m_control.asJson())
        return isWell ? EExit::Done : EExit::Failed;
    const Screen& screen = m_control.screen();
    std::string text = health.text("status") + ": " + health.text("running") + " of " +
                       health.text("configured") + " drivers run";
    if (health.number("parked") > 0)
        text += ", " + health.text("parked") + " parked";
    if (health.number("alarms") > 0)
        text += ", " + alarmNotice(static_cast<std::size_t>(health.number("alarms")));
    if (const std::string heldUp = heldUpText(health); !heldUp.empty())
        text += "; " + heldUp;
    screen.out << screen.coloured(isWell ? base::Table::EColour::None : base::Table::EColour::Bad,
                                  base::printable(text))
               << std::endl;
    return isWell ? EExit::Done : EExit::Failed;
}

EExit OverviewCommands::queues() {
    const ApiClient::Reply reply = m_control.ask("/queues");
    if (m_control.asJson())
        return EExit::Done;
    const auto queues = reply.view().list("queues");
    if (queues.empty())
        m_control.screen().out << "no queues" << std::endl;
    else
        printQueues(queues, m_control.screen());
    return EExit::Done;
}

EExit OverviewCommands::macros() {
    const ApiClient::Reply reply = m_control.ask("/macros");
    if (m_control.asJson())
        return EExit::Done;
    const auto macros = reply.view().list("macros");
    for (const JsonView& macro : macros)
        m_control.screen().out << base::printable(macro.text("name")) << "\n";
    if (macros.empty())
        m_control.screen().out << "no macros\n";
    m_control.screen().out << std::flush;
    return EExit::Done;
}

EExit OverviewCommands::play(const std::string& macro, ApiClient::Milliseconds limit) {
    const ApiClient::Reply reply = m_control.act("/macros/" + ApiClient::encoded(macro) + "/play",
                                                 ApiClient::Json::object(), limit, "macro " + macro);
    if (!m_control.asJson())
        printLines(reply.view().text("output"), m_control.screen());
    return EExit::Done;
}

EExit OverviewCommands::complete(const std::string& line) {
    const ApiClient::Reply reply = m_control.ask("/completion?line=" + ApiClient::encoded(line));
    if (m_control.asJson())
        return EExit::Done;
    for (const JsonView& word : reply.view().list("words"))
        m_control.screen().out << base::printable(word.text()) << "\n";
    m_control.screen().out << std::flush;
    return EExit::Done;
}

EExit OverviewCommands::shutdown() {
    m_control.act("/shutdown");
    if (!m_control.asJson())
        m_control.screen().out << "the host stops all drivers and ends" << std::endl;
    return EExit::Done;
}
