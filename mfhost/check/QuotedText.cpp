#include "QuotedText.h"

namespace {

constexpr std::size_t s_mostBytes = 80;

}  // namespace

std::string QuotedText::of(const std::string& text) {
    static constexpr char digits[] = "0123456789ABCDEF";
    std::string quoted = "\"";
    for (const char c : text.substr(0, s_mostBytes)) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte == 0x7F) {
            quoted += "\\x";
            quoted += digits[byte >> 4];
            quoted += digits[byte & 15];
        } else {
            quoted += c;
        }
    }
    return quoted + (text.size() > s_mostBytes ? "\"..." : "\"");
}
