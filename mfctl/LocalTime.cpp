#include "LocalTime.h"

#include <chrono>
#include <ctime>
#include <optional>

#include "TimeText.h"

namespace {

using Time = std::chrono::system_clock::time_point;

std::optional<Time> timeOf(const std::string& text) {
    std::tm parts{};
    const char* pEnd = ::strptime(text.c_str(), "%Y-%m-%dT%H:%M:%S", &parts);
    if (!pEnd || text.empty() || text.back() != 'Z')
        return std::nullopt;
    return std::chrono::system_clock::from_time_t(::timegm(&parts));
}

}  // namespace

std::string localTime(const std::string& time) {
    const auto when = timeOf(time);
    return when ? base::timeText(*when) : time;
}

std::string localTimeOfDay(const std::string& time) {
    const auto when = timeOf(time);
    return when ? base::timeOfDayText(*when) : time;
}
