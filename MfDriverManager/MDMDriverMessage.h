#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

class FIDParameterList;

/// Messages between manager and driver process: a command code of six letters, then its fields one behind the
/// other without padding. A string is a length byte and that many bytes; int32 and float32 are four bytes in
/// the machine's order; bool8 and count8 one byte. Nothing carries a length of the whole: the queue keeps
/// messages whole.
constexpr int g_driverMessageSize = 1024;
constexpr int g_driverMessageCodeSize = 6;

/// Builds one message. What would not fit is never written; fits() tells.
class MDMDriverMessage {
public:
    /// The code has six letters.
    explicit MDMDriverMessage(const char* code);

    MDMDriverMessage& addInt(std::int32_t value);
    /// Writes the length modulo 256 and that many bytes: senders keep texts under 256 bytes.
    MDMDriverMessage& addString(const std::string& text);
    /// Into the room that is left.
    MDMDriverMessage& addParameters(const FIDParameterList& parameters);

    bool fits() const { return m_fits; }
    const unsigned char* data() const { return m_data; }
    int length() const { return m_length; }

private:
    void append(const void* pBytes, int count);

    unsigned char m_data[g_driverMessageSize];
    int m_length = 0;
    bool m_fits = true;
};

/// Reads the fields of one message in order from a buffer of g_driverMessageSize bytes that is zero behind
/// the message's end. A field that would cross the buffer's end reads as empty or zero, and so do all behind
/// it.
class MDMDriverMessageReader {
public:
    explicit MDMDriverMessageReader(const unsigned char* pBuffer);

    bool hasCode(const char* code) const {
        return std::memcmp(m_pBuffer, code, g_driverMessageCodeSize) == 0;
    }

    std::int32_t takeInt();
    float takeFloat();
    bool takeBool();
    unsigned int takeCount();
    /// Ends at the first zero byte; the next field begins behind the full length all the same.
    std::string takeString();
    /// The same into a text that may have its memory already.
    void takeString(std::string& text);

private:
    /// The next count bytes; null beyond the end.
    const unsigned char* take(int count);

    const unsigned char* m_pBuffer;
    int m_offset;
};
