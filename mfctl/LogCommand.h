#pragma once

#include <string>
#include <vector>

#include "EExit.h"
#include "RemoteControl.h"

/// mfctl log: the last lines of the host's log, and those that come. Main thread.
class LogCommand {
public:
    struct Choice {
        std::string driver;  ///< empty: all
        unsigned level = 0;  ///< the least urgent, from 1 (critical) to 5 (trace); 0: all
        unsigned lines = 50;
    };
    explicit LogCommand(RemoteControl& control) : m_control(control) {}

    EExit show(const Choice& choice);
    /// Goes on with what comes, until the process is ended. A host that goes is waited for.
    EExit follow(const Choice& choice);

    /// How many of the lines at the front of what the host has now stood at the end of what it had before.
    static std::size_t known(const std::vector<std::string>& before, const std::vector<std::string>& now);

private:
    EExit poll(const Choice& choice);

    RemoteControl& m_control;
};
