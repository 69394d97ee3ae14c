#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

#include "StreamKind.h"

namespace stream {

/// The file of the rings: this header, the ring of values, the ring of everything else, and the header's
/// constant part once more, for a file that has lost its first page. All little-endian; each part fills whole
/// pages.
///
/// A position counts the bytes of a ring from the beginning of its second lap on, so that none is 0; it lies
/// at that position modulo the ring's size. A writer first takes its position, then its number, so that
/// whoever sees a number knows of the places of all numbers below it.
struct StreamConstants {
    static constexpr std::uint64_t s_magic = 0x4d41'4552'5453'464d;  // "MFSTREAM"
    static constexpr std::uint32_t s_version = 1;
    static constexpr std::size_t s_longestInstance = 32;

    std::uint64_t magic = s_magic;
    std::uint32_t version = s_version;
    /// What the check of each record begins with: it is not guessed by who only fills texts.
    std::uint32_t salt = 0;
    std::array<std::uint64_t, s_rings> sizes{};
    std::int64_t started = 0;                        ///< nanoseconds since 1970
    std::array<char, s_longestInstance> instance{};  ///< filled up with zeros
    std::uint64_t check = 0;                         ///< CRC-32C of what comes before
};

struct StreamHeader {
    StreamConstants constants;
    /// What each writer changes.
    alignas(64) std::atomic<std::uint64_t> number;          ///< the last one given
    std::array<std::atomic<std::uint64_t>, s_rings> heads;  ///< where the next record goes
    /// Records that were dropped since their place was lapped while they were written.
    alignas(64) std::atomic<std::uint64_t> dropped;
};

constexpr std::size_t s_page = 4096;
static_assert(sizeof(StreamHeader) <= s_page && sizeof(StreamConstants) % sizeof(std::uint64_t) == 0);
static_assert(std::atomic<std::uint64_t>::is_always_lock_free);

}  // namespace stream
