#include "SecretNames.h"

#include <fnmatch.h>

#include <algorithm>

#include "FidFields.h"
#include "Words.h"

namespace {

bool matches(const std::string& glob, std::string_view text) {
    return ::fnmatch(glob.c_str(), std::string(text).c_str(), 0) == 0;
}

bool isPartOfName(char character) {
    // What may stand around "NAME=VALUE" in a line; a name holds neither.
    return std::string_view(" \t\"'(),;=").find(character) == std::string_view::npos;
}

}  // namespace

bool SecretNames::add(std::string_view pattern) {
    const auto colon = pattern.rfind(':');
    Pattern one{"*", std::string(pattern)};
    if (colon != std::string_view::npos)
        one = {std::string(pattern.substr(0, colon)), std::string(pattern.substr(colon + 1))};
    if (one.fid.empty() || one.parameter.empty())
        return false;
    m_patterns.push_back(std::move(one));
    return true;
}

bool SecretNames::has(std::string_view fid, std::string_view parameter) const {
    return std::any_of(m_patterns.begin(), m_patterns.end(), [&](const Pattern& pattern) {
        return matches(pattern.parameter, parameter) && matches(pattern.fid, fid);
    });
}

bool SecretNames::isSecret(std::string_view parameter) const {
    return std::any_of(m_patterns.begin(), m_patterns.end(),
                       [&](const Pattern& pattern) { return matches(pattern.parameter, parameter); });
}

std::string SecretNames::inCommand(const std::string& line) const {
    if (m_patterns.empty())
        return line;
    base::Words words = base::splitWords(line);
    bool hasSecret = false;
    for (std::string& word : words.words) {
        const auto equals = word.find('=');
        if (equals != std::string::npos && isSecret(std::string_view(word).substr(0, equals))) {
            word.replace(equals + 1, std::string::npos, stream::FidFields::s_mask);
            hasSecret = true;
        }
    }
    std::string result;
    if (!hasSecret)
        return std::string(inLine(line, result));
    for (const std::string& word : words.words) {
        // The mask as it is read elsewhere, not as a word that a shell would take for a wildcard.
        const bool isMasked = word.ends_with("=***");
        result += (result.empty() ? "" : " ") + (isMasked ? word : base::shellWord(word));
    }
    return result;
}

std::string_view SecretNames::inLine(std::string_view line, std::string& room) const {
    if (m_patterns.empty())
        return line;
    for (auto equals = line.find('='); equals != std::string_view::npos;
         equals = line.find('=', equals + 1)) {
        auto begin = equals;
        while (begin > 0 && isPartOfName(line[begin - 1]))
            --begin;
        if (begin < equals && isSecret(line.substr(begin, equals - begin))) {
            room = line.substr(0, equals + 1);
            return room += stream::FidFields::s_mask;
        }
    }
    return line;
}
