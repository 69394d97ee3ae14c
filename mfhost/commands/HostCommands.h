#pragma once

#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "DriverTable.h"
#include "StateStore.h"
#include "sal/CmdParameters.h"

/// The host's own console commands: help, quit, drivers, modules, state, events, queues, stopDriver and
/// startDriver. Owned by CommandShell; outlives every executed line. Command thread.
class HostCommands {
public:
    struct Context {
        const StateStore& store;
        const DriverTable& drivers;
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
    /// Executes such a command outside the command processor. Any thread; the reply is that thread's.
    void answer(std::vector<std::string> words);

private:
    bool help(sal::CmdParameters& parameters);
    bool quit(sal::CmdParameters& parameters);
    bool drivers(sal::CmdParameters& parameters);
    bool modules(sal::CmdParameters& parameters);
    bool state(sal::CmdParameters& parameters);
    bool events(sal::CmdParameters& parameters);
    bool queues(sal::CmdParameters& parameters);
    bool stopDriver(sal::CmdParameters& parameters);
    bool startDriver(sal::CmdParameters& parameters);

    const Context m_context;
};
