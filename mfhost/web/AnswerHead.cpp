#include "AnswerHead.h"

#include <time.h>

#include <array>
#include <boost/beast/http/status.hpp>

namespace {

/// As HTTP has it, whatever the locale is: "Sun, 06 Nov 1994 08:49:37 GMT".
std::string dateText(std::chrono::system_clock::time_point now) {
    static constexpr std::array<const char*, 7> s_days{"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    static constexpr std::array<const char*, 12> s_months{"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                          "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
    std::tm utc{};
    ::gmtime_r(&seconds, &utc);
    const auto two = [](int number) { return (number < 10 ? "0" : "") + std::to_string(number); };
    return s_days.at(static_cast<std::size_t>(utc.tm_wday)) + std::string(", ") + two(utc.tm_mday) + " " +
           s_months.at(static_cast<std::size_t>(utc.tm_mon)) + " " + std::to_string(utc.tm_year + 1900) +
           " " + two(utc.tm_hour) + ":" + two(utc.tm_min) + ":" + two(utc.tm_sec) + " GMT";
}

}  // namespace

std::string answerHead(const ApiAnswer& answer, bool closes, std::chrono::system_clock::time_point now,
                       bool isVersion10) {
    std::string head = "HTTP/1.1 " + std::to_string(answer.status) + " ";
    head += boost::beast::http::obsolete_reason(boost::beast::http::int_to_status(answer.status));
    head += "\r\nDate: " + dateText(now);
    // What has not changed has no body, and the length that it would have is not told.
    if (answer.status != 304) {
        head += "\r\nContent-Type: " + answer.contentType;
        // Where one ends that is given in pieces the former version sees by the end of the connection.
        if (!answer.pMore)
            head += "\r\nContent-Length: " + std::to_string(answer.body.size());
        else if (!isVersion10)
            head += "\r\nTransfer-Encoding: chunked";
    }
    head += "\r\nCache-Control: " + answer.cache;
    for (const auto& [name, value] : answer.fields)
        head += "\r\n" + name + ": " + value;
    if (!answer.allow.empty())
        head += "\r\nAllow: " + answer.allow;
    // The former version closes where nothing is said.
    head += closes ? "\r\nConnection: close" : "\r\nConnection: keep-alive";
    head += "\r\n\r\n";
    return head;
}
