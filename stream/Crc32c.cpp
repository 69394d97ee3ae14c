#include "Crc32c.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>

#if defined(__x86_64__)
#include <nmmintrin.h>
#endif

namespace stream {
namespace {

static_assert(std::endian::native == std::endian::little,
              "rings and segments are read as they lie in memory");

constexpr std::uint32_t s_polynomial = 0x82f63b78;
using Tables = std::array<std::array<std::uint32_t, 256>, 8>;

/// Table k says what a byte does to the result when k bytes come after it.
constexpr Tables makeTables() {
    Tables tables{};
    for (std::uint32_t byte = 0; byte < 256; ++byte) {
        std::uint32_t value = byte;
        for (int bit = 0; bit < 8; ++bit)
            value = (value & 1u) != 0 ? value >> 1 ^ s_polynomial : value >> 1;
        tables[0][byte] = value;
    }
    for (std::uint32_t byte = 0; byte < 256; ++byte) {
        for (std::size_t k = 1; k < tables.size(); ++k)
            tables[k][byte] = tables[k - 1][byte] >> 8 ^ tables[0][tables[k - 1][byte] & 0xffu];
    }
    return tables;
}

constexpr Tables s_tables = makeTables();

std::uint32_t wordByTable(std::uint32_t crc, std::uint64_t word) {
    word ^= crc;
    std::uint32_t result = 0;
    for (std::size_t k = 0; k < 8; ++k)
        result ^= s_tables[7 - k][word >> (8 * k) & 0xffu];
    return result;
}

std::uint32_t byteByTable(std::uint32_t crc, unsigned char byte) {
    return crc >> 8 ^ s_tables[0][(crc ^ byte) & 0xffu];
}

#if defined(__x86_64__)
__attribute__((target("sse4.2"))) std::uint32_t byInstruction(std::uint32_t crc, const std::uint64_t* pWords,
                                                              std::size_t count) {
    std::uint64_t value = crc;
    for (std::size_t i = 0; i < count; ++i)
        value = _mm_crc32_u64(value, pWords[i]);
    return static_cast<std::uint32_t>(value);
}

const bool s_hasInstruction = __builtin_cpu_supports("sse4.2") != 0;
#endif

}  // namespace

std::uint32_t crc32cByTable(std::uint32_t before, const std::uint64_t* pWords, std::size_t count) {
    std::uint32_t crc = ~before;
    for (std::size_t i = 0; i < count; ++i)
        crc = wordByTable(crc, pWords[i]);
    return ~crc;
}

std::uint32_t crc32c(std::uint32_t before, const std::uint64_t* pWords, std::size_t count) {
#if defined(__x86_64__)
    if (s_hasInstruction)
        return ~byInstruction(~before, pWords, count);
#endif
    return crc32cByTable(before, pWords, count);
}

std::uint32_t crc32c(std::uint32_t before, const char* pBytes, std::size_t count) {
    std::uint32_t crc = before;
    while (count >= sizeof(std::uint64_t)) {
        std::array<std::uint64_t, 64> words;
        const std::size_t part = std::min(count / sizeof(std::uint64_t), words.size());
        std::memcpy(words.data(), pBytes, part * sizeof(std::uint64_t));
        crc = crc32c(crc, words.data(), part);
        pBytes += part * sizeof(std::uint64_t);
        count -= part * sizeof(std::uint64_t);
    }
    crc = ~crc;
    for (std::size_t i = 0; i < count; ++i)
        crc = byteByTable(crc, static_cast<unsigned char>(pBytes[i]));
    return ~crc;
}

}  // namespace stream
