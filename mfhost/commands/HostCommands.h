#pragma once

#include <cstdint>
#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "AlarmList.h"
#include "DriverTable.h"
#include "StateStore.h"
#include "Table.h"
#include "Workplace.h"
#include "sal/CmdParameters.h"
#include "sal/MessageQueue.h"

/// The host's own console commands: help, quit, drivers, modules, state, events, queues, alarms, acknowledge,
/// shelve, follow, unfollow, stopDriver and startDriver. Owned by CommandShell; outlives every executed line.
/// Command thread.
class HostCommands {
public:
    struct Context {
        const StateStore& store;
        const DriverTable& drivers;
        AlarmList& alarms;
        /// Where the reply of the running command goes.
        std::function<std::ostream&()> reply;
        std::function<void()> quit;
        std::function<void()> showModules;
        /// Lets the drivers answer what a script sent them before it asks for the outcome.
        std::function<void()> settle;
        /// Has the ends of processes looked for, before the drivers or their values are shown.
        std::function<void()> lookForEnds;
        /// Unload a driver for as long as it is not given back, and give it back. Why it is not done, or
        /// empty.
        std::function<std::string(const std::string& driverID)> park;
        std::function<std::string(const std::string& driverID)> unpark;
        /// The time that ages and the next try are counted from.
        std::function<StateStore::Clock::time_point()> now = StateStore::Clock::now;
        /// How the reply of the running command is shown.
        std::function<base::Table::Look()> look = [] { return base::Table::Look(); };
        /// The running command has not done what it was to do, and has said why.
        std::function<void()> refused = [] {};
        /// Prints each change that matches from now on; false when nothing was followed that could end.
        std::function<void(const std::string& glob)> follow = [](const auto&) {};
        std::function<bool()> unfollow = [] { return false; };
        /// Where the parts of a driver lie.
        std::function<Workplace::Place(const std::string& driverID)> place = [](const auto&) {
            return Workplace::Place();
        };
    };

    explicit HostCommands(Context context);

    /// Adds the commands to the command processor.
    void registerCommands();

    /// Whether it is one of the commands whose values the operator sets, though the keys name drivers. Any
    /// thread.
    static bool setsState(const std::string& command);

    /// Whether answer() takes these words, the command's name first: what it looks at may be looked at by any
    /// thread, and it waits for no driver. Any thread.
    static bool isAnsweredAnywhere(const std::vector<std::string>& words);
    /// Executes such a command outside the command processor. Any thread; the reply and the outcome are that
    /// thread's.
    void answer(std::vector<std::string> words);

private:
    struct Command {
        const char* pName;
        const char* pHelp;
        bool (HostCommands::*pHandler)(sal::CmdParameters&);
        /// It waits for no driver, and what it looks at has a lock of its own.
        bool isAnsweredAnywhere = false;
    };
    static const std::vector<Command>& commands();
    static const Command* find(const std::string& name);

    bool help(sal::CmdParameters& parameters);
    bool quit(sal::CmdParameters& parameters);
    bool drivers(sal::CmdParameters& parameters);
    bool modules(sal::CmdParameters& parameters);
    bool state(sal::CmdParameters& parameters);
    bool events(sal::CmdParameters& parameters);
    bool queues(sal::CmdParameters& parameters);
    bool stopDriver(sal::CmdParameters& parameters);
    bool startDriver(sal::CmdParameters& parameters);
    bool alarms(sal::CmdParameters& parameters);
    bool acknowledge(sal::CmdParameters& parameters);
    bool shelve(sal::CmdParameters& parameters);
    bool follow(sal::CmdParameters& parameters);
    bool unfollow(sal::CmdParameters& parameters);

    using Queues = std::vector<sal::MessageQueue::Status>;
    base::Table wideTable(const Queues& queues) const;
    base::Table shortTable(const Queues& queues) const;
    bool driverCard(const std::string& driverID, const Queues& queues) const;
    std::uint64_t valuesLost(const std::string& driverID) const;
    void print(const base::Table& table) const;
    void print(const base::Table& wide, const base::Table& narrow, const std::string& option) const;
    void refuse(const std::string& text) const;

    const Context m_context;
};
