#include "HostCommands.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <map>
#include <string>
#include <system_error>
#include <utility>

#include "AgeText.h"
#include "DriverColour.h"
#include "DriverStatus.h"
#include "Printable.h"
#include "QueueNames.h"
#include "TimeText.h"
#include "sal/CmdProcessor.h"
#include "sal/CmdRegisterImpl.h"
#include "sal/MessageQueue.h"

using base::ageText;
using base::Table;
using base::timeText;

namespace {

/// A week: whoever wants to hear of something even later does not want to hear of it.
// Who sits there is not known.
constexpr const char* s_shelver = "the console";

std::string nextTryText(const DriverTable::Driver& driver, StateStore::Clock::time_point now) {
    return driver.nextTry ? base::dueText(*driver.nextTry - now) : "-";
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

std::string processText(const DriverTable::Driver& driver) {
    return driver.shownPid() > 0 ? std::to_string(driver.shownPid()) : "-";
}

std::string orNothing(const std::string& text) {
    return text.empty() ? "-" : text;
}

Table::Cell statusCell(const DriverTable::Driver& driver,
                       const std::vector<sal::MessageQueue::Status>& queues) {
    const std::string text = driverStatus(driver, queues);
    return {text, driverColour(text)};
}

Table::Cell holdsCell(const StateStore::Entry& entry, StateStore::Clock::time_point now) {
    if (!entry.isStale())
        return "yes";
    return {"stale for " + ageText(now - entry.staleSince) + " (" + entry.staleCause + ")",
            Table::EColour::Warning};
}

}  // namespace

HostCommands::HostCommands(Context context) : m_context(std::move(context)) {}

const std::vector<HostCommands::Command>& HostCommands::commands() {
    static const std::vector<Command> s_commands = {
        {"help", "help [<command>]\n\tlists the commands, or tells how to use one.", &HostCommands::help,
         true},
        {"quit", "quit\n\tstops all drivers and ends the host.", &HostCommands::quit, true},
        {"drivers",
         "drivers [-s|-l|<driverID>]\n\tlists the drivers of the workplace and how they are: what matters "
         "(-s), everything (-l), or everything of one.",
         &HostCommands::drivers, true},
        {"modules", "modules\n\tlists the available and the used driver modules.", &HostCommands::modules},
        {"state",
         "state [--now] [<pattern>]\n\tlists the state values, those that match a pattern such as SYS.*; "
         "with --now a script does not wait for what is on its way.",
         &HostCommands::state, true},
        {"events", "events\n\tlists the last events.", &HostCommands::events, true},
        {"queues",
         "queues [-s|-l]\n\tlists the message queues of the driver processes: what matters (-s), or "
         "everything (-l).",
         &HostCommands::queues, true},
        {"stopDriver",
         "stopDriver <driverID>\n\tunloads a driver and keeps it so, when the host is started again too, "
         "until startDriver.",
         &HostCommands::stopDriver},
        {"startDriver", "startDriver <driverID>\n\tstarts a driver that was stopped, or that has ended.",
         &HostCommands::startDriver},
        {"alarms", "alarms\n\tlists the alarms that nobody has acknowledged.", &HostCommands::alarms, true},
        {"acknowledge", "acknowledge <alarm>|all\n\ttakes an alarm off the list until it is raised again.",
         &HostCommands::acknowledge, true},
        {"shelve",
         "shelve <alarm> <seconds>\n\tkeeps an alarm out of sight for that time, even when it is raised "
         "again.",
         &HostCommands::shelve, true},
        {"follow",
         "follow [<pattern>]\n\tprints each change of a value and each event as it comes, those that match a "
         "pattern such as SYS.*, until unfollow.",
         &HostCommands::follow},
        {"unfollow", "unfollow\n\tends what follow or --follow began.", &HostCommands::unfollow},
    };
    return s_commands;
}

const HostCommands::Command* HostCommands::find(const std::string& name) {
    const auto found = std::find_if(commands().begin(), commands().end(),
                                    [&](const Command& command) { return command.pName == name; });
    return found == commands().end() ? nullptr : &*found;
}

void HostCommands::registerCommands() {
    for (const Command& command : commands())
        sal::CmdProcessor::getInstance()->registerCmd(
            new sal::CmdRegisterImpl<HostCommands>(command.pName, command.pHelp, this, command.pHandler));
}

bool HostCommands::setsState(const std::string& command) {
    return command == "setStateValue" || command == "unsetStateValue" || command == "triggerEvent";
}

bool HostCommands::isAnsweredAnywhere(const std::vector<std::string>& words) {
    const Command* pCommand = find(words.front());
    if (!pCommand || !pCommand->isAnsweredAnywhere)
        return false;
    // The card of a single driver shows what the command thread alone may look at.
    return words.front() != "drivers" || words.size() == 1 || words[1].starts_with('-');
}

void HostCommands::answer(std::vector<std::string> words) {
    const std::string name = words.front();
    words.erase(words.begin());
    sal::CmdParameters parameters(std::move(words));
    const Command* pCommand = find(name);
    const bool isUseAsked = parameters.argument(0) == "--help";
    if (!isUseAsked && pCommand && (this->*pCommand->pHandler)(parameters))
        return;
    sal::CmdProcessor::getInstance()->help(name, m_context.reply());
    if (!isUseAsked)
        m_context.refused();
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
        refuse(driverID + " is not stopped: " + reason);
    return true;
}

bool HostCommands::startDriver(sal::CmdParameters& parameters) {
    const std::string driverID = parameters.argument(0);
    if (driverID.empty())
        return false;
    if (const std::string reason = m_context.unpark(driverID); !reason.empty())
        refuse(driverID + " is not started: " + reason);
    return true;
}

bool HostCommands::drivers(sal::CmdParameters& parameters) {
    const std::string word = parameters.argument(0);
    const bool isOption = word == "-l" || word == "-s";
    if (parameters.argumentCount() > 1 || (word.starts_with('-') && !isOption))
        return false;
    m_context.lookForEnds();
    const auto queues = sal::MessageQueue::statuses();
    if (!word.empty() && !isOption)
        return driverCard(word, queues);
    print(wideTable(queues), shortTable(queues), word);
    return true;
}

/// The wide one where it has room, unless the option says which.
void HostCommands::print(const Table& wide, const Table& narrow, const std::string& option) const {
    const Table::Look look = m_context.look();
    const bool hasRoom = look.width == 0 || wide.width() <= look.width;
    if (option == "-s" || (option.empty() && !hasRoom))
        narrow.print(m_context.reply(), look);
    else
        // What was asked for whole is not shortened.
        wide.print(m_context.reply(), {.width = 0, .isColoured = look.isColoured});
}

Table HostCommands::wideTable(const Queues& queues) const {
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
                      processText(driver), statusCell(driver, queues),
                      hasTime(driver) ? timeText(driver.since) : "-", std::to_string(driver.restarts),
                      orNothing(driver.cause), nextTryText(driver, now), trafficText(driver),
                      depthText(driver, queues), std::to_string(lost[driver.id])});
    return table;
}

