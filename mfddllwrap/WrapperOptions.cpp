#include "WrapperOptions.h"

#include <charconv>
#include <cmath>
#include <cstring>
#include <sstream>

namespace {

/// The number in a variable; fallback when it is not set or is not one from minimum to maximum.
template <class Number>
Number number(const WrapperOptions::Environment& environment, const char* name, Number minimum,
              Number maximum, Number fallback, std::vector<std::string>& complaints) {
    const char* pText = environment(name);
    if (!pText || !*pText)
        return fallback;
    Number value{};
    const char* pEnd = pText + std::strlen(pText);
    const auto result = std::from_chars(pText, pEnd, value);
    if (result.ec == std::errc() && result.ptr == pEnd && value >= minimum && value <= maximum)
        return value;
    std::ostringstream complaint;
    complaint << name << "=" << pText << " is not a number from " << minimum << " to " << maximum << "; "
              << fallback << " is used";
    complaints.push_back(complaint.str());
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
    const double seconds = number(environment, "MFD_STOP_TIMEOUT", 0.0, 86400.0, 3.0, options.complaints);
    options.stopTimeout = std::chrono::milliseconds(std::llround(seconds * 1000));
    options.descriptors =
        number<std::uint64_t>(environment, "MFD_DESCRIPTORS", 0, UINT64_MAX, 0, options.complaints);
    options.debuggerPatience = std::chrono::seconds(
        number<std::uint32_t>(environment, "MFD_WAIT_FOR_DEBUGGER", 0, 3600, 0, options.complaints));
    return options;
}
