#pragma once

#include <spdlog/common.h>

namespace sal {

// The levels of sal::LogOutput and those of the library that writes the log.

/// What is beyond the scale counts as its end.
int withinScale(int level);
spdlog::level::level_enum toSpdlog(int level);
int fromSpdlog(spdlog::level::level_enum level);

}  // namespace sal
