#include "MessageWriter.h"

#include <cstring>

namespace protocol {

MessageWriter::MessageWriter(std::string_view code) {
    append(code.data(), code.size());
}

MessageWriter& MessageWriter::string(const std::string& text) {
    if (!m_subject.data())
        m_subject = text;
    if (text.size() > maximumText && m_oversize == 0)
        m_oversize = text.size();
    const auto length = static_cast<unsigned char>(text.size());
    append(&length, 1);
    append(text.data(), length);
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
    if (m_fits)
        m_length +=
            static_cast<std::size_t>(list.serialize(reinterpret_cast<char*>(m_buffer.data()) + m_length,
                                                    static_cast<int>(m_buffer.size() - m_length)));
    return *this;
}

void MessageWriter::append(const void* data, std::size_t length) {
    m_fits = m_fits && length <= m_buffer.size() - m_length;
    if (!m_fits)
        return;
    std::memcpy(m_buffer.data() + m_length, data, length);
    m_length += length;
}

}  // namespace protocol
