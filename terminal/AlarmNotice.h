#pragma once

#include <cstddef>
#include <string>

/// What stands before a prompt and in summaries while that many alarms are in sight: "2 alarms"; empty for
/// none. Any thread.
std::string alarmNotice(std::size_t inSight);
