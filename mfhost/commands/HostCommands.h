#pragma once

#include <functional>
#include <ostream>
#include <string>

#include "DriverRoster.h"
#include "StateStore.h"
#include "sal/CmdParameters.h"

/// The host's own console commands: help, quit, drivers, modules, state, events, queues. Owned by Host;
/// outlives every executed line. Command thread.
class HostCommands {
public:
    struct Context {
        const StateStore& store;
        const DriverRoster& roster;
        /// Where the reply of the running command goes.
        std::function<std::ostream&()> reply;
        std::function<void()> quit;
        std::function<void()> showModules;
        /// Lets the drivers answer what a script sent them before it asks for the outcome.
        std::function<void()> settle;
        /// The time that ages and the next try are counted from.
        std::function<StateStore::Clock::time_point()> now = StateStore::Clock::now;
    };

    explicit HostCommands(Context context);

    /// Adds the commands to the command processor.
    void registerCommands();

    /// Whether it is one of the commands whose values the operator sets, though the keys name drivers. Any
    /// thread.
    static bool setsState(const std::string& command);

private:
    bool help(sal::CmdParameters& parameters);
    bool quit(sal::CmdParameters& parameters);
    bool drivers(sal::CmdParameters& parameters);
    bool modules(sal::CmdParameters& parameters);
    bool state(sal::CmdParameters& parameters);
    bool events(sal::CmdParameters& parameters);
    bool queues(sal::CmdParameters& parameters);

    const Context m_context;
};
