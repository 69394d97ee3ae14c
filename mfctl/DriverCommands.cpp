#include "DriverCommands.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "ControlError.h"
#include "DriverColour.h"
#include "LocalTime.h"
#include "LogText.h"
#include "OrDash.h"
#include "Printable.h"
#include "QueueTable.h"
#include "TimeText.h"

using base::Table;

namespace {

std::string nextTry(const JsonView& driver) {
    return driver.has("nextTryMs") ? base::dueText(std::chrono::milliseconds(driver.number("nextTryMs")))
                                   : "-";
}

/// Two numbers of which a driver without a process has none.
std::string pair(const JsonView& driver, const char* pIn, const char* pOut) {
    return driver.has(pIn) || driver.has(pOut)
               ? std::to_string(driver.number(pIn)) + "/" + std::to_string(driver.number(pOut))
               : "-";
}

std::string process(const JsonView& driver) {
    return driver.number("pid") > 0 ? driver.text("pid") : "-";
}

Table::EColour colourOf(const JsonView& driver) {
    return driverColour(driver.text("status"));
}

}  // namespace

EExit DriverCommands::list(bool isLong) {
    const ApiClient::Reply reply = m_control.ask("/drivers");
    if (m_control.asJson())
        return EExit::Done;
    const Screen& screen = m_control.screen();
    Table table(
        isLong ? std::vector<std::string>{"ID", "type", "version", "mode", "process", "status", "since",
                                          "restarts", "last cause", "next try", "msg/s in/out",
                                          "queued in/out", "values lost"}
               : std::vector<std::string>{"ID", "status", "since", "restarts", "next try", "last cause"});
    for (const JsonView& driver : reply.view().list("drivers"))
        showRow(table, driver, isLong);
    if (table.empty())
        screen.out << "no drivers" << std::endl;
    else
        table.print(screen.out, {isLong ? 0 : screen.look.width, screen.look.isColoured});
    return EExit::Done;
}

void DriverCommands::showRow(Table& table, const JsonView& driver, bool isLong) const {
    const std::string since = orDash(localTime(driver.text("since")));
    const Table::Cell status(driver.text("status"), colourOf(driver));
    if (!isLong) {
        table.addRow({driver.text("id"), status, since, driver.text("restarts"), nextTry(driver),
                      orDash(driver.text("cause"))});
        return;
    }
    table.addRow({driver.text("id"), driver.text("type"), driver.text("version"), driver.text("mode"),
                  process(driver), status, since, driver.text("restarts"), orDash(driver.text("cause")),
                  nextTry(driver), pair(driver, "receivedPerSecond", "sentPerSecond"),
                  pair(driver, "queuedIn", "queuedOut"), driver.text("valuesLost")});
}

EExit DriverCommands::card(const std::string& driverID) {
    const ApiClient::Reply reply = m_control.ask("/drivers/" + ApiClient::encoded(driverID));
    if (m_control.asJson())
        return EExit::Done;
    const Screen& screen = m_control.screen();
    const JsonView driver = reply.view();
    const auto say = [&](const std::string& name, const std::string& text) {
        std::string label = name;
        label.resize(std::max<std::size_t>(label.size() + 1, 12), ' ');
        screen.out << label << base::printable(text) << "\n";
    };
    const std::string status =
        driver.text("status") + (driver.has("since") ? ", since " : "") + localTime(driver.text("since"));
    screen.out << screen.coloured(colourOf(driver), base::printable(driver.text("id") + "  " + status))
               << "\n";
    if (driver.has("cause") && !driver.text("cause").empty())
        say("last cause", driver.text("cause"));
    if (driver.has("nextTryMs"))
        say("next try", nextTry(driver));
    say("type", driver.text("type") + " " + driver.text("version") + ", " + driver.text("mode"));
    if (driver.number("pid") > 0)
        say("process", driver.text("pid") + (driver.flag("byHand") ? ", started by hand" : ""));
    say("restarts", driver.text("restarts"));
    for (const char* pName : {"module", "descriptor", "directory"})
        say(pName, orDash(driver.text(pName)));
    if (!driver.text("networkAdapter").empty())
        say("adapter", driver.text("networkAdapter"));
    if (driver.number("pid") > 0)
        say("traffic", std::to_string(driver.number("receivedPerSecond")) + " messages/s to it, " +
                           std::to_string(driver.number("sentPerSecond")) + " from it");
    if (driver.number("valuesLost") > 0)
        say("lost", driver.text("valuesLost") + " new state values, since too many are kept");

    if (const auto queues = driver.list("queues"); !queues.empty()) {
        screen.out << "\nqueues\n";
        printQueues(queues, screen);
    }
    if (const auto lines = driver.list("log"); !lines.empty()) {
        screen.out << "\nlast log lines\n";
        for (const JsonView& line : lines)
            screen.out << logText(line, screen) << "\n";
    }
    if (const auto words = driver.list("lastWords"); !words.empty()) {
        screen.out << "\nwhat it said last\n";
        for (const JsonView& line : words)
            screen.out << base::printable(line.text()) << "\n";
    }
    screen.out << std::flush;
    return EExit::Done;
}

