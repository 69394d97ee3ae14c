#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

#include "StreamKind.h"

namespace stream {

/// The wall clock's; records keep it to 100 ns. It may be set, also back: what came first is told by the
/// numbers.
using Time = std::chrono::sys_time<std::chrono::nanoseconds>;

/// Who asked for something.
enum class EOrigin : std::uint8_t { Driver = 0, Host = 1, Console = 2, Api = 3, Macro = 4, Panel = 5 };

/// One thing that happened, as a reader gives it.
struct StreamRecord {
    /// Counts the records of both rings from 1 on, in the order in which things happened.
    std::uint64_t number = 0;
    Time time;
    EKind kind = EKind::None;
    /// The text was longer than a record takes.
    bool isCut = false;
    /// The driver's number in its upper half, that of a text of this driver in its lower half; 0 there when
    /// the record has no key, or its key has no number.
    std::uint32_t key = 0;
    /// Of the kind's own meaning; the bits of a float.
    std::uint32_t value = 0;
    /// The number of the record that caused this one; 0 where that is not known. Nobody writes it yet.
    std::uint64_t cause = 0;
    std::string keyText;  ///< the key, where it has no number
    std::string text;     ///< of the kind's own form

    std::uint16_t driver() const { return static_cast<std::uint16_t>(key >> 16); }
    bool operator==(const StreamRecord&) const = default;
};

/// How a record lies in a ring or a segment: 32 bytes, then key and text, filled up with zeros to a multiple
/// of 32. All little-endian.
///
///     word 0   bits 0-31 position / 32; bits 32-63 check
///     word 1   bits 0-7 kind; bits 8-63 time in units of 100 ns since 1970
///     word 2   bits 0-3 flags; bits 4-15 length of what follows; bits 16-63 number
///     word 3   bits 0-31 key; bits 32-63 value
namespace layout {

constexpr std::size_t s_alignment = 32;
constexpr std::size_t s_headSize = 32;
constexpr std::size_t s_headWords = s_headSize / sizeof(std::uint64_t);
constexpr std::size_t s_longestBody = 4095;
constexpr std::size_t s_longestBodyWords = (s_longestBody + 7) / 8;
constexpr std::int64_t s_timeUnit = 100;  ///< nanoseconds
constexpr std::uint64_t s_lastNumber = (std::uint64_t{1} << 48) - 1;

// What stands before the text, in this order.
constexpr std::uint64_t s_hasCause = 1;    ///< the number of the causing record, eight bytes
constexpr std::uint64_t s_hasKeyText = 2;  ///< the key's length in two bytes, then the key
// Of the text itself.
constexpr std::uint64_t s_isCut = 4;

constexpr std::size_t sizeOf(std::size_t body) {
    return s_headSize + (body + s_alignment - 1) / s_alignment * s_alignment;
}
constexpr std::uint64_t timeAndKind(Time time, EKind kind) {
    return static_cast<std::uint64_t>(time.time_since_epoch().count() / s_timeUnit) << 8 |
           static_cast<std::uint64_t>(kind);
}
constexpr Time timeOf(std::uint64_t word1) {
    return Time(std::chrono::nanoseconds((static_cast<std::int64_t>(word1) >> 8) * s_timeUnit));
}
constexpr EKind kindOf(std::uint64_t word1) {
    return static_cast<EKind>(word1 & 0xffu);
}
constexpr std::uint64_t numberLengthFlags(std::uint64_t number, std::size_t length, std::uint64_t flags) {
    return number << 16 | static_cast<std::uint64_t>(length) << 4 | flags;
}
constexpr std::uint64_t numberOf(std::uint64_t word2) {
    return word2 >> 16;
}
constexpr std::size_t lengthOf(std::uint64_t word2) {
    return word2 >> 4 & s_longestBody;
}
constexpr std::uint64_t flagsOf(std::uint64_t word2) {
    return word2 & 0xfu;
}
constexpr std::uint64_t keyAndValue(std::uint32_t key, std::uint32_t value) {
    return static_cast<std::uint64_t>(value) << 32 | key;
}

}  // namespace layout
}  // namespace stream
