#pragma once

#include <compare>
#include <cstdint>
#include <string>

/// How much of what changes in the host somebody has been told. Zero of each: nothing.
struct LivePosition {
    std::uint64_t store = 0;  ///< a version of the state store
    std::uint64_t drivers = 0;
    std::uint64_t alarms = 0;
    std::uint64_t controls = 0;
    std::uint64_t records = 0;

    auto operator<=>(const LivePosition&) const = default;
};

/// What has changed since a position.
struct LiveChanges {
    LivePosition end;      ///< to ask with the next time
    bool isWhole = false;  ///< what is not named in it does not exist
    /// Members of a JSON object with commas between them, without the object's brackets; empty for nothing.
    std::string members;
};

/// What the pages of the web panel are told. API thread.
class ILiveSource {
public:
    virtual ~ILiveSource() = default;

    /// Members as above: which host this is.
    virtual std::string host() const = 0;
    /// Looks at all that changes; what is told until the next look is of this moment or later.
    virtual void look() = 0;
    virtual LiveChanges changes(const LivePosition& since) const = 0;
};
