#include "Redaction.h"

#include <algorithm>
#include <array>
#include <cctype>

namespace {

using Json = nlohmann::json;

/// Anywhere in a name.
constexpr std::array<std::string_view, 9> s_parts{"password",   "passwd", "passphrase", "secret", "token",
                                                  "credential", "apikey", "privatekey", "cookie"};
/// As a word of a name.
constexpr std::array<std::string_view, 7> s_words{"pin",  "pwd",           "pass", "key",
                                                  "auth", "authorization", "psk"};

bool isNameCharacter(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_' || c == '-' || c == '.';
}

bool isBlank(char c) {
    return c == ' ' || c == '\t';
}

/// What stands before the separator: NAME, or "NAME" in quotes, and blanks.
std::string_view nameBefore(std::string_view text, std::size_t separator) {
    std::size_t end = separator;
    while (end > 0 && isBlank(text[end - 1]))
        --end;
    if (end > 0 && (text[end - 1] == '"' || text[end - 1] == '\''))
        --end;
    std::size_t begin = end;
    while (begin > 0 && isNameCharacter(text[begin - 1]))
        --begin;
    return text.substr(begin, end - begin);
}

/// Behind the value that begins here.
std::size_t valueEnd(std::string_view text, std::size_t begin, char separator) {
    if (begin < text.size() && (text[begin] == '"' || text[begin] == '\'')) {
        for (std::size_t i = begin + 1; i < text.size(); ++i) {
            if (text[i] == '\\')
                ++i;
            else if (text[i] == text[begin])
                return i + 1;
        }
        return text.size();
    }
    // After a colon, as in the head of a message, the rest of the line.
    const std::string_view ends = separator == '=' ? std::string_view(" \t\r\n,;&<>)") : "\r\n";
    return std::min(text.find_first_of(ends, begin), text.size());
}

std::string withoutValues(std::string_view text) {
    std::string result;
    std::size_t taken = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if ((text[i] != '=' && text[i] != ':') || !Redaction::isSecret(nameBefore(text, i)))
            continue;
        std::size_t begin = i + 1;
        while (begin < text.size() && isBlank(text[begin]))
            ++begin;
        const std::size_t end = valueEnd(text, begin, text[i]);
        if (end == begin)
            continue;
        result += text.substr(taken, begin - taken);
        result += Redaction::s_mark;
        taken = end;
        i = end - 1;
    }
    return result + std::string(text.substr(taken));
}

/// scheme://USER:PASSWORD@
std::string withoutUsers(std::string_view text) {
    std::string result;
    std::size_t taken = 0;
    for (std::size_t found = text.find("://"); found != std::string_view::npos;
         found = text.find("://", found + 3)) {
        const std::size_t begin = found + 3;
        const std::size_t end = text.find_first_of("/ \t\r\n\"'<>", begin);
        const std::string_view authority =
            text.substr(begin, end == std::string_view::npos ? end : end - begin);
        const std::size_t at = authority.rfind('@');
        if (at == std::string_view::npos)
            continue;
        result += text.substr(taken, begin - taken);
        result += Redaction::s_mark;
        taken = begin + at;
    }
    return result + std::string(text.substr(taken));
}

std::string withoutKeys(std::string_view text) {
    constexpr std::string_view head = "-----BEGIN ";
    constexpr std::string_view tail = "-----END ";
    std::string result;
    std::size_t taken = 0;
    for (std::size_t begin = text.find(head); begin != std::string_view::npos;
         begin = text.find(head, taken)) {
        const std::size_t end = text.find(tail, begin);
        const std::size_t close = end == std::string_view::npos ? end : text.find('\n', end);
        result += text.substr(taken, begin - taken);
        result += "[key left out]";
        taken = std::min(close, text.size());
        if (taken == text.size())
            break;
    }
    return result + std::string(text.substr(taken));
}

bool isNamedSecret(const Json& value) {
    for (const char* pName : {"key", "id", "name"}) {
        if (value.contains(pName) && value[pName].is_string() &&
            Redaction::isSecret(value[pName].get<std::string>()))
            return true;
    }
    return false;
}

}  // namespace

bool Redaction::isSecret(std::string_view name) {
    std::string lower(name);
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    std::string letters;
    std::string word;
    bool isWordSecret = false;
    for (const char c : lower + ".") {
        if (std::isalnum(static_cast<unsigned char>(c)) != 0) {
            letters += c;
            word += c;
            continue;
        }
        isWordSecret = isWordSecret || std::find(s_words.begin(), s_words.end(), word) != s_words.end();
        word.clear();
    }
    return isWordSecret || std::any_of(s_parts.begin(), s_parts.end(), [&](std::string_view part) {
               return letters.find(part) != std::string::npos;
           });
}

std::string Redaction::text(std::string_view text) {
    return withoutUsers(withoutValues(withoutKeys(text)));
}

std::vector<std::string> Redaction::command(std::vector<std::string> words) {
    for (std::size_t i = 0; i < words.size(); ++i) {
        const bool isOption = words[i].starts_with("-") && words[i].find('=') == std::string::npos;
        if (isOption && isSecret(words[i]) && i + 1 < words.size())
            words[++i] = s_mark;
        else
            words[i] = text(words[i]);
    }
    return words;
}

Json Redaction::json(Json value) {
    if (value.is_string())
        return text(value.get<std::string>());
    if (value.is_array()) {
        const bool isPair = value.size() == 2 && value[0].is_string() && !value[1].is_structured();
        if (isPair && isSecret(value[0].get<std::string>())) {
            value[1] = s_mark;
            return value;
        }
        for (Json& element : value)
            element = json(std::move(element));
        return value;
    }
    if (!value.is_object())
        return value;
    const bool isNamed = isNamedSecret(value);
    for (auto& [name, member] : value.items()) {
        // What every state value has; it names one and is none.
        const bool isKeyOfState = name == "key";
        const bool isValue = isNamed && (name == "value" || name == "text");
        if (isValue || (!isKeyOfState && isSecret(name)))
            member = s_mark;
        else
            member = json(std::move(member));
    }
    return value;
}
