#include "Table.h"

#include <algorithm>
#include <utility>

#include "Printable.h"

namespace {

/// Code points of a UTF-8 text: what a terminal shows of it, near enough.
std::size_t width(const std::string& text) {
    return static_cast<std::size_t>(
        std::count_if(text.begin(), text.end(), [](char c) { return (c & 0xc0) != 0x80; }));
}

}  // namespace

Table::Table(std::vector<std::string> headings) {
    m_rows.push_back(std::move(headings));
}

void Table::addRow(std::vector<std::string> cells) {
    for (std::string& cell : cells)
        cell = base::printable(cell);
    m_rows.push_back(std::move(cells));
}

void Table::print(std::ostream& stream) const {
    std::vector<std::size_t> widths;
    for (const auto& row : m_rows) {
        widths.resize(std::max(widths.size(), row.size()));
        for (std::size_t i = 0; i < row.size(); ++i)
            widths[i] = std::max(widths[i], width(row[i]));
    }
    for (const auto& row : m_rows) {
        std::string line;
        for (std::size_t i = 0; i < row.size(); ++i) {
            line += row[i];
            if (i + 1 < row.size())
                line.append(widths[i] - width(row[i]) + 2, ' ');
        }
        line.erase(line.find_last_not_of(' ') + 1);
        stream << line << '\n';
    }
    stream << std::flush;
}
