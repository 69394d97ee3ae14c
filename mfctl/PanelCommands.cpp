#include "PanelCommands.h"

#include "AgeText.h"
#include "ControlError.h"
#include "LocalTime.h"
#include "Table.h"

namespace {

std::string validText(const ApiClient::Reply& reply) {
    return base::ageText(std::chrono::milliseconds(reply.view().number("validMs")));
}

}  // namespace

EExit PanelCommands::open() {
    const ApiClient::Reply reply = m_control.act("/panel");
    if (!m_control.asJson())
        m_control.screen().out << reply.view().text("url") << "/#code=" << reply.view().text("code")
                               << std::endl;
    return EExit::Done;
}

EExit PanelCommands::pair(const std::string& role) {
    const ApiClient::Reply reply = m_control.act("/pair", {{"role", role}});
    if (m_control.asJson())
        return EExit::Done;
    m_control.screen().out << reply.view().text("code") << "\n"
                           << "for " << validText(reply) << ", once, with the role "
                           << reply.view().text("role") << "; the panel is at " << reply.view().text("url")
                           << "/" << std::endl;
    return EExit::Done;
}

EExit PanelCommands::sessions() {
    const ApiClient::Reply reply = m_control.ask("/sessions");
    if (m_control.asJson())
        return EExit::Done;
    const Screen& screen = m_control.screen();
    base::Table table({"session", "user", "role", "from", "since", "until", "requests"});
    for (const JsonView& session : reply.view().list("sessions")) {
        const std::string address = session.text("address").empty() ? "token file" : session.text("address");
        table.addRow({session.text("id"), session.text("user"), session.text("role"),
                      session.has("pid") ? "process " + session.text("pid") : address,
                      localTime(session.text("since")),
                      session.has("expires") ? localTime(session.text("expires")) : "",
                      session.text("requests")});
    }
    table.print(screen.out, screen.look);
    return EExit::Done;
}

EExit PanelCommands::revoke(unsigned number) {
    if (number == 0)
        throw ControlError(EExit::WrongUsage,
                           "which session? mfctl sessions revoke N; mfctl sessions lists their numbers");
    m_control.act("/sessions/" + std::to_string(number) + "/revoke");
    if (!m_control.asJson())
        m_control.screen().out << "session " << number << " is ended" << std::endl;
    return EExit::Done;
}
