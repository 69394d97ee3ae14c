#include "WrapperOptions.h"

#include <charconv>
#include <cstring>

namespace {

/// The number in a variable; fallback when it is not set or is no whole number from minimum to maximum.
int number(const WrapperOptions::Environment& environment, const char* name, int minimum, int maximum,
           int fallback, std::vector<std::string>& complaints) {
    const char* pText = environment(name);
    if (!pText || !*pText)
        return fallback;
    int value = 0;
    const char* pEnd = pText + std::strlen(pText);
    const auto result = std::from_chars(pText, pEnd, value);
    if (result.ec == std::errc() && result.ptr == pEnd && value >= minimum && value <= maximum)
        return value;
    complaints.push_back(std::string(name) + "=" + pText + " is not a number from " +
                         std::to_string(minimum) + " to " + std::to_string(maximum) + "; " +
                         std::to_string(fallback) + " is used");
    return fallback;
}

}  // namespace

WrapperOptions WrapperOptions::parse(const std::vector<std::string>& arguments,
                                     const Environment& environment) {
    WrapperOptions options;
    options.usable = arguments.size() == 2 && !arguments[0].empty() && !arguments[1].empty();
    if (options.usable) {
        options.modulePath = arguments[0];
        options.driverID = arguments[1];
    }
    options.logLevel = number(environment, "MFD_LOG_LEVEL", 1, 5, options.logLevel, options.complaints);
    options.stopTimeout =
        std::chrono::seconds(number(environment, "MFD_STOP_TIMEOUT", 0, 86400,
                                    static_cast<int>(options.stopTimeout.count()), options.complaints));
    return options;
}
