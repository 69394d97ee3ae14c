#include "Table.h"

#include <algorithm>
#include <utility>

#include "Printable.h"

namespace base {
namespace {

constexpr std::size_t s_gap = 2;
constexpr std::size_t s_narrowest = 8;

bool beginsCharacter(char c) {
    return (c & 0xc0) != 0x80;
}

/// Code points of a UTF-8 text: what a terminal shows of it, near enough.
std::size_t width(const std::string& text) {
    return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), beginsCharacter));
}

std::string cut(const std::string& text, std::size_t most) {
    if (width(text) <= most)
        return text;
    std::size_t characters = 0;
    const auto end = std::find_if(text.begin(), text.end(),
                                  [&](char c) { return beginsCharacter(c) && ++characters == most; });
    return std::string(text.begin(), end) + "\xe2\x80\xa6";
}

/// What the line has with no column wider than the cap.
std::size_t lineWidth(const std::vector<std::size_t>& widths, std::size_t cap) {
    std::size_t sum = widths.empty() ? 0 : s_gap * (widths.size() - 1);
    for (const std::size_t each : widths)
        sum += std::min(each, cap);
    return sum;
}

const char* sequence(Table::EColour colour) {
    switch (colour) {
        case Table::EColour::Red:
            return "\x1b[31m";
        case Table::EColour::Yellow:
            return "\x1b[33m";
        default:
            return "";
    }
}

}  // namespace

Table::Table(std::vector<std::string> headings) {
    m_rows.push_back({std::move(headings), EColour::None});
}

void Table::addRow(std::vector<std::string> cells, EColour colour) {
    for (std::string& cell : cells)
        cell = printable(cell);
    m_rows.push_back({std::move(cells), colour});
}

std::vector<std::size_t> Table::columnWidths(std::size_t limit) const {
    std::vector<std::size_t> widths;
    for (const Row& row : m_rows) {
        widths.resize(std::max(widths.size(), row.cells.size()));
        for (std::size_t i = 0; i < row.cells.size(); ++i)
            widths[i] = std::max(widths[i], width(row.cells[i]));
    }
    if (limit == 0 || widths.empty())
        return widths;
    std::size_t cap = *std::max_element(widths.begin(), widths.end());
    while (cap > s_narrowest && lineWidth(widths, cap) > limit)
        --cap;
    for (std::size_t& each : widths)
        each = std::min(each, cap);
    return widths;
}

void Table::print(std::ostream& stream, const Look& look) const {
    const std::vector<std::size_t> widths = columnWidths(look.width);
    for (const Row& row : m_rows) {
        std::string line;
        for (std::size_t i = 0; i < row.cells.size(); ++i) {
            const std::string cell = cut(row.cells[i], widths[i]);
            line += cell;
            if (i + 1 < row.cells.size())
                line.append(widths[i] - width(cell) + s_gap, ' ');
        }
        line.erase(line.find_last_not_of(' ') + 1);
        const bool hasColour = look.isColoured && row.colour != EColour::None;
        stream << (hasColour ? sequence(row.colour) : "") << line << (hasColour ? "\x1b[0m" : "") << '\n';
    }
    stream << std::flush;
}

}  // namespace base
