#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "FIDParameterList.h"
#include "QueueProtocol.h"

/// Takes one message apart, field by field from the front. The message is copied into a buffer whose rest is
/// zero, so that a short message is never completed by an older one; a field that would cross the end of the
/// buffer reads as empty or zero, and so does every field behind it.
class MessageReader {
public:
    MessageReader(const unsigned char* data, std::size_t length);

    /// The six bytes at the front; always six.
    std::string_view code() const;

    /// Ends at its first zero byte; the next field begins behind all of its bytes.
    std::string string();
    std::int32_t int32();
    /// The rest of the message. Pairs that are not whole are left out.
    FIDParameterList parameters();

private:
    /// The next field's bytes; null when it would cross the end.
    const unsigned char* take(std::size_t length);

    std::array<unsigned char, protocol::maximumLength> m_buffer{};
    std::size_t m_length;  ///< of the message itself
    std::size_t m_offset = protocol::codeLength;
};
