#pragma once

#include <chrono>

namespace sal {
class LogOutput;
}

/// Waits until a debugger holds this process, and says so: breakpoints can then be set in a driver that is
/// not loaded yet. False, with a line, when none has come in time. Main thread.
bool waitForDebugger(std::chrono::seconds patience, sal::LogOutput& log);
