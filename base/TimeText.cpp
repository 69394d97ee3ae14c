#include "TimeText.h"

#include <ctime>

namespace base {
namespace {

std::string formatted(std::chrono::system_clock::time_point when, const char* pFormat) {
    // Before 1970 too, a second begins at its whole number.
    const std::time_t seconds =
        std::chrono::system_clock::to_time_t(std::chrono::floor<std::chrono::seconds>(when));
    std::tm local{};
    ::localtime_r(&seconds, &local);
    char text[32];
    return std::string(text, std::strftime(text, sizeof text, pFormat, &local));
}

}  // namespace

std::string timeText(std::chrono::system_clock::time_point when) {
    return formatted(when, "%Y-%m-%d %H:%M:%S");
}

std::string timeOfDayText(std::chrono::system_clock::time_point when) {
    return formatted(when, "%H:%M:%S");
}

std::string dueText(std::chrono::nanoseconds left) {
    const auto seconds = std::chrono::ceil<std::chrono::seconds>(left).count();
    return seconds <= 0 ? "now" : "in " + std::to_string(seconds) + " s";
}

}  // namespace base
