#include "HostCommands.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <ctime>
#include <map>
#include <string>
#include <utility>

#include "AgeText.h"
#include "DriverStatus.h"
#include "Printable.h"
#include "QueueNames.h"
#include "Table.h"
#include "sal/CmdProcessor.h"
#include "sal/CmdRegisterImpl.h"
#include "sal/MessageQueue.h"

using base::ageText;
using base::Table;

namespace {

std::string timeText(std::chrono::system_clock::time_point when) {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(when);
    std::tm local{};
    localtime_r(&seconds, &local);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local);
    return text;
}

std::string nextTryText(const DriverTable::Driver& driver, StateStore::Clock::time_point now) {
    if (!driver.nextTry)
        return "-";
    const auto left = std::chrono::ceil<std::chrono::seconds>(*driver.nextTry - now);
    return left.count() <= 0 ? "now" : "in " + std::to_string(left.count()) + " s";
}

std::string perSecond(double rate) {
    return std::to_string(std::llround(rate));
}

/// To and from a driver process.
std::string trafficText(const DriverTable::Driver& driver) {
    return driver.shownPid() > 0 ? perSecond(driver.receivedPerSecond) + "/" + perSecond(driver.sentPerSecond)
                                 : "-";
}

std::string depthText(const DriverTable::Driver& driver,
                      const std::vector<sal::MessageQueue::Status>& queues) {
    std::string in;
    std::string out;
    for (const auto& queue : queues) {
        if (queue.name == protocol::inputQueue(driver.id))
            in = std::to_string(queue.depth);
        else if (queue.name == protocol::outputQueue(driver.id))
            out = std::to_string(queue.depth);
    }
    return in.empty() && out.empty() ? "-" : in + "/" + out;
}

bool hasTime(const DriverTable::Driver& driver) {
    return driver.state != EDriverState::NotLoaded;
}

}  // namespace

HostCommands::HostCommands(Context context) : m_context(std::move(context)) {}

void HostCommands::registerCommands() {
    struct Command {
        const char* name;
        const char* help;
        bool (HostCommands::*handler)(sal::CmdParameters&);
    };
    const Command commands[] = {
        {"help", "help [<command>]\n\tlists the commands, or tells how to use one.", &HostCommands::help},
        {"quit", "quit\n\tstops all drivers and ends the host.", &HostCommands::quit},
        {"drivers", "drivers\n\tlists the drivers of the workplace and how they are.",
         &HostCommands::drivers},
        {"modules", "modules\n\tlists the available and the used driver modules.", &HostCommands::modules},
        {"state",
         "state [--now] [<pattern>]\n\tlists the state values, those that match a pattern such as SYS.*; "
         "with "
         "--now a script does not wait for what is on its way.",
         &HostCommands::state},
        {"events", "events\n\tlists the last events.", &HostCommands::events},
        {"queues", "queues\n\tlists the message queues of the driver processes.", &HostCommands::queues},
        {"stopDriver",
         "stopDriver <driverID>\n\tunloads a driver and keeps it so, when the host is started again too, "
         "until "
         "startDriver.",
         &HostCommands::stopDriver},
        {"startDriver", "startDriver <driverID>\n\tstarts a driver that was stopped, or that has ended.",
         &HostCommands::startDriver},
    };
    for (const Command& command : commands)
        sal::CmdProcessor::getInstance()->registerCmd(
            new sal::CmdRegisterImpl<HostCommands>(command.name, command.help, this, command.handler));
}

bool HostCommands::setsState(const std::string& command) {
    return command == "setStateValue" || command == "unsetStateValue" || command == "triggerEvent";
}

bool HostCommands::isAnsweredAnywhere(const std::vector<std::string>& words) {
    const std::string& command = words.front();
    // The card of a single driver shows what the command thread alone may look at.
    if (command == "drivers")
        return words.size() == 1 || words[1].starts_with('-');
    return command == "help" || command == "quit" || command == "state" || command == "events" ||
           command == "queues";
}

void HostCommands::answer(std::vector<std::string> words) {
    const std::string command = words.front();
    words.erase(words.begin());
    sal::CmdParameters parameters(std::move(words));
    const bool isUseAsked = parameters.argument(0) == "--help";
    const bool isDone =
        !isUseAsked &&
        ((command == "drivers" && drivers(parameters)) || (command == "help" && help(parameters)) ||
         (command == "quit" && quit(parameters)) || (command == "state" && state(parameters)) ||
         (command == "events" && events(parameters)) || (command == "queues" && queues(parameters)));
    if (!isDone)
        sal::CmdProcessor::getInstance()->help(command, m_context.reply());
}

