#pragma once

#include <ostream>
#include <string>
#include <vector>

/// Rows of text in columns, the first row being the headings.
class Table {
public:
    explicit Table(std::vector<std::string> headings);

    /// Control characters are shown as escapes, so that no driver's text can move the operator's cursor.
    void addRow(std::vector<std::string> cells);
    bool empty() const { return m_rows.size() == 1; }
    void print(std::ostream& stream) const;

    static std::string printable(const std::string& text);

private:
    std::vector<std::vector<std::string>> m_rows;
};
