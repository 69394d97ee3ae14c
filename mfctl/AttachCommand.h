#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

#include "EExit.h"
#include "RemoteControl.h"

/// mfctl attach: the console of a running host. Lines go to the host one after another; what they print comes
/// back. Main thread.
class AttachCommand {
public:
    explicit AttachCommand(RemoteControl& control) : m_control(control) {}

    /// Until the end of input, or "detach" at a terminal; the host goes on. For lines of a pipe: the exit
    /// code of the last line that failed.
    EExit run();

private:
    using Clock = std::chrono::steady_clock;

    EExit execute(const std::string& line, const std::string& place, std::size_t columns);
    bool isMeant(const std::string& line);
    std::vector<std::string> complete(const std::vector<std::string>& before, const std::string& prefix);
    std::string notice();

    RemoteControl& m_control;
    std::string m_former;
    std::string m_notice;
    Clock::time_point m_nextLook;  ///< at the alarms
};
