#include "StreamCursor.h"

#include <charconv>

#include "Printable.h"
#include "StreamLayout.h"

namespace stream {
namespace {

constexpr std::string_view s_both = "both";

bool parseRing(std::string_view text, std::optional<ERing>& ring) {
    ring.reset();
    if (text == s_both)
        return true;
    for (const ERing each : {ERing::Values, ERing::Audit}) {
        if (text == ringName(each))
            ring = each;
    }
    return ring.has_value();
}

}  // namespace

std::string StreamCursor::text() const {
    const std::string name(ring ? ringName(*ring) : s_both);
    if (place != EPlace::Exact)
        return (place == EPlace::Oldest ? "oldest" : "newest") + (ring ? ':' + name : std::string());
    return instance + ':' + name + ':' + std::to_string(position);
}

std::optional<StreamCursor> StreamCursor::parse(std::string_view text, std::string& error) {
    const auto refuse = [&] {
        error = base::quoted(text) +
                " is no place in a stream: that is INSTANCE:RING:POSITION as an answer gave it, with both, "
                "values "
                "or audit for RING, or oldest, or newest";
        return std::nullopt;
    };
    StreamCursor cursor;
    const auto first = text.find(':');
    const std::string_view head = text.substr(0, first);
    std::string_view rest = first == std::string_view::npos ? std::string_view() : text.substr(first + 1);
    if (head == "oldest" || head == "newest") {
        cursor.place = head == "oldest" ? EPlace::Oldest : EPlace::Newest;
        if (first != std::string_view::npos && !parseRing(rest, cursor.ring))
            return refuse();
        return cursor;
    }
    cursor.place = EPlace::Exact;
    cursor.instance = head;
    const auto second = rest.find(':');
    if (head.empty() || head.size() > StreamConstants::s_longestInstance ||
        second == std::string_view::npos || !parseRing(rest.substr(0, second), cursor.ring))
        return refuse();
    rest.remove_prefix(second + 1);
    const auto [pEnd, fault] = std::from_chars(rest.data(), rest.data() + rest.size(), cursor.position);
    if (rest.empty() || fault != std::errc() || pEnd != rest.data() + rest.size())
        return refuse();
    return cursor;
}

}  // namespace stream