/// What matters at a glance, in the width of a usual terminal.
Table HostCommands::shortTable(const Queues& queues) const {
    const auto now = m_context.now();
    Table table({"ID", "mode", "process", "status", "for", "restarts", "next try", "last cause"});
    for (const DriverTable::Driver& driver : m_context.drivers.drivers())
        table.addRow({driver.id, inWords(driver.interfaceType), processText(driver),
                      statusCell(driver, queues),
                      hasTime(driver) ? ageText(std::chrono::system_clock::now() - driver.since) : "-",
                      std::to_string(driver.restarts), nextTryText(driver, now), orNothing(driver.cause)});
    table.shorten({0, 7});
    return table;
}

bool HostCommands::driverCard(const std::string& driverID, const Queues& queues) const {
    const auto driver = m_context.drivers.find(driverID);
    if (!driver) {
        refuse("there is no driver " + driverID + "; drivers lists them");
        return true;
    }
    const Workplace::Place place = m_context.place(driverID);
    Table card({driver->id, ""});
    const auto add = [&](const char* what, Table::Cell value) {
        if (!value.text.empty())
            card.addRow({what, std::move(value)});
    };
    add("status", statusCell(*driver, queues));
    if (hasTime(*driver))
        add("since",
            timeText(driver->since) + " (" + ageText(std::chrono::system_clock::now() - driver->since) + ")");
    add("last cause", orNothing(driver->cause));
    add("next try", nextTryText(*driver, m_context.now()));
    add("restarts", std::to_string(driver->restarts));
    add("type", driver->version.empty() ? driver->type : driver->type + " " + driver->version);
    add("mode", inWords(driver->interfaceType));
    add("process", processText(*driver));
    add("module", place.module);
    add("descriptor", place.descriptor);
    add("directory", place.directory);
    add("address", place.ipAddress);
    add("adapter", place.networkAdapter);
    for (const auto& queue : queues) {
        const bool isInput = queue.name == protocol::inputQueue(driverID);
        if (isInput || queue.name == protocol::outputQueue(driverID))
            add(isInput ? "queue in" : "queue out",
                std::to_string(queue.depth) + " of " + std::to_string(queue.capacity) + " waiting, " +
                    std::to_string(queue.highWater) + " at most so far, " + std::to_string(queue.messages) +
                    " in all");
    }
    add("msg/s in/out", trafficText(*driver));
    add("values", std::to_string(m_context.store.keys(driverID + ".").size()));
    add("values lost", std::to_string(valuesLost(driverID)));
    card.print(m_context.reply(), {.width = 0, .isColoured = m_context.look().isColoured});
    return true;
}

