#include "TimeText.h"

#include <cstdio>
#include <ctime>
#include <string_view>

namespace base {
namespace {

using Time = std::chrono::system_clock::time_point;

constexpr const char* s_utcFormat = "%Y-%m-%dT%H:%M:%S";
/// Of a second's fraction; what is finer than the clock is left out.
constexpr std::size_t s_mostDigits = 9;
/// What the clock can tell, by whole seconds.
constexpr auto s_earliest = std::chrono::ceil<std::chrono::seconds>(Time::min().time_since_epoch());
constexpr auto s_latest =
    std::chrono::floor<std::chrono::seconds>(Time::max().time_since_epoch()) - std::chrono::seconds(1);

/// The whole second. Before 1970 too, one begins at its whole number.
std::time_t secondOf(Time when) {
    return std::chrono::system_clock::to_time_t(std::chrono::floor<std::chrono::seconds>(when));
}

std::string formatted(const std::tm& parts, const char* pFormat) {
    char text[64];
    return std::string(text, std::strftime(text, sizeof text, pFormat, &parts));
}

std::string localText(Time when, const char* pFormat) {
    const std::time_t second = secondOf(when);
    std::tm local{};
    ::localtime_r(&second, &local);
    return formatted(local, pFormat);
}

/// ".123" is so long; nothing where it is no fraction.
std::optional<std::chrono::nanoseconds> fraction(std::string_view text) {
    if (text.empty())
        return std::chrono::nanoseconds(0);
    if (text.front() != '.' || text.size() < 2 || text.size() > s_mostDigits + 1 ||
        text.find_first_not_of("0123456789", 1) != std::string_view::npos)
        return std::nullopt;
    std::string digits(text.substr(1));
    digits.resize(s_mostDigits, '0');
    return std::chrono::nanoseconds(std::stol(digits));
}

}  // namespace

std::string timeText(Time when) {
    return localText(when, "%Y-%m-%d %H:%M:%S");
}

std::string timeOfDayText(Time when) {
    return localText(when, "%H:%M:%S");
}

std::string utcText(Time when) {
    const std::time_t second = secondOf(when);
    std::tm utc{};
    ::gmtime_r(&second, &utc);
    const auto rest =
        std::chrono::floor<std::chrono::milliseconds>(when - std::chrono::system_clock::from_time_t(second));
    char text[16];
    std::snprintf(text, sizeof text, ".%03dZ", static_cast<int>(rest.count()));
    return formatted(utc, s_utcFormat) + text;
}

std::optional<Time> utcTime(const std::string& text) {
    std::tm utc{};
    const char* pRest = ::strptime(text.c_str(), s_utcFormat, &utc);
    const std::string_view rest = pRest ? pRest : "";
    const auto part = rest.ends_with('Z') ? fraction(rest.substr(0, rest.size() - 1)) : std::nullopt;
    const std::chrono::seconds seconds(::timegm(&utc));
    if (!part || seconds < s_earliest || seconds > s_latest)
        return std::nullopt;
    return Time(seconds) + std::chrono::duration_cast<std::chrono::system_clock::duration>(*part);
}

std::string dueText(std::chrono::nanoseconds left) {
    const auto seconds = std::chrono::ceil<std::chrono::seconds>(left).count();
    return seconds <= 0 ? "now" : "in " + std::to_string(seconds) + " s";
}

}  // namespace base
