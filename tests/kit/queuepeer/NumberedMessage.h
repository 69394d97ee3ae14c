#pragma once

#include <array>
#include <cstddef>
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
        const auto beginning = this->beginning();
        std::memcpy(bytes.data(), beginning.data(), s_minSize);
        std::memcpy(bytes.data() + s_minSize, rest(), bytes.size() - s_minSize);
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
        const auto beginning = message.beginning();
        if (length != message.size() || std::memcmp(beginning.data(), pBytes, s_minSize) != 0 ||
            std::memcmp(message.rest(), pBytes + s_minSize, static_cast<std::size_t>(length - s_minSize)) !=
                0) {
            return std::nullopt;
        }
        return message;
    }

private:
    /// Sender, number and length.
    std::array<unsigned char, s_minSize> beginning() const {
        std::array<unsigned char, s_minSize> bytes{};
        const int length = size();
        std::memcpy(bytes.data(), &sender, 4);
        std::memcpy(bytes.data() + 4, &number, 4);
        std::memcpy(bytes.data() + 8, &length, 4);
        return bytes;
    }

    /// The other bytes: each is one more than the one before it, and the first depends on sender and number.
    /// Copied from a table, since tests and peers are not optimised and fill very many messages.
    const unsigned char* rest() const;
};

/// 0 to 255 again and again, as far as the longest message goes from any of them.
inline constexpr auto c_countingBytes = [] {
    std::array<unsigned char, 256 + NumberedMessage::s_maxSize> bytes{};
    for (std::size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<unsigned char>(i);
    return bytes;
}();

inline const unsigned char* NumberedMessage::rest() const {
    return c_countingBytes.data() + (sender * 7 + number * 13 + s_minSize) % 256;
}
