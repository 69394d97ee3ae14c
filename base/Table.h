#pragma once

#include <cstddef>
#include <ostream>
#include <string>
#include <vector>

namespace base {

/// Rows of text in columns, the first row being the headings. One thread.
class Table {
public:
    /// How the output shows it.
    struct Look {
        std::size_t width = 0;  ///< characters that a line may have; 0: as many as it takes
        bool isColoured = false;
    };
    enum class EColour { None, Red, Yellow };

    explicit Table(std::vector<std::string> headings);

    /// The cells are made printable: no driver's text can move the operator's cursor.
    void addRow(std::vector<std::string> cells, EColour colour = EColour::None);
    bool empty() const { return m_rows.size() == 1; }

    /// As wide as the cells are.
    void print(std::ostream& stream) const { print(stream, Look()); }
    /// Where a line would be wider than the look has it, the widest cells are cut and end with "…". No column
    /// becomes narrower than 8 characters for it.
    void print(std::ostream& stream, const Look& look) const;

private:
    struct Row {
        std::vector<std::string> cells;
        EColour colour = EColour::None;
    };
    std::vector<std::size_t> columnWidths(std::size_t limit) const;

    std::vector<Row> m_rows;
};

}  // namespace base
