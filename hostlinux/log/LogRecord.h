#pragma once

#include <spdlog/common.h>

#include <string>

namespace sal {

/// One line of the log as it was when it was logged.
struct LogRecord {
    spdlog::level::level_enum level = spdlog::level::info;
    spdlog::log_clock::time_point time;
    std::string output;
    std::string text;
};

}  // namespace sal
