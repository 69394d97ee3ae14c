#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <vector>

/// The target of a request, taken apart: /api/v1/drivers/AX%49S1?glob=a is the path "api", "v1", "drivers",
/// "AXIS1" and the parameter glob. With "http://" and the name of a host before it, it is the same. Any
/// thread.
struct ApiTarget {
    /// Bytes of a target.
    static constexpr std::size_t s_longest = 8192;

    std::vector<std::string> path;  ///< decoded; a slash that was encoded parts nothing
    std::map<std::string, std::string> query;

    /// An ApiFault says what is wrong: too long, no path, a character that must be encoded, an encoding that
    /// is none, a parameter that is empty or stands twice. A plus sign is one.
    static ApiTarget read(std::string_view target);

    /// An ApiFault names the first parameter that is none of these.
    void allowQuery(const std::vector<std::string>& names) const;
};