std::uint64_t HostCommands::valuesLost(const std::string& driverID) const {
    for (const StateStore::Loss& loss : m_context.store.losses()) {
        if (loss.owner.kind == StateStore::EOwner::Driver && loss.owner.driverID == driverID)
            return loss.values;
    }
    return 0;
}

void HostCommands::print(const Table& table) const {
    table.print(m_context.reply(), m_context.look());
}

void HostCommands::refuse(const std::string& text) const {
    m_context.reply() << base::printable(text) << std::endl;
    m_context.refused();
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
                      ageText(now - entry.reported), holdsCell(entry, now)});
    table.shorten({0, 2, 5});
    if (table.empty())
        m_context.reply() << (pattern.empty() ? "no state values"
                                              : "no state value matches " + base::printable(pattern))
                          << std::endl;
    else
        print(table);
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
    table.shorten({1, 2});
    if (table.empty())
        m_context.reply() << "no events" << std::endl;
    else
        print(table);
    return true;
}

bool HostCommands::queues(sal::CmdParameters& parameters) {
    const std::string option = parameters.argument(0);
    if (!option.empty() && option != "-l" && option != "-s")
        return false;
    Table wide({"queue", "depth", "capacity", "highest", "messages", "bytes", "waits", "waiting", "holders",
                "receiver"});
    Table narrow({"queue", "depth", "capacity", "highest", "messages", "waiting", "receiver"});
    for (const auto& queue : sal::MessageQueue::statuses()) {
        const std::string depth = std::to_string(queue.depth);
        const std::string capacity = std::to_string(queue.capacity);
        const std::string highest = std::to_string(queue.highWater);
        const std::string messages = std::to_string(queue.messages);
        const std::string waiting = queue.waitingForMs ? std::to_string(queue.waitingForMs) + " ms" : "-";
        const char* receiver = queue.receiverAttached ? "yes" : "no";
        wide.addRow({queue.name, depth, capacity, highest, messages, std::to_string(queue.bytes),
                     std::to_string(queue.waits), waiting, std::to_string(queue.holders), receiver});
        narrow.addRow({queue.name, depth, capacity, highest, messages, waiting, receiver});
    }
    narrow.shorten({0});
    if (wide.empty())
        m_context.reply() << "no queues" << std::endl;
    else
        print(wide, narrow, option);
    return true;
}

bool HostCommands::alarms(sal::CmdParameters&) {
    const auto now = m_context.now();
    Table table({"alarm", "raised", "times", "now", "text"});
    for (const AlarmList::Alarm& alarm : m_context.alarms.alarms()) {
        Table::Cell state{alarm.isOver ? "over" : "on",
                          alarm.isOver ? Table::EColour::Warning : Table::EColour::Bad};
        if (alarm.shelvedUntil) {
            const auto left = std::chrono::ceil<std::chrono::seconds>(*alarm.shelvedUntil - now);
            state = {"shelved for " + ageText(left), Table::EColour::Faint};
        }
        table.addRow(
            {alarm.key, timeText(alarm.raised), std::to_string(alarm.count), std::move(state), alarm.text});
    }
    table.shorten({0, 4});
    if (table.empty())
        m_context.reply() << "no alarms" << std::endl;
    else
        print(table);
    if (const std::uint64_t dropped = m_context.alarms.dropped(); dropped > 0)
        m_context.reply() << dropped << " older " << (dropped == 1 ? "alarm is" : "alarms are")
                          << " not listed any more" << std::endl;
    return true;
}

bool HostCommands::acknowledge(sal::CmdParameters& parameters) {
    const std::string key = parameters.argument(0);
    if (key.empty())
        return false;
    if (key == "all")
        m_context.reply() << m_context.alarms.acknowledgeAll() << " acknowledged" << std::endl;
    else if (!m_context.alarms.acknowledge(key))
        refuse("there is no alarm " + key + "; alarms lists them");
    return true;
}

bool HostCommands::shelve(sal::CmdParameters& parameters) {
    const std::string key = parameters.argument(0);
    const std::string text = parameters.argument(1);
    unsigned int seconds = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), seconds);
    if (key.empty() || text.empty())
        return false;
    if (error != std::errc() || end != text.data() + text.size() || seconds == 0 ||
        seconds > AlarmList::s_longestShelving.count())
        refuse("\"" + text + "\" is no number of seconds from 1 to " +
               std::to_string(AlarmList::s_longestShelving.count()));
    else if (!m_context.alarms.shelve(key, std::chrono::seconds(seconds), s_shelver))
        refuse("there is no alarm " + key + "; alarms lists them");
    return true;
}

bool HostCommands::follow(sal::CmdParameters& parameters) {
    m_context.follow(parameters.argument(0));
    return true;
}

bool HostCommands::unfollow(sal::CmdParameters&) {
    if (!m_context.unfollow())
        m_context.reply() << "nothing is followed" << std::endl;
    return true;
}
