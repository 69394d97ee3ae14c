#pragma once

#include <cstdint>
#include <cstring>
#include <optional>
#include <vector>

/// A test message that shows whose it is, its place in the sender's sequence, and whether it is whole.
struct NumberedMessage {
    std::uint32_t sender = 0;
    std::uint32_t number = 0;

    static constexpr int s_minSize = 12;
    static constexpr int s_maxSize = 1024;

    /// Sizes differ from message to message.
    int size() const {
        return s_minSize + static_cast<int>((number * 2654435761U >> 16) % (s_maxSize - s_minSize + 1));
    }

    std::vector<unsigned char> bytes() const {
        std::vector<unsigned char> bytes(static_cast<std::size_t>(size()));
        const std::uint32_t length = static_cast<std::uint32_t>(size());
        std::memcpy(bytes.data(), &sender, 4);
        std::memcpy(bytes.data() + 4, &number, 4);
        std::memcpy(bytes.data() + 8, &length, 4);
        for (std::size_t i = s_minSize; i < bytes.size(); ++i) {
            bytes[i] = static_cast<unsigned char>(sender * 7 + number * 13 + i);
        }
        return bytes;
    }

    /// Nothing when the bytes are no whole message of this kind.
    static std::optional<NumberedMessage> read(const unsigned char* pBytes, int length) {
        NumberedMessage message;
        if (length < s_minSize) {
            return std::nullopt;
        }
        std::memcpy(&message.sender, pBytes, 4);
        std::memcpy(&message.number, pBytes + 4, 4);
        const auto expected = message.bytes();
        if (static_cast<std::size_t>(length) != expected.size() ||
            std::memcmp(expected.data(), pBytes, expected.size()) != 0) {
            return std::nullopt;
        }
        return message;
    }
};
