#include "EventCommand.h"

#include "ControlError.h"
#include "HostStream.h"
#include "StateCommands.h"
#include "StreamPrinter.h"

namespace {

/// Without values, which "state" shows, and the log, which "log" does.
constexpr const char* s_usualKinds = "event,fid,command,mark,start,exit,hang,restart,configuration,stale";

std::string queryOf(const StreamChoice& what) {
    std::string query =
        "kinds=" + (what.kinds.empty() ? std::string(s_usualKinds)
                                       : ApiClient::encoded(StreamChoice::joined(what.kinds)));
    if (!what.drivers.empty())
        query += "&drivers=" + ApiClient::encoded(StreamChoice::joined(what.drivers));
    if (!what.glob.empty())
        query += "&glob=" + ApiClient::encoded(what.glob);
    return query;
}

}  // namespace

EExit EventCommand::show(const Choice& choice) {
    const Screen& screen = m_control.screen();
    bool isAny = false;
    const auto print = [&](const JsonView& record, const std::string& json) {
        isAny = true;
        if (m_control.asJson())
            screen.out << json;
        else
            screen.out << screen.coloured(StreamPrinter::colourOf(record.text("kind")), record.text("line"));
        screen.out << std::endl;
        return static_cast<bool>(screen.out);
    };
    HostStream stream(m_control.client(), screen);
    if (stream.read(queryOf(choice.what), choice.lines, choice.follows, print)) {
        if (!isAny && !m_control.asJson())
            screen.out << "no events" << std::endl;
        return screen.out ? EExit::Done : EExit::Failed;
    }
    const StreamChoice& what = choice.what;
    if (choice.follows || !what.drivers.empty() || !what.kinds.empty() || !what.glob.empty())
        throw ControlError(EExit::Failed,
                           "the host does not record (--record-off): only its last events can be listed");
    const EExit exit = StateCommands(m_control).events();
    if (!m_control.asJson())
        screen.complain(
            "the host does not record (--record-off): these are its last events alone, without function IDs, "
            "commands, starts and ends");
    return exit;
}
