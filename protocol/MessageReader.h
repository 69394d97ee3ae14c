#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "FIDParameterList.h"
#include "MessageCodes.h"

namespace protocol {

/// Takes one message apart, field by field from the front. Refers to the bytes, which are to outlive it. What
/// is missing of a short message reads as zeros, as far as a message may reach; a field that would cross that
/// end reads as empty or zero, and so does every field after it.
class MessageReader {
public:
    MessageReader(const unsigned char* data, std::size_t length);

    /// Whether the message begins with that code.
    bool hasCode(std::string_view code) const {
        return m_message.size() >= codeLength && std::memcmp(m_message.data(), code.data(), codeLength) == 0;
    }

    /// Ends at its first zero byte; the next field begins after all of its bytes.
    std::string string();
    /// The same into a text that may have its memory already.
    void string(std::string& text);
    std::int32_t int32();
    float float32();
    bool bool8();
    unsigned int count8();
    /// The rest of the message. Pairs that are not whole are left out.
    FIDParameterList parameters();

private:
    /// The next field, or what there is of it.
    std::string_view take(std::size_t length);
    template <class Number>
    Number number();

    std::string_view m_message;
    std::size_t m_offset = codeLength;
};

}  // namespace protocol
