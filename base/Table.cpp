#include "Table.h"

#include <algorithm>
#include <numeric>

#include "Printable.h"

namespace base {
namespace {

constexpr std::size_t s_gap = 2;
constexpr std::size_t s_narrowest = 8;
constexpr const char* s_etCetera = "...";
constexpr std::size_t s_etCeteraWidth = 3;

bool beginsCharacter(char c) {
    return (c & 0xc0) != 0x80;
}

/// Code points of a UTF-8 text: what a terminal shows of it, near enough.
std::size_t widthOf(const std::string& text) {
    return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), beginsCharacter));
}

/// The text in so many columns.
std::string cut(const std::string& text, std::size_t most) {
    if (widthOf(text) <= most)
        return text;
    std::size_t characters = 0;
    const auto end = std::find_if(text.begin(), text.end(), [&](char c) {
        return beginsCharacter(c) && ++characters > most - s_etCeteraWidth;
    });
    return std::string(text.begin(), end) + s_etCetera;
}

/// What the widths take together, and the gaps between them.
std::size_t sum(const std::vector<std::size_t>& widths) {
    const std::size_t gaps = widths.empty() ? 0 : s_gap * (widths.size() - 1);
    return std::accumulate(widths.begin(), widths.end(), gaps);
}

const char* sequence(Table::EColour colour) {
    switch (colour) {
        case Table::EColour::Good:
            return "\x1b[32m";
        case Table::EColour::Warning:
            return "\x1b[33m";
        case Table::EColour::Bad:
            return "\x1b[31m";
        case Table::EColour::Faint:
            return "\x1b[2m";
        default:
            return "";
    }
}

}  // namespace

Table::Table(std::vector<std::string> headings) {
    m_rows.emplace_back(headings.begin(), headings.end());
}

void Table::addRow(std::vector<Cell> cells) {
    for (Cell& cell : cells)
        cell.text = printable(cell.text);
    m_rows.push_back(std::move(cells));
}

std::string Table::coloured(const std::string& text, EColour colour) {
    return colour == EColour::None || text.empty() ? text : sequence(colour) + text + "\x1b[0m";
}

std::vector<std::size_t> Table::widths() const {
    std::vector<std::size_t> widths;
    for (const auto& row : m_rows) {
        widths.resize(std::max(widths.size(), row.size()));
        for (std::size_t i = 0; i < row.size(); ++i)
            widths[i] = std::max(widths[i], widthOf(row[i].text));
    }
    return widths;
}

std::size_t Table::width() const {
    return sum(widths());
}

bool Table::givesWay(std::size_t column) const {
    return m_shortened.empty() ||
           std::find(m_shortened.begin(), m_shortened.end(), column) != m_shortened.end();
}

void Table::fit(std::vector<std::size_t>& widths, std::size_t limit) const {
    const auto& headings = m_rows.front();
    while (sum(widths) > limit) {
        std::size_t* pWidest = nullptr;
        for (std::size_t i = 0; i < headings.size(); ++i) {
            const std::size_t narrowest = std::max(s_narrowest, widthOf(headings[i].text));
            if (givesWay(i) && widths[i] > narrowest && (!pWidest || widths[i] >= *pWidest))
                pWidest = &widths[i];
        }
        // The terminal breaks the lines then.
        if (!pWidest)
            return;
        --*pWidest;
    }
}

void Table::print(std::ostream& stream, const Look& look) const {
    std::vector<std::size_t> widths = this->widths();
    if (look.width > 0)
        fit(widths, look.width);
    for (const auto& row : m_rows) {
        std::string line;
        // Blanks are written before the next text only, so that none stand at the end of a line.
        std::size_t blanks = 0;
        for (std::size_t i = 0; i < row.size(); ++i) {
            const std::string text = cut(row[i].text, widths[i]);
            if (!text.empty()) {
                line.append(blanks, ' ');
                line += look.isColoured ? coloured(text, row[i].colour) : text;
                blanks = 0;
            }
            blanks += widths[i] - widthOf(text) + s_gap;
        }
        line.erase(line.find_last_not_of(' ') + 1);
        stream << line << '\n';
    }
    stream << std::flush;
}

}  // namespace base
