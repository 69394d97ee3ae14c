#include "LineDiff.h"

#include <algorithm>
#include <cstdint>
#include <sstream>
#include <vector>

namespace {

using Lines = std::vector<std::string>;

constexpr std::size_t s_context = 2;
/// Of the table; beyond it all lines of the middle count as different.
constexpr std::size_t s_mostCells = 4'000'000;

struct Step {
    char sign;
    std::string line;
    std::size_t number;  ///< in the second text, of the line or of the next one that it has
};

Lines linesOf(const std::string& text) {
    Lines lines;
    std::istringstream input(text);
    for (std::string line; std::getline(input, line);)
        lines.push_back(line);
    return lines;
}

/// The length of the longest common part of what follows, for each pair of places.
class CommonLengths {
public:
    CommonLengths(const Lines& left, const Lines& right, std::size_t begin, std::size_t leftEnd,
                  std::size_t rightEnd)
        : m_begin(begin), m_width(rightEnd - begin + 1), m_cells((leftEnd - begin + 1) * m_width) {
        for (std::size_t i = leftEnd; i-- > begin;) {
            for (std::size_t j = rightEnd; j-- > begin;)
                cell(i, j) =
                    left[i] == right[j] ? cell(i + 1, j + 1) + 1 : std::max(cell(i + 1, j), cell(i, j + 1));
        }
    }
    std::uint32_t& cell(std::size_t i, std::size_t j) {
        return m_cells[(i - m_begin) * m_width + (j - m_begin)];
    }

private:
    const std::size_t m_begin;
    const std::size_t m_width;
    std::vector<std::uint32_t> m_cells;
};

std::vector<Step> steps(const Lines& left, const Lines& right) {
    std::size_t begin = 0;
    while (begin < left.size() && begin < right.size() && left[begin] == right[begin])
        ++begin;
    std::size_t leftEnd = left.size();
    std::size_t rightEnd = right.size();
    while (leftEnd > begin && rightEnd > begin && left[leftEnd - 1] == right[rightEnd - 1]) {
        --leftEnd;
        --rightEnd;
    }
    std::vector<Step> all;
    for (std::size_t i = 0; i < begin; ++i)
        all.push_back({' ', left[i], i + 1});
    std::size_t i = begin;
    std::size_t j = begin;
    if ((leftEnd - begin + 1) * (rightEnd - begin + 1) <= s_mostCells) {
        CommonLengths common(left, right, begin, leftEnd, rightEnd);
        while (i < leftEnd && j < rightEnd) {
            if (left[i] == right[j]) {
                all.push_back({' ', left[i], j + 1});
                ++i;
                ++j;
            } else if (common.cell(i + 1, j) >= common.cell(i, j + 1)) {
                all.push_back({'-', left[i++], j + 1});
            } else {
                all.push_back({'+', right[j], j + 1});
                ++j;
            }
        }
    }
    while (i < leftEnd)
        all.push_back({'-', left[i++], j + 1});
    for (; j < rightEnd; ++j)
        all.push_back({'+', right[j], j + 1});
    for (; j < right.size(); ++j)
        all.push_back({' ', right[j], j + 1});
    return all;
}

}  // namespace

std::string lineDiff(const std::string& before, const std::string& after) {
    const std::vector<Step> all = steps(linesOf(before), linesOf(after));
    std::vector<bool> isShown(all.size());
    for (std::size_t i = 0; i < all.size(); ++i) {
        if (all[i].sign == ' ')
            continue;
        const std::size_t first = i < s_context ? 0 : i - s_context;
        const std::size_t last = std::min(all.size() - 1, i + s_context);
        for (std::size_t k = first; k <= last; ++k)
            isShown[k] = true;
    }
    std::string text;
    for (std::size_t i = 0; i < all.size(); ++i) {
        if (!isShown[i])
            continue;
        if (i == 0 || !isShown[i - 1])
            text += "@@ line " + std::to_string(all[i].number) + "\n";
        text += all[i].sign + all[i].line + "\n";
    }
    return text;
}
