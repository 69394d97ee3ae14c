#include "ApiTarget.h"

#include <algorithm>
#include <utility>

#include "ApiFault.h"
#include "ApiWords.h"
#include "Nearest.h"
#include "Printable.h"

namespace {

constexpr std::string_view s_scheme = "http://";

/// -1 for none.
int hexDigit(char c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

std::string decoded(std::string_view text) {
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            result += text[i];
            continue;
        }
        const int high = i + 2 < text.size() ? hexDigit(text[i + 1]) : -1;
        const int low = i + 2 < text.size() ? hexDigit(text[i + 2]) : -1;
        if (high < 0 || low < 0)
            throw ApiFault::invalid("the target has " + base::quoted(text.substr(i, 3)) +
                                    ", and % must be followed by two hexadecimal digits");
        result += static_cast<char>(high * 16 + low);
        i += 2;
    }
    return result;
}

/// What comes before the next separator, which is taken away with it.
std::string_view next(std::string_view& text, char separator) {
    const std::size_t size = std::min(text.find(separator), text.size());
    const std::string_view part = text.substr(0, size);
    text.remove_prefix(std::min(size + 1, text.size()));
    return part;
}

}  // namespace

ApiTarget ApiTarget::read(std::string_view target) {
    if (target.size() > s_longest)
        throw ApiFault(ApiFault::ECode::TooLarge,
                       "the target has more than " + std::to_string(s_longest) + " bytes");
    const auto wrong =
        std::find_if(target.begin(), target.end(), [](char c) { return c <= ' ' || c > '~' || c == '#'; });
    if (wrong != target.end())
        throw ApiFault::invalid("the target has " + base::quoted({wrong, wrong + 1}) +
                                ", which must be percent-encoded");
    // As proxies are asked: whichever host it names is the one that is asked.
    const bool isWhole = target.starts_with(s_scheme);
    if (isWhole)
        target.remove_prefix(std::min(target.find_first_of("/?", s_scheme.size()), target.size()));
    else if (!target.starts_with('/'))
        throw ApiFault::invalid("the target does not begin with a slash");

    ApiTarget result;
    std::string_view query = target;
    std::string_view path = next(query, '?');
    path.remove_prefix(std::min<std::size_t>(path.size(), 1));
    while (!path.empty())
        result.path.push_back(decoded(next(path, '/')));
    while (!query.empty()) {
        std::string_view value = next(query, '&');
        std::string name = decoded(next(value, '='));
        if (name.empty())
            throw ApiFault::invalid("the target has a parameter without a name");
        if (result.query.contains(name))
            throw ApiFault::invalid("the parameter " + base::quoted(name) + " stands twice");
        result.query.emplace(std::move(name), decoded(value));
    }
    return result;
}

void ApiTarget::allowQuery(const std::vector<std::string>& names) const {
    for (const auto& [name, value] : query) {
        if (std::find(names.begin(), names.end(), name) != names.end())
            continue;
        throw ApiFault(ApiFault::ECode::RequestInvalid,
                       "there is no parameter " + base::quoted(name) + "; " + knownWords(names),
                       base::nearest(name, names));
    }
}
