#pragma once

#include <string>
#include <vector>

/// "known are a, b, c", or "none is known".
inline std::string knownWords(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words)
        text += (text.empty() ? "known are " : ", ") + word;
    return text.empty() ? "none is known" : text;
}
