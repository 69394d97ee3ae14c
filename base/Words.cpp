#include "Words.h"

#include <algorithm>
#include <cctype>
#include <string_view>

namespace base {
namespace {

bool isBlank(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f';
}

}  // namespace

Words splitWords(const std::string& line) {
    Words result;
    std::string word;
    bool inWord = false;
    char quote = 0;
    std::size_t quoteColumn = 0;

    for (std::size_t i = 0; i < line.size(); ++i) {
        const char c = line[i];
        if (quote) {
            const bool escapes = quote == '"' && c == '\\' && i + 1 < line.size() &&
                                 (line[i + 1] == '"' || line[i + 1] == '\\');
            if (c == quote)
                quote = 0;
            else
                word += escapes ? line[++i] : c;
        } else if (isBlank(c)) {
            if (inWord)
                result.words.push_back(word);
            word.clear();
            inWord = false;
        } else if (c == '\'' || c == '"') {
            quote = c;
            quoteColumn = i + 1;
            inWord = true;
        } else if (c == '\\') {
            if (i + 1 == line.size())
                return {{}, "nothing follows the backslash at the end of the line"};
            word += line[++i];
            inWord = true;
        } else if (c == '#' && result.words.empty() && !inWord) {
            return {};
        } else {
            word += c;
            inWord = true;
        }
    }
    if (quote)
        return {{},
                std::string("the ") + quote + " in column " + std::to_string(quoteColumn) + " is not closed"};
    if (inWord)
        result.words.push_back(word);
    return result;
}

std::string shellWord(const std::string& text) {
    const auto isPlain = [](unsigned char letter) {
        constexpr std::string_view others = "_-./:=,+@%";
        return letter < 128 &&
               (std::isalnum(letter) != 0 || others.find(static_cast<char>(letter)) != others.npos);
    };
    if (!text.empty() && std::all_of(text.begin(), text.end(), isPlain))
        return text;
    std::string word = "'";
    for (const char letter : text)
        word += letter == '\'' ? std::string("'\\''") : std::string(1, letter);
    return word + "'";
}

}  // namespace base
