#include "mfd/Text.h"

namespace mfd {

std::string fittingText(const std::string& text) {
    if (text.size() <= s_longestText)
        return text;
    std::size_t end = s_longestText;
    // Back to the beginning of a character; what is no UTF-8 is cut where the room ends.
    const auto continues = [&](std::size_t at) {
        return (static_cast<unsigned char>(text[at]) & 0xc0U) == 0x80U;
    };
    while (end > s_longestText - 4 && continues(end))
        --end;
    return text.substr(0, continues(end) ? s_longestText : end);
}

}  // namespace mfd
