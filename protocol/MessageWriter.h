#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "FIDParameterList.h"
#include "MessageCodes.h"

namespace protocol {

/// Puts one message together on the stack. What would not fit is never written, and neither is what follows;
/// fits() tells. Refers to the first text it was given, so it does not outlive it.
class MessageWriter {
public:
    /// One of the codes.
    explicit MessageWriter(std::string_view code);

    /// Writes the length modulo 256 and that many bytes: a longer text is cut, and oversize() tells.
    MessageWriter& string(const std::string& text);
    MessageWriter& int32(std::int32_t value);
    MessageWriter& float32(float value);
    MessageWriter& bool8(bool value);
    /// Pairs that do not fit are left out.
    MessageWriter& parameters(const FIDParameterList& list);

    bool fits() const { return m_fits; }
    /// Length of the first text of more than 255 bytes; 0 when there was none.
    std::size_t oversize() const { return m_oversize; }
    /// The first text: the ID of what the message is about.
    std::string_view subject() const { return m_subject; }

    const unsigned char* data() const { return m_buffer.data(); }
    std::size_t length() const { return m_length; }

private:
    void append(const void* data, std::size_t length);

    std::array<unsigned char, maximumLength> m_buffer;  ///< the first m_length bytes are set
    std::size_t m_length = 0;
    bool m_fits = true;
    std::size_t m_oversize = 0;
    std::string_view m_subject;
};

}  // namespace protocol
