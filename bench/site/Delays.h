#pragma once

#include <algorithm>
#include <cstdint>
#include <limits>
#include <vector>

/// What one thread has measured of delays, in nanoseconds, and the outcomes of its FIDs. A value.
struct Delays {
    std::vector<std::uint32_t> values{};  ///< from the change to the report at the other side
    std::vector<std::uint32_t> ways{};    ///< the part of it after the link had taken the change
    std::vector<std::uint32_t> fids{};    ///< from sending to its reply
    std::uint64_t notDone = 0;            ///< FIDs that were answered with anything else

    void add(const Delays& other) {
        values.insert(values.end(), other.values.begin(), other.values.end());
        ways.insert(ways.end(), other.ways.begin(), other.ways.end());
        fids.insert(fids.end(), other.fids.begin(), other.fids.end());
        notDone += other.notDone;
    }
    /// As it is kept: what is longer than four seconds is four seconds.
    static std::uint32_t kept(std::int64_t nanoseconds) {
        return static_cast<std::uint32_t>(
            std::clamp<std::int64_t>(nanoseconds, 0, std::numeric_limits<std::uint32_t>::max()));
    }
};
