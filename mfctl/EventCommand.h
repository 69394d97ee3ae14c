#pragma once

#include <string>

#include "EExit.h"
#include "RemoteControl.h"
#include "StreamChoice.h"

/// mfctl events: what has happened last, and what happens: function IDs, events, commands, starts and ends of
/// drivers, as the host's stream has them. Of a host that does not record, the last events. Main thread.
class EventCommand {
public:
    struct Choice {
        StreamChoice what = {};
        unsigned lines = 50;  ///< at most so many of what was
        bool follows = false;
    };
    explicit EventCommand(RemoteControl& control) : m_control(control) {}

    /// When it follows, until the process is ended; a host that goes is waited for. Throws a ControlError
    /// where the choice is none, or is of what a host that does not record cannot tell.
    EExit show(const Choice& choice);

private:
    RemoteControl& m_control;
};
