#include "LocalTime.h"

#include "TimeText.h"

std::string localTime(const std::string& time) {
    const auto when = base::utcTime(time);
    return when ? base::timeText(*when) : time;
}

std::string localTimeOfDay(const std::string& time) {
    const auto when = base::utcTime(time);
    return when ? base::timeOfDayText(*when) : time;
}
