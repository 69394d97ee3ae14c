#include "PrintableText.h"

namespace sal {
namespace {

bool isControl(unsigned char c) {
    return (c < 0x20 && c != '\t') || c == 0x7f;
}

/// U+0080 to U+009F as UTF-8: terminals obey these as well.
bool isHighControl(unsigned char first, unsigned char second) {
    return first == 0xc2 && second >= 0x80 && second <= 0x9f;
}

void appendHex(std::string& text, unsigned char c) {
    constexpr char digits[] = "0123456789abcdef";
    text += "\\x";
    text += digits[c >> 4];
    text += digits[c & 0xf];
}

}  // namespace

std::string printable(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto c = static_cast<unsigned char>(text[i]);
        if (c == '\n') {
            result += "\\n";
        } else if (c == '\r') {
            result += "\\r";
        } else if (isControl(c)) {
            appendHex(result, c);
        } else if (i + 1 < text.size() && isHighControl(c, static_cast<unsigned char>(text[i + 1]))) {
            appendHex(result, c);
            appendHex(result, static_cast<unsigned char>(text[++i]));
        } else {
            result += text[i];
        }
    }
    return result;
}

}  // namespace sal
