#pragma once

#include <string_view>

namespace sal {

// The log line that says why a driver module could not be loaded: this, the path, that, the reason. Whoever
// runs a process that loads a module finds the reason in its log by them.
inline constexpr std::string_view s_cannotLoad = "cannot load the driver module ";
inline constexpr std::string_view s_faultFollows = ": ";

}  // namespace sal