EExit DriverCommands::runs(const std::string& driverID) {
    const ApiClient::Reply reply = m_control.ask("/drivers/" + ApiClient::encoded(driverID) + "/runs");
    if (m_control.asJson())
        return EExit::Done;
    const Screen& screen = m_control.screen();
    const JsonView runs = reply.view();
    Table table({"time", "step", "process", "what"});
    for (const JsonView& step : runs.list("steps")) {
        const std::string name = step.text("step");
        const bool isBad = name == "hang" || name == "failed";
        table.addRow({localTime(step.text("time")),
                      {name, isBad ? Table::EColour::Bad : Table::EColour::None},
                      process(step),
                      orDash(step.text("text"))});
    }
    if (table.empty())
        screen.out << driverID << " has not been started" << std::endl;
    else
        table.print(screen.out, {screen.look.width, screen.look.isColoured});
    if (runs.flag("more"))
        screen.out << "there is more before that: mfctl recording show" << std::endl;
    else if (!runs.flag("recorded"))
        screen.out
            << "of the time before the host's start nothing is known: it does not record (--record-off)"
            << std::endl;
    return EExit::Done;
}

EExit DriverCommands::troubled() {
    const ApiClient::Reply reply = m_control.client().get("/drivers");
    if (reply.isError())
        throw ControlError(RemoteControl::errorExit(reply), RemoteControl::errorText(reply));
    const Screen& screen = m_control.screen();
    std::size_t shown = 0;
    for (const JsonView& driver : reply.view().list("drivers")) {
        if (colourOf(driver) != Table::EColour::Bad)
            continue;
        if (shown++ > 0 && !m_control.asJson())
            screen.out << "\n";
        card(driver.text("id"));
    }
    if (shown == 0 && !m_control.asJson())
        screen.out << "no driver has ended or hangs" << std::endl;
    return EExit::Done;
}

EExit DriverCommands::change(const std::string& driverID, const char* pOperation,
                             ApiClient::Milliseconds limit) {
    const std::string operation = pOperation;
    const std::string command = operation == "park" ? "stop" : operation == "unpark" ? "start" : operation;
    const ApiClient::Reply reply = m_control.act("/drivers/" + ApiClient::encoded(driverID) + "/" + operation,
                                                 ApiClient::Json::object(), limit, command + " " + driverID);
    if (m_control.asJson())
        return EExit::Done;
    const Screen& screen = m_control.screen();
    printLines(reply.view().text("output"), screen);
    if (const JsonView driver = reply.view().member("driver"); driver.has("id")) {
        const std::string cause = driver.text("cause");
        const bool tellsCause = !driver.flag("alive") && !cause.empty();
        screen.out << screen.coloured(colourOf(driver),
                                      base::printable(driver.text("id") + ": " + driver.text("status") +
                                                      (tellsCause ? ", " + cause : "")))
                   << std::endl;
    }
    return EExit::Done;
}
