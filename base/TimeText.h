#pragma once

#include <chrono>
#include <string>

namespace base {

/// A time in this process's time zone: "2026-11-22 13:15:16". Any thread, as the others.
std::string timeText(std::chrono::system_clock::time_point when);
/// The same without the date: "13:15:16".
std::string timeOfDayText(std::chrono::system_clock::time_point when);
/// When something is due: "in 4 s", begun seconds counted; "now" when no time is left.
std::string dueText(std::chrono::nanoseconds left);

}  // namespace base
