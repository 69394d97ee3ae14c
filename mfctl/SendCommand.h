#pragma once

#include <string>
#include <vector>

#include "EExit.h"
#include "RemoteControl.h"

/// mfctl send: sends a function ID and tells what became of it. Main thread.
class SendCommand {
public:
    explicit SendCommand(RemoteControl& control) : m_control(control) {}

    /// words: NAME=VALUE each. stage: how far it is waited for, at most as long as limit. A word of another
    /// shape is refused before anything is sent: a ControlError (2) says what was meant.
    EExit run(const std::string& fid, const std::vector<std::string>& words, const std::string& stage,
              ApiClient::Milliseconds limit);

    /// The words as pairs of name and value, in their order.
    static ApiClient::Json parameters(const std::vector<std::string>& words);

private:
    RemoteControl& m_control;
};
