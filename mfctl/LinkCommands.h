#pragma once

#include "EExit.h"
#include "RemoteControl.h"

/// mfctl's commands about the links to other workplaces. Main thread.
class LinkCommands {
public:
    explicit LinkCommands(RemoteControl& control) : m_control(control) {}

    EExit list();

private:
    RemoteControl& m_control;
};
