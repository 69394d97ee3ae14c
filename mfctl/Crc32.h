#pragma once

#include <array>
#include <cstdint>
#include <string_view>

/// CRC-32 as ZIP, PNG and MCAP have it, of which the result of 0 bytes is 0. Any thread.
inline std::uint32_t crc32(std::string_view bytes) {
    static const auto s_table = [] {
        std::array<std::uint32_t, 256> table{};
        for (std::uint32_t i = 0; i < table.size(); ++i) {
            std::uint32_t rest = i;
            for (int bit = 0; bit < 8; ++bit)
                rest = (rest & 1u) != 0 ? rest >> 1 ^ 0xedb88320u : rest >> 1;
            table[i] = rest;
        }
        return table;
    }();
    std::uint32_t rest = 0xffffffffu;
    for (const char c : bytes)
        rest = s_table[(rest ^ static_cast<unsigned char>(c)) & 0xffu] ^ rest >> 8;
    return ~rest;
}
