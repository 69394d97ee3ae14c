#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

/// What the process was started with: two arguments, and the settings that the host passes on as MFD_*
/// variables.
struct WrapperOptions {
    std::string modulePath;
    std::string driverID;
    int logLevel = 4;  ///< MFD_LOG_LEVEL, 1 to 5
    std::chrono::milliseconds stopTimeout{
        3000};                      ///< MFD_STOP_TIMEOUT, in seconds: what the host gives a driver to stop
    std::uint64_t descriptors = 0;  ///< MFD_DESCRIPTORS, how many it may have; 0 leaves the limit as it is
    std::chrono::seconds debuggerPatience{0};  ///< MFD_WAIT_FOR_DEBUGGER: how long to wait for one; 0 for not
    std::vector<std::string> complaints;       ///< settings that were no good and so have their defaults

    bool usable = false;  ///< the arguments are the two that are wanted

    using Environment = std::function<const char*(const char*)>;  ///< as std::getenv
    static WrapperOptions parse(const std::vector<std::string>& arguments, const Environment& environment);
};
