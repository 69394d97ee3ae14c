#include "CommandWords.h"

std::vector<std::string> CommandWords::split(const std::string& line) {
    std::vector<std::string> words;
    std::string word;
    bool isInWord = false;
    char quote = 0;
    for (std::size_t i = 0; i < line.size(); ++i) {
        const char c = line[i];
        if (quote == '\'') {
            if (c == quote)
                quote = 0;
            else
                word += c;
        } else if (c == '\\') {
            if (i + 1 == line.size())
                return {};
            // Inside double quotes a backslash escapes only what is special there.
            const char next = line[i + 1];
            if (quote && next != '"' && next != '\\') {
                word += c;
            } else {
                word += next;
                ++i;
            }
            isInWord = true;
        } else if (quote) {
            if (c == quote)
                quote = 0;
            else
                word += c;
        } else if (c == '"' || c == '\'') {
            quote = c;
            isInWord = true;
        } else if (c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\v' || c == '\f') {
            if (isInWord)
                words.push_back(word);
            word.clear();
            isInWord = false;
        } else if (c == '#' && words.empty() && !isInWord) {
            return {};
        } else {
            word += c;
            isInWord = true;
        }
    }
    if (quote)
        return {};
    if (isInWord)
        words.push_back(word);
    return words;
}
