#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "StreamKind.h"

namespace stream {

/// A place in a stream, to go on from: INSTANCE:RING:POSITION. With "both" for the ring, which is the rule,
/// the position is the number of the next record, and holds in rings and segments alike; with "values" or
/// "audit" it is the place of the next record in that ring. "oldest" and "newest" are places of any instance.
struct StreamCursor {
    enum class EPlace { Exact, Oldest, Newest };

    EPlace place = EPlace::Oldest;
    std::string instance;
    std::optional<ERing> ring;  ///< none: both
    std::uint64_t position = 0;

    /// "INSTANCE:both:4711", "oldest", "oldest:audit", "newest", "newest:audit".
    std::string text() const;
    /// None, and what is wrong, for a text that is no cursor.
    static std::optional<StreamCursor> parse(std::string_view text, std::string& error);

    static StreamCursor oldest(std::optional<ERing> ring = std::nullopt) {
        return {EPlace::Oldest, {}, ring, 0};
    }
    static StreamCursor newest(std::optional<ERing> ring = std::nullopt) {
        return {EPlace::Newest, {}, ring, 0};
    }

    bool operator==(const StreamCursor&) const = default;
};

}  // namespace stream
