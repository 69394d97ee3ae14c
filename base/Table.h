#pragma once

#include <cstddef>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace base {

/// Rows of text in columns, the first row being the headings. One thread.
class Table {
public:
    /// What a text says at a glance, where colours are shown.
    enum class EColour { None, Good, Warning, Bad, Faint };

    struct Cell {
        // A cell is written where a text is expected.
        Cell(std::string shown, EColour shade = EColour::None) : text(std::move(shown)), colour(shade) {}
        Cell(const char* pShown) : text(pShown) {}

        std::string text;
        EColour colour = EColour::None;
    };

    /// How the output shows it.
    struct Look {
        std::size_t width = 0;  ///< characters that a line may have; 0: as many as it takes
        bool isColoured = false;
    };

    explicit Table(std::vector<std::string> headings);

    /// Only these columns give way where the width is too small for all. Counted from 0.
    void shorten(std::vector<std::size_t> columns) { m_shortened = std::move(columns); }

    /// The cells are made printable: no driver's text can move the operator's cursor.
    void addRow(std::vector<Cell> cells);
    bool empty() const { return m_rows.size() == 1; }

    /// How wide the longest line is when nothing is shortened.
    std::size_t width() const;
    /// As wide as the cells are.
    void print(std::ostream& stream) const { print(stream, Look()); }
    /// Where a line would be wider than the look has it, cells of the widest columns are cut and end in
    /// "...". No column becomes narrower than its heading or than 8 characters for it.
    void print(std::ostream& stream, const Look& look) const;

    /// The text as a terminal shows it in that colour. It must be printable.
    static std::string coloured(const std::string& text, EColour colour);

private:
    std::vector<std::size_t> widths() const;
    bool givesWay(std::size_t column) const;
    void fit(std::vector<std::size_t>& widths, std::size_t limit) const;

    std::vector<std::vector<Cell>> m_rows;
    std::vector<std::size_t> m_shortened;  ///< none: all of them
};

}  // namespace base
