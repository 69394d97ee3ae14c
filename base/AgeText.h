#pragma once

#include <chrono>
#include <string>

namespace base {

/// An age in its largest unit that leaves at least two: "90 s", "5 min", "30 h", "3 d". A negative one is
/// "0 s". Any thread.
std::string ageText(std::chrono::nanoseconds age);

}  // namespace base
