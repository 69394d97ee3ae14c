#include "Printable.h"

#include <cstddef>
#include <cstdint>

namespace base {
namespace {

constexpr std::size_t s_longestQuoted = 80;
constexpr char s_digits[] = "0123456789abcdef";

/// What is at the front of a text: a character, or a byte that begins none.
struct Front {
    std::size_t size = 1;    ///< in bytes
    std::uint32_t code = 0;  ///< the character's number, or the byte
    bool isCharacter = true;
};

Front frontOf(std::string_view text) {
    const auto byte = [&](std::size_t index) { return static_cast<unsigned char>(text[index]); };
    const unsigned char first = byte(0);
    if (first < 0x80)
        return {1, first, true};
    const Front none{1, first, false};
    const std::size_t size = first >= 0xc2 && first <= 0xdf   ? 2
                             : first >= 0xe0 && first <= 0xef ? 3
                             : first >= 0xf0 && first <= 0xf4 ? 4
                                                              : 0;
    if (size == 0 || text.size() < size)
        return none;
    // The first byte of n has n + 1 bits that say so.
    std::uint32_t code = first & (0x7fu >> size);
    for (std::size_t i = 1; i < size; ++i) {
        if ((byte(i) & 0xc0) != 0x80)
            return none;
        code = code << 6 | (byte(i) & 0x3fu);
    }
    // Longer than it need be, a surrogate, or beyond the last character.
    if ((size == 3 && code < 0x800) || (size == 4 && code < 0x10000) || (code >= 0xd800 && code <= 0xdfff) ||
        code > 0x10ffff)
        return none;
    return {size, code, true};
}

/// Steers a terminal, ends a line, or turns the direction of writing.
bool isSteering(std::uint32_t code) {
    if (code < 0x20 || (code >= 0x7f && code <= 0x9f))
        return true;
    return code == 0x61c || code == 0x200e || code == 0x200f || (code >= 0x2028 && code <= 0x202e) ||
           (code >= 0x2066 && code <= 0x2069);
}

void appendByte(std::string& text, std::uint32_t byte) {
    text += "\\x";
    text += s_digits[byte >> 4 & 0xf];
    text += s_digits[byte & 0xf];
}

/// No character that needs it is beyond U+FFFF.
void appendNumber(std::string& text, std::uint32_t code) {
    text += "\\u";
    for (int shift = 12; shift >= 0; shift -= 4)
        text += s_digits[code >> shift & 0xf];
}

void appendEscape(std::string& text, const Front& front) {
    if (front.isCharacter && front.code == '\n')
        text += "\\n";
    else if (front.isCharacter && front.code == '\r')
        text += "\\r";
    else if (front.isCharacter && front.code == '\t')
        text += "\\t";
    else if (front.isCharacter && front.code > 0x7f)
        appendNumber(text, front.code);
    else
        appendByte(text, front.code);
}

bool staysAsItIs(const Front& front) {
    return front.isCharacter && !isSteering(front.code);
}

/// An ASCII character that stands in a JSON string as it is.
bool isPlainJson(char c) {
    return c >= 0x20 && c < 0x7f && c != '"' && c != '\\';
}

/// Up to the first character that printable() writes out.
std::size_t plainSize(std::string_view text) {
    std::size_t size = 0;
    while (size < text.size()) {
        const Front front = frontOf(text.substr(size));
        if (!staysAsItIs(front))
            break;
        size += front.size;
    }
    return size;
}

/// At most that many bytes, and no part of a character.
std::string_view beginning(std::string_view text, std::size_t most) {
    std::size_t size = 0;
    while (size < text.size()) {
        const std::size_t next = size + frontOf(text.substr(size)).size;
        if (next > most)
            break;
        size = next;
    }
    return text.substr(0, size);
}

}  // namespace

std::string printable(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    while (!text.empty()) {
        const std::size_t plain = plainSize(text);
        result += text.substr(0, plain);
        text.remove_prefix(plain);
        if (text.empty())
            break;
        const Front front = frontOf(text);
        appendEscape(result, front);
        text.remove_prefix(front.size);
    }
    return result;
}

bool isPrintable(std::string_view text) {
    return plainSize(text) == text.size();
}

std::string quoted(std::string_view text) {
    const std::string_view shown = beginning(text, s_longestQuoted);
    return '"' + printable(shown) + (shown.size() < text.size() ? "\"..." : "\"");
}

std::string jsonText(std::string_view text) {
    std::string json;
    appendJsonText(json, text);
    return json;
}

void appendJsonText(std::string& json, std::string_view text) {
    json += '"';
    while (!text.empty()) {
        // Nearly all of what is written.
        std::size_t plain = 0;
        while (plain < text.size() && isPlainJson(text[plain]))
            ++plain;
        json += text.substr(0, plain);
        text.remove_prefix(plain);
        if (text.empty())
            break;
        const Front front = frontOf(text);
        if (!front.isCharacter) {
            json += "\xef\xbf\xbd";
        } else if (front.code == '"' || front.code == '\\') {
            json += '\\';
            json += text.front();
        } else if (isSteering(front.code)) {
            appendNumber(json, front.code);
        } else {
            json += text.substr(0, front.size);
        }
        text.remove_prefix(front.size);
    }
    json += '"';
}

}  // namespace base
