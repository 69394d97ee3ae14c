#include "MessageWriter.h"

#include <cstring>

#include "sal/Assert.h"

MessageWriter::MessageWriter(std::string_view code) {
    append(code.data(), code.size());
}

MessageWriter& MessageWriter::string(const std::string& text) {
    if (!m_subject.data())
        m_subject = text;
    if (text.size() > protocol::maximumText) {
        if (m_oversize == 0)
            m_oversize = text.size();
        return *this;
    }
    const auto length = static_cast<unsigned char>(text.size());
    append(&length, 1);
    append(text.data(), text.size());
    return *this;
}

MessageWriter& MessageWriter::int32(std::int32_t value) {
    append(&value, sizeof value);
    return *this;
}

MessageWriter& MessageWriter::float32(float value) {
    static_assert(sizeof value == 4);
    append(&value, sizeof value);
    return *this;
}

MessageWriter& MessageWriter::bool8(bool value) {
    const unsigned char byte = value ? 1 : 0;
    append(&byte, 1);
    return *this;
}

MessageWriter& MessageWriter::parameters(const FIDParameterList& list) {
    m_length += static_cast<std::size_t>(list.serialize(reinterpret_cast<char*>(m_buffer.data()) + m_length,
                                                        static_cast<int>(m_buffer.size() - m_length)));
    return *this;
}

void MessageWriter::append(const void* data, std::size_t length) {
    // No message of the protocol has fields for more than the buffer holds.
    SAL_ASSERT(length <= m_buffer.size() - m_length);
    std::memcpy(m_buffer.data() + m_length, data, length);
    m_length += length;
}
