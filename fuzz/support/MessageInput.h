#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

/// An input read as messages of a queue: two bytes of length, low byte first, then that many bytes, or what
/// is left. The length 0xffff is a moment in which nothing comes; longer than a message is modulo 1025.
inline std::vector<std::optional<std::string>> messagesOf(const std::uint8_t* data, std::size_t size) {
    constexpr std::size_t longest = 1024;
    std::vector<std::optional<std::string>> messages;
    std::size_t at = 0;
    while (size - at >= 2) {
        const std::size_t word = data[at] | static_cast<std::size_t>(data[at + 1]) << 8;
        at += 2;
        if (word == 0xffff) {
            messages.emplace_back(std::nullopt);
            continue;
        }
        const std::size_t length = std::min(word % (longest + 1), size - at);
        messages.emplace_back(std::string(reinterpret_cast<const char*>(data) + at, length));
        at += length;
    }
    return messages;
}
