#include "Nearest.h"

#include <algorithm>
#include <array>
#include <utility>

#include "Printable.h"

namespace base {
namespace {

constexpr std::size_t s_longest = 64;
/// Of characters; more is another word.
constexpr std::size_t s_mostDifferent = 3;
/// Of characters; fewer begin too many words.
constexpr std::size_t s_shortestBeginning = 3;

char small(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool isAlike(char a, char b) {
    return small(a) == small(b);
}

/// How many characters are to be put in, taken out, replaced or swapped with their neighbour, each at most
/// once. Both texts have at most s_longest bytes.
std::size_t difference(std::string_view a, std::string_view b) {
    using Row = std::array<std::size_t, s_longest + 1>;
    Row before{};
    Row last{};
    Row row{};
    for (std::size_t j = 0; j <= b.size(); ++j)
        last[j] = j;
    for (std::size_t i = 1; i <= a.size(); ++i) {
        row[0] = i;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const std::size_t replaced = last[j - 1] + (isAlike(a[i - 1], b[j - 1]) ? 0 : 1);
            row[j] = std::min({last[j] + 1, row[j - 1] + 1, replaced});
            if (i > 1 && j > 1 && isAlike(a[i - 1], b[j - 2]) && isAlike(a[i - 2], b[j - 1]))
                row[j] = std::min(row[j], before[j - 2] + 1);
        }
        before = last;
        last = row;
    }
    return last[b.size()];
}

bool isBeginning(std::string_view word, std::string_view candidate) {
    return word.size() >= s_shortestBeginning && word.size() <= candidate.size() &&
           std::equal(word.begin(), word.end(), candidate.begin(), isAlike);
}

}  // namespace

std::vector<std::string> nearest(std::string_view word, const std::vector<std::string>& words,
                                 std::size_t most) {
    std::vector<std::string> found;
    if (word.size() > s_longest)
        return found;
    const std::size_t limit = std::clamp<std::size_t>(word.size() / 3, 1, s_mostDifferent);
    std::vector<std::pair<std::size_t, const std::string*>> alike;
    for (const std::string& candidate : words) {
        const std::size_t sizes =
            candidate.size() > word.size() ? candidate.size() - word.size() : word.size() - candidate.size();
        if (candidate.size() > s_longest)
            continue;
        if (isBeginning(word, candidate))
            alike.emplace_back(sizes, &candidate);
        else if (sizes > limit)
            continue;
        else if (const std::size_t size = difference(word, candidate); size <= limit)
            alike.emplace_back(size, &candidate);
    }
    std::stable_sort(alike.begin(), alike.end(),
                     [](const auto& one, const auto& other) { return one.first < other.first; });
    for (std::size_t i = 0; i < alike.size() && i < most; ++i)
        found.push_back(*alike[i].second);
    return found;
}

std::string didYouMean(const std::vector<std::string>& names) {
    std::string text;
    for (std::size_t i = 0; i < names.size(); ++i)
        text += (i == 0 ? "; did you mean " : i + 1 == names.size() ? " or " : ", ") + names[i];
    return names.empty() ? text : text + "?";
}

std::string didYouMeanQuoted(std::vector<std::string> names) {
    for (std::string& name : names)
        name = quoted(name);
    return didYouMean(names);
}

}  // namespace base
