#include "MDMDriverMessage.h"

#include "FIDParameterList.h"

MDMDriverMessage::MDMDriverMessage(const char* code) {
    append(code, g_driverMessageCodeSize);
}

MDMDriverMessage& MDMDriverMessage::addInt(std::int32_t value) {
    append(&value, sizeof value);
    return *this;
}

MDMDriverMessage& MDMDriverMessage::addString(const std::string& text) {
    const auto length = static_cast<unsigned char>(text.size());
    append(&length, 1);
    append(text.data(), length);
    return *this;
}

MDMDriverMessage& MDMDriverMessage::addParameters(const FIDParameterList& parameters) {
    if (m_fits)
        m_length +=
            parameters.serialize(reinterpret_cast<char*>(m_data) + m_length, g_driverMessageSize - m_length);
    return *this;
}

void MDMDriverMessage::append(const void* pBytes, int count) {
    if (!m_fits || count > g_driverMessageSize - m_length) {
        m_fits = false;
        return;
    }
    std::memcpy(m_data + m_length, pBytes, static_cast<std::size_t>(count));
    m_length += count;
}

MDMDriverMessageReader::MDMDriverMessageReader(const unsigned char* pBuffer)
    : m_pBuffer(pBuffer), m_offset(g_driverMessageCodeSize) {}

std::int32_t MDMDriverMessageReader::takeInt() {
    std::int32_t value = 0;
    if (const unsigned char* pBytes = take(sizeof value))
        std::memcpy(&value, pBytes, sizeof value);
    return value;
}

float MDMDriverMessageReader::takeFloat() {
    float value = 0;
    if (const unsigned char* pBytes = take(sizeof value))
        std::memcpy(&value, pBytes, sizeof value);
    return value;
}

bool MDMDriverMessageReader::takeBool() {
    const unsigned char* pByte = take(1);
    return pByte && *pByte != 0;
}

unsigned int MDMDriverMessageReader::takeCount() {
    const unsigned char* pByte = take(1);
    return pByte ? *pByte : 0;
}

std::string MDMDriverMessageReader::takeString() {
    std::string text;
    takeString(text);
    return text;
}

void MDMDriverMessageReader::takeString(std::string& text) {
    const unsigned int length = takeCount();
    const auto* pText = reinterpret_cast<const char*>(take(static_cast<int>(length)));
    if (pText)
        text.assign(pText, strnlen(pText, length));
    else
        text.clear();
}

const unsigned char* MDMDriverMessageReader::take(int count) {
    if (count > g_driverMessageSize - m_offset) {
        m_offset = g_driverMessageSize;
        return nullptr;
    }
    const unsigned char* pBytes = m_pBuffer + m_offset;
    m_offset += count;
    return pBytes;
}
