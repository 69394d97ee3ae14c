#include "JsonText.h"

#include <cstdio>
#include <string_view>

namespace {

/// How many bytes the UTF-8 character at the front of text has; 0 when there is none.
std::size_t characterSize(std::string_view text) {
    const auto byte = [&](std::size_t index) { return static_cast<unsigned char>(text[index]); };
    const unsigned char first = byte(0);
    if (first < 0x80)
        return 1;
    const std::size_t size = first >= 0xC2 && first <= 0xDF   ? 2
                             : first >= 0xE0 && first <= 0xEF ? 3
                             : first >= 0xF0 && first <= 0xF4 ? 4
                                                              : 0;
    if (size == 0 || text.size() < size)
        return 0;
    for (std::size_t i = 1; i < size; ++i)
        if ((byte(i) & 0xC0) != 0x80)
            return 0;
    // Longer than it need be, a surrogate, or beyond the last character.
    if ((first == 0xE0 && byte(1) < 0xA0) || (first == 0xED && byte(1) > 0x9F) ||
        (first == 0xF0 && byte(1) < 0x90) || (first == 0xF4 && byte(1) > 0x8F))
        return 0;
    return size;
}

}  // namespace

std::string JsonText::of(const std::string& text) {
    std::string json = "\"";
    for (std::size_t position = 0; position < text.size();) {
        const std::string_view rest = std::string_view(text).substr(position);
        const std::size_t size = characterSize(rest);
        const auto first = static_cast<unsigned char>(rest[0]);
        if (size == 0) {
            json += "\xEF\xBF\xBD";
        } else if (first == '"' || first == '\\') {
            json += '\\';
            json += rest[0];
        } else if (first < 0x20) {
            char escape[8];
            std::snprintf(escape, sizeof escape, "\\u%04x", first);
            json += escape;
        } else {
            json += rest.substr(0, size);
        }
        position += size == 0 ? 1 : size;
    }
    return json + "\"";
}
