#include "StateCommands.h"

#include <charconv>
#include <chrono>
#include <cmath>
#include <thread>

#include "AgeText.h"
#include "ControlError.h"
#include "HostReturn.h"
#include "LocalTime.h"
#include "Printable.h"
#include "StateChanges.h"

using base::ageText;
using base::Table;

namespace {

constexpr std::chrono::milliseconds s_step{200};

std::string query(const std::string& glob, std::int64_t since) {
    std::string text = "/state";
    if (!glob.empty())
        text += "?glob=" + ApiClient::encoded(glob);
    if (since > 0)
        text += (glob.empty() ? "?since=" : "&since=") + std::to_string(since);
    return text;
}

template <class Number>
bool isNumber(const std::string& text, Number& number) {
    const char* pEnd = text.data() + text.size();
    const auto result = std::from_chars(text.data(), pEnd, number);
    return result.ec == std::errc() && result.ptr == pEnd;
}

[[noreturn]] void refuse(const std::string& value, const std::string& type, const std::string& right) {
    throw ControlError(EExit::WrongUsage, base::quoted(value) + " is no " + type + "; it must be " + right);
}

}  // namespace

EExit StateCommands::show(const std::string& glob) {
    const ApiClient::Reply reply = m_control.ask(query(glob, 0));
    if (m_control.asJson())
        return EExit::Done;
    const Screen& screen = m_control.screen();
    Table table({"key", "type", "value", "set by", "age", "holds"});
    for (const JsonView& value : reply.view().list("values")) {
        const JsonView stale = value.member("stale");
        const bool isStale = value.has("stale");
        table.addRow(
            {value.text("key"), value.text("type"), value.text(value.has("text") ? "text" : "value"),
             value.text("owner"), ageText(std::chrono::milliseconds(value.number("ageMs"))),
             isStale ? Table::Cell("stale for " + ageText(std::chrono::milliseconds(stale.number("forMs"))) +
                                       " (" + stale.text("cause") + ")",
                                   Table::EColour::Warning)
                     : "yes"});
    }
    if (!table.empty())
        table.print(screen.out, screen.look);
    else if (glob.empty())
        screen.out << "no state values" << std::endl;
    else
        screen.out << "no state value matches " << base::printable(glob) << std::endl;
    return EExit::Done;
}

EExit StateCommands::counts() {
    // No key is empty: of the values nothing is asked for.
    const ApiClient::Reply reply = m_control.ask("/state?counts=1&glob=%5B%5D");
    if (m_control.asJson())
        return EExit::Done;
    const Screen& screen = m_control.screen();
    Table table({"driver", "received", "merged", "delivered", "changes"});
    for (const JsonView& count : reply.view().list("counts"))
        table.addRow({count.text("driver"), count.text("received"), count.text("merged"),
                      count.text("delivered"), count.text("changes")});
    if (table.empty())
        screen.out << "no driver has reported anything" << std::endl;
    else
        table.print(screen.out, screen.look);
    return EExit::Done;
}

EExit StateCommands::watch(const std::string& glob) {
    ApiClient& client = m_control.client();
    const Screen& screen = m_control.screen();
    HostReturn host(client, screen);
    StateChanges changes;
    std::int64_t since = 0;
    for (;; std::this_thread::sleep_for(s_step)) {
        const auto reply = host.ask(query(glob, since));
        if (host.isAnother()) {
            // The versions of another instance are others.
            since = 0;
            continue;
        }
        if (reply.isError())
            throw ControlError(RemoteControl::errorExit(reply), RemoteControl::errorText(reply));
        const std::vector<std::string> lines = changes.take(reply.view());
        if (m_control.asJson() && !(lines.empty() && since > 0)) {
            m_control.printJson(reply.body);
        } else if (!m_control.asJson()) {
            for (const std::string& line : lines)
                screen.out << line << "\n";
            screen.out << std::flush;
        }
        if (!screen.out)
            return EExit::Failed;
        since = reply.view().number("version");
    }
}

ApiClient::Json StateCommands::typedValue(const std::string& value, std::string& type) {
    std::int32_t whole = 0;
    double real = 0;
    const bool isWhole = isNumber(value, whole);
    const bool isReal = isNumber(value, real) && std::isfinite(real);
    const bool isBool = value == "true" || value == "false";
    if (type.empty())
        type = isWhole ? "int" : isReal ? "float" : isBool ? "bool" : "string";
    if (type == "int") {
        if (!isWhole)
            refuse(value, "int", "a whole number of 32 bits, such as -5");
        return whole;
    }
    if (type == "float") {
        if (!isReal)
            refuse(value, "float", "a number such as 0.5");
        return real;
    }
    if (type == "bool") {
        if (!isBool)
            refuse(value, "bool", "true or false");
        return value == "true";
    }
    return value;
}

EExit StateCommands::set(const std::string& key, const std::string& value, const std::string& type) {
    std::string usedType = type;
    const ApiClient::Json typed = typedValue(value, usedType);
    m_control.act("/state", {{"key", key}, {"type", usedType}, {"value", typed}});
    if (!m_control.asJson())
        m_control.screen().out << base::printable(key + " = " + value) << " (" << usedType << ")"
                               << std::endl;
    return EExit::Done;
}

EExit StateCommands::unset(const std::string& key) {
    m_control.act("/unset", {{"key", key}});
    if (!m_control.asJson())
        m_control.screen().out << base::printable(key) << " unset" << std::endl;
    return EExit::Done;
}

EExit StateCommands::trigger(const std::string& id, const std::string& value) {
    m_control.act("/event", {{"id", id}, {"value", value}});
    if (!m_control.asJson())
        m_control.screen().out << base::printable("event " + id + " " + value) << std::endl;
    return EExit::Done;
}

EExit StateCommands::events() {
    const ApiClient::Reply reply = m_control.ask("/events");
    if (m_control.asJson())
        return EExit::Done;
    const Screen& screen = m_control.screen();
    Table table({"time", "event", "value", "from"});
    for (const JsonView& event : reply.view().list("events"))
        table.addRow(
            {localTime(event.text("time")), event.text("id"), event.text("value"), event.text("owner")});
    if (table.empty())
        screen.out << "no events" << std::endl;
    else
        table.print(screen.out, screen.look);
    return EExit::Done;
}
