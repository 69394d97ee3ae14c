#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "StreamLayout.h"

namespace stream {

/// A segment is a row of frames, nothing before, between or after them; a reader that finds no frame looks
/// for the next one. A frame is this head and a zstd frame. What is packed are records as StreamRecord.h lays
/// them out (position and check 0), each as long as it is, filled up to 8 bytes: first one of the kind Define
/// for each number that the others use, itself numbered 0, then the others in the order of their numbers. All
/// little-endian.
struct FrameHead {
    static constexpr std::uint64_t s_magic = 0x3145'4d41'5246'464d;  // "MFFRAME1"
    /// No frame holds more than this, packed or not.
    static constexpr std::size_t s_most = std::size_t{8} << 20;

    std::uint64_t magic = s_magic;
    std::array<char, StreamConstants::s_longestInstance> instance{};  ///< filled up with zeros
    std::uint64_t firstNumber = 0;
    std::uint64_t lastNumber = 0;
    std::int64_t firstTime = 0;  ///< nanoseconds since 1970
    std::int64_t lastTime = 0;
    std::uint32_t packedSize = 0;
    std::uint32_t size = 0;         ///< unpacked
    std::uint32_t records = 0;      ///< without definitions
    std::uint32_t packedCheck = 0;  ///< CRC-32C of what is packed
    std::uint32_t reserved = 0;
    std::uint32_t check = 0;  ///< CRC-32C of all of the head before it
};
static_assert(sizeof(FrameHead) == 96);

}  // namespace stream
