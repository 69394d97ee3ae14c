#pragma once

#include <ostream>
#include <string>
#include <vector>

/// Rows of text in columns, the first row being the headings.
class Table {
public:
    explicit Table(std::vector<std::string> headings);

    /// The cells are made printable: no driver's text can move the operator's cursor.
    void addRow(std::vector<std::string> cells);
    bool empty() const { return m_rows.size() == 1; }
    void print(std::ostream& stream) const;

private:
    std::vector<std::vector<std::string>> m_rows;
};
