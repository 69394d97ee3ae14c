#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace base {

/// A time in this process's time zone: "2026-11-22 13:15:16". Any thread, as the others.
std::string timeText(std::chrono::system_clock::time_point when);
/// The same without the date: "13:15:16".
std::string timeOfDayText(std::chrono::system_clock::time_point when);
/// The time as programs read it, of RFC 3339: in UTC with milliseconds, "2026-11-22T12:15:16.900Z".
std::string utcText(std::chrono::system_clock::time_point when);
/// What time such a text names, with or without a fraction of a second; nothing for any other text, and for a
/// time that the clock cannot tell (before 1678, after 2261).
std::optional<std::chrono::system_clock::time_point> utcTime(const std::string& text);
/// When something is due: "in 4 s", begun seconds counted; "now" when no time is left.
std::string dueText(std::chrono::nanoseconds left);

}  // namespace base