bool HostCommands::help(sal::CmdParameters& parameters) {
    // An unknown name is answered by the processor; the help of help would say nothing more.
    sal::CmdProcessor::getInstance()->help(parameters.argument(0), m_context.reply());
    return true;
}

bool HostCommands::quit(sal::CmdParameters&) {
    m_context.quit();
    return true;
}

bool HostCommands::stopDriver(sal::CmdParameters& parameters) {
    const std::string driverID = parameters.argument(0);
    if (driverID.empty())
        return false;
    if (const std::string reason = m_context.park(driverID); !reason.empty())
        m_context.reply() << base::printable(driverID + " is not stopped: " + reason) << std::endl;
    return true;
}

bool HostCommands::startDriver(sal::CmdParameters& parameters) {
    const std::string driverID = parameters.argument(0);
    if (driverID.empty())
        return false;
    if (const std::string reason = m_context.unpark(driverID); !reason.empty())
        m_context.reply() << base::printable(driverID + " is not started: " + reason) << std::endl;
    return true;
}

bool HostCommands::drivers(sal::CmdParameters&) {
    m_context.lookForEnds();
    const auto queues = sal::MessageQueue::statuses();
    const auto now = m_context.now();
    Table table({"ID", "type", "version", "mode", "process", "status", "since", "restarts", "last cause",
                 "next try", "msg/s in/out", "queued in/out", "values lost"});
    std::map<std::string, std::uint64_t> lost;
    for (const StateStore::Loss& loss : m_context.store.losses()) {
        if (loss.owner.kind == StateStore::EOwner::Driver)
            lost[loss.owner.driverID] = loss.values;
    }
    for (const DriverTable::Driver& driver : m_context.drivers.drivers())
        table.addRow({driver.id, driver.type, driver.version, inWords(driver.interfaceType),
                      driver.shownPid() > 0 ? std::to_string(driver.shownPid()) : "-",
                      driverStatus(driver, queues), hasTime(driver) ? timeText(driver.since) : "-",
                      std::to_string(driver.restarts), driver.cause.empty() ? "-" : driver.cause,
                      nextTryText(driver, now), trafficText(driver), depthText(driver, queues),
                      std::to_string(lost[driver.id])});
    table.print(m_context.reply());
    return true;
}

bool HostCommands::modules(sal::CmdParameters&) {
    m_context.showModules();
    return true;
}

bool HostCommands::state(sal::CmdParameters& parameters) {
    const bool isNow = parameters.argument(0) == "--now";
    if (!isNow)
        m_context.settle();
    m_context.lookForEnds();
    const std::string pattern = parameters.argument(isNow ? 1 : 0);
    const auto now = m_context.now();
    Table table({"key", "type", "value", "set by", "age", "holds"});
    for (const StateStore::Entry& entry : m_context.store.entries(pattern))
        table.addRow({entry.key, entry.value.typeName(), entry.value.text(), entry.owner.text(),
                      ageText(now - entry.reported),
                      entry.isStale()
                          ? "stale for " + ageText(now - entry.staleSince) + " (" + entry.staleCause + ")"
                          : "yes"});
    if (table.empty())
        m_context.reply() << (pattern.empty() ? "no state values"
                                              : "no state value matches " + base::printable(pattern))
                          << std::endl;
    else
        table.print(m_context.reply());
    for (const StateStore::Loss& loss : m_context.store.losses())
        m_context.reply() << base::printable(loss.owner.text()) << ": " << loss.values << " new "
                          << (loss.values == 1 ? "value" : "values") << " dropped, at most " << loss.limit
                          << " are kept" << std::endl;
    return true;
}

bool HostCommands::events(sal::CmdParameters&) {
    m_context.settle();
    Table table({"time", "event", "value", "from"});
    for (const StateStore::Event& event : m_context.store.events())
        table.addRow({timeText(event.when), event.id, event.value, event.owner.text()});
    if (table.empty())
        m_context.reply() << "no events" << std::endl;
    else
        table.print(m_context.reply());
    return true;
}

bool HostCommands::queues(sal::CmdParameters&) {
    Table table({"queue", "depth", "capacity", "highest", "messages", "bytes", "waits", "waiting", "holders",
                 "receiver"});
    for (const auto& queue : sal::MessageQueue::statuses())
        table.addRow({queue.name, std::to_string(queue.depth), std::to_string(queue.capacity),
                      std::to_string(queue.highWater), std::to_string(queue.messages),
                      std::to_string(queue.bytes), std::to_string(queue.waits),
                      queue.waitingForMs ? std::to_string(queue.waitingForMs) + " ms" : "-",
                      std::to_string(queue.holders), queue.receiverAttached ? "yes" : "no"});
    if (table.empty())
        m_context.reply() << "no queues" << std::endl;
    else
        table.print(m_context.reply());
    return true;
}
