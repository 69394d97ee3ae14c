#pragma once

#include <string>

#include "sal/Export.h"

namespace sal {

/// One line of the host framework's own into the log. In a program without a log, lines up to level 3 go to
/// standard error. Any thread.
SAL_API void logLine(const char* output, int level, const std::string& text);

/// As LogManager::flush; does nothing in a program without a log.
void flushLog();

}  // namespace sal
