#include "LogLevel.h"

#include <algorithm>

#include "sal/LogOutput.h"

namespace sal {

int withinScale(int level) {
    return std::clamp<int>(level, LogOutput::eCritical, LogOutput::eTrace);
}

spdlog::level::level_enum toSpdlog(int level) {
    switch (withinScale(level)) {
        case LogOutput::eCritical:
            return spdlog::level::critical;
        case LogOutput::eError:
            return spdlog::level::err;
        case LogOutput::eWarning:
            return spdlog::level::warn;
        case LogOutput::eInfo:
            return spdlog::level::info;
        default:
            return spdlog::level::trace;
    }
}

int fromSpdlog(spdlog::level::level_enum level) {
    switch (level) {
        case spdlog::level::critical:
            return LogOutput::eCritical;
        case spdlog::level::err:
            return LogOutput::eError;
        case spdlog::level::warn:
            return LogOutput::eWarning;
        case spdlog::level::info:
            return LogOutput::eInfo;
        default:
            return LogOutput::eTrace;
    }
}

}  // namespace sal
