#include "LocalTime.h"

#include <cstring>
#include <ctime>
#include <optional>

namespace {

std::optional<std::tm> local(const std::string& time) {
    std::tm parts{};
    const char* pEnd = ::strptime(time.c_str(), "%Y-%m-%dT%H:%M:%S", &parts);
    if (!pEnd || time.empty() || time.back() != 'Z')
        return std::nullopt;
    const std::time_t seconds = ::timegm(&parts);
    std::tm result{};
    if (!::localtime_r(&seconds, &result))
        return std::nullopt;
    return result;
}

std::string formatted(const std::string& time, const char* pFormat) {
    const auto parts = local(time);
    char text[32];
    if (!parts || std::strftime(text, sizeof text, pFormat, &*parts) == 0)
        return time;
    return text;
}

}  // namespace

std::string localTime(const std::string& time) {
    return formatted(time, "%Y-%m-%d %H:%M:%S");
}

std::string localTimeOfDay(const std::string& time) {
    return formatted(time, "%H:%M:%S");
}
