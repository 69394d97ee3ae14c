#include "MessageReader.h"

#include <algorithm>
#include <cstring>

MessageReader::MessageReader(const unsigned char* data, std::size_t length)
    : m_length(std::min(length, m_buffer.size())) {
    std::copy_n(data, m_length, m_buffer.begin());
}

std::string_view MessageReader::code() const {
    return {reinterpret_cast<const char*>(m_buffer.data()), protocol::codeLength};
}

std::string MessageReader::string() {
    const unsigned char* pLength = take(1);
    const unsigned char* pText = pLength ? take(*pLength) : nullptr;
    if (!pText)
        return {};
    return {pText, std::find(pText, pText + *pLength, 0)};
}

std::int32_t MessageReader::int32() {
    std::int32_t value = 0;
    if (const unsigned char* pValue = take(sizeof value))
        std::memcpy(&value, pValue, sizeof value);
    return value;
}

FIDParameterList MessageReader::parameters() {
    FIDParameterList list;
    if (m_offset < m_length)
        list.deserialize(reinterpret_cast<const char*>(m_buffer.data()) + m_offset,
                         static_cast<int>(m_length - m_offset));
    m_offset = m_buffer.size();
    return list;
}

const unsigned char* MessageReader::take(std::size_t length) {
    if (length > m_buffer.size() - m_offset) {
        m_offset = m_buffer.size();
        return nullptr;
    }
    const unsigned char* pField = m_buffer.data() + m_offset;
    m_offset += length;
    return pField;
}
