#pragma once

#include <ostream>

#include "sal/LogManager.h"
#include "sal/LogOutput.h"

/// The calling thread's stream of the host's own log output. A line is ended with std::endl.
inline std::ostream& hostLog(int level) {
    return sal::LogManager::getInstance()->getLogOutput("HOST")->level(level);
}
