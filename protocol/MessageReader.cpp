#include "MessageReader.h"

#include <algorithm>

namespace protocol {

MessageReader::MessageReader(const unsigned char* data, std::size_t length)
    : m_message(reinterpret_cast<const char*>(data), std::min(length, maximumLength)) {}

std::string MessageReader::string() {
    std::string text;
    string(text);
    return text;
}

void MessageReader::string(std::string& text) {
    const std::string_view field = take(count8());
    text = field.substr(0, field.find('\0'));
}

std::int32_t MessageReader::int32() {
    return number<std::int32_t>();
}

float MessageReader::float32() {
    return number<float>();
}

bool MessageReader::bool8() {
    return count8() != 0;
}

unsigned int MessageReader::count8() {
    return number<unsigned char>();
}

FIDParameterList MessageReader::parameters() {
    FIDParameterList list;
    const std::string_view rest = take(maximumLength - m_offset);
    if (!rest.empty())
        list.deserialize(rest.data(), static_cast<int>(rest.size()));
    return list;
}

std::string_view MessageReader::take(std::size_t length) {
    if (length > maximumLength - m_offset) {
        m_offset = maximumLength;
        return {};
    }
    const std::size_t begin = std::min(m_offset, m_message.size());
    m_offset += length;
    return m_message.substr(begin, length);
}

template <class Number>
Number MessageReader::number() {
    Number value{};
    take(sizeof value).copy(reinterpret_cast<char*>(&value), sizeof value);
    return value;
}

}  // namespace protocol
