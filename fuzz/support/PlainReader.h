#pragma once

#include <cstddef>
#include <string>
#include <utility>

/// Reads a message by the byte tables, as plainly as can be: from a copy that is filled up with zeros. What
/// the protocol's own reader makes of it is compared with this.
class PlainReader {
public:
    explicit PlainReader(std::string message) : m_bytes(std::move(message)) { m_bytes.resize(s_size, '\0'); }

    std::string code() const { return m_bytes.substr(0, s_code); }
    unsigned int byte() {
        const std::string field = bytes(1);
        return field.empty() ? 0 : static_cast<unsigned char>(field.front());
    }
    std::string text() {
        const std::string field = bytes(byte());
        return field.substr(0, field.find('\0'));
    }
    /// Four bytes; zeros where they would cross the end.
    std::string four() {
        std::string field = bytes(4);
        field.resize(4, '\0');
        return field;
    }

private:
    static constexpr std::size_t s_size = 1024;
    static constexpr std::size_t s_code = 6;

    std::string bytes(std::size_t count) {
        if (m_at + count > s_size) {
            m_at = s_size;
            return {};
        }
        m_at += count;
        return m_bytes.substr(m_at - count, count);
    }

    std::string m_bytes;
    std::size_t m_at = s_code;
};
