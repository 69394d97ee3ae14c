#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "FIDParameterList.h"
#include "QueueProtocol.h"

/// Puts one message together on the stack. A text of more than 255 bytes has no place in a message: the
/// message is then not sendable and says how long the text was. Refers to the first text it was given, so it
/// does not outlive it.
class MessageWriter {
public:
    explicit MessageWriter(std::string_view code);

    MessageWriter& string(const std::string& text);
    MessageWriter& int32(std::int32_t value);
    MessageWriter& float32(float value);
    MessageWriter& bool8(bool value);
    /// Pairs that do not fit are left out.
    MessageWriter& parameters(const FIDParameterList& list);

    bool sendable() const { return m_oversize == 0; }
    /// Length of the first text that was too long; 0 when there was none.
    std::size_t oversize() const { return m_oversize; }
    /// The first text: the ID of what the message is about.
    std::string_view subject() const { return m_subject; }

    const unsigned char* data() const { return m_buffer.data(); }
    std::size_t length() const { return m_length; }

private:
    void append(const void* data, std::size_t length);

    std::array<unsigned char, protocol::maximumLength> m_buffer;  ///< the first m_length bytes are set
    std::size_t m_length = 0;
    std::size_t m_oversize = 0;
    std::string_view m_subject;
};
