#include "Moment.h"

#include <ctime>
#include <regex>

#include "ControlError.h"
#include "Printable.h"

namespace {

using std::chrono::nanoseconds;

[[noreturn]] void refuse(const std::string& text) {
    throw ControlError(
        EExit::WrongUsage,
        base::quoted(text) +
            " is no moment: that is 14:03, 14:03:22.5, 2026-11-22 14:03, 2026-11-22T14:03:22Z, or "
            "90s, 5m, 2h, 3d for so long ago");
}

int numberOf(const std::ssub_match& digits) {
    return digits.matched ? std::stoi(digits.str()) : 0;
}

nanoseconds fractionOf(const std::ssub_match& digits) {
    std::string text = digits.matched ? digits.str() : "";
    text.resize(9, '0');
    return nanoseconds(std::stol(text));
}

stream::Time timeOf(const std::string& text, tm parts, bool isUtc) {
    tm checked = parts;
    const time_t seconds = isUtc ? ::timegm(&checked) : std::mktime(&checked);
    // The 31st of February would silently be another day.
    if (checked.tm_mday != parts.tm_mday || checked.tm_mon != parts.tm_mon || parts.tm_hour > 23 ||
        parts.tm_min > 59 || parts.tm_sec > 59)
        refuse(text);
    return stream::Time(std::chrono::seconds(seconds));
}

nanoseconds unitOf(char letter) {
    switch (letter) {
        case 's':
            return std::chrono::seconds(1);
        case 'm':
            return std::chrono::minutes(1);
        case 'h':
            return std::chrono::hours(1);
        default:
            return std::chrono::hours(24);
    }
}

}  // namespace

stream::Time momentOf(const std::string& text, stream::Time now) {
    static const std::regex s_age("([0-9]{1,5})([smhd])");
    static const std::regex s_date(
        "([0-9]{4})-([0-9]{2})-([0-9]{2})"
        "(?:[ T]([0-9]{2}):([0-9]{2})(?::([0-9]{2})(?:\\.([0-9]{1,9}))?)?(Z)?)?");
    static const std::regex s_time("([0-9]{1,2}):([0-9]{2})(?::([0-9]{2})(?:\\.([0-9]{1,9}))?)?");
    std::smatch found;
    tm parts{};
    parts.tm_isdst = -1;
    if (std::regex_match(text, found, s_age))
        return now - std::stol(found[1]) * unitOf(found[2].str().front());
    if (std::regex_match(text, found, s_date)) {
        parts.tm_year = numberOf(found[1]) - 1900;
        parts.tm_mon = numberOf(found[2]) - 1;
        parts.tm_mday = numberOf(found[3]);
        parts.tm_hour = numberOf(found[4]);
        parts.tm_min = numberOf(found[5]);
        parts.tm_sec = numberOf(found[6]);
        return timeOf(text, parts, found[8].matched) + fractionOf(found[7]);
    }
    if (!std::regex_match(text, found, s_time))
        refuse(text);
    const time_t today = std::chrono::floor<std::chrono::seconds>(now).time_since_epoch().count();
    ::localtime_r(&today, &parts);
    parts.tm_isdst = -1;
    parts.tm_hour = numberOf(found[1]);
    parts.tm_min = numberOf(found[2]);
    parts.tm_sec = numberOf(found[3]);
    const nanoseconds fraction = fractionOf(found[4]);
    stream::Time moment = timeOf(text, parts, false) + fraction;
    if (moment > now) {
        // Yesterday at noon is a day that there is, whatever the clock was set by.
        tm yesterday = parts;
        yesterday.tm_hour = 12;
        --yesterday.tm_mday;
        std::mktime(&yesterday);
        parts.tm_year = yesterday.tm_year;
        parts.tm_mon = yesterday.tm_mon;
        parts.tm_mday = yesterday.tm_mday;
        moment = timeOf(text, parts, false) + fraction;
    }
    return moment;
}
