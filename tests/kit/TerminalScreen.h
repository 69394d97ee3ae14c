#pragma once

#include <algorithm>
#include <cstddef>
#include <string>
#include <vector>

/// What a terminal of so many columns shows of all that was written to it, as far as a line editor goes: rows
/// that grow without an end, one character a byte.
class TerminalScreen {
public:
    TerminalScreen(std::size_t columns, const std::string& written) : m_columns(columns) {
        for (std::size_t at = 0; at < written.size();)
            at = written[at] == '\x1b' ? obey(written, at) : put(written, at);
    }

    /// Without blanks at their ends, and without empty rows at the end.
    std::vector<std::string> rows() const {
        std::vector<std::string> rows = m_rows;
        for (std::string& row : rows)
            row.erase(row.find_last_not_of(' ') + 1);
        while (!rows.empty() && rows.back().empty())
            rows.pop_back();
        return rows;
    }

private:
    std::string& row() {
        if (m_rows.size() <= m_row)
            m_rows.resize(m_row + 1);
        return m_rows[m_row];
    }
    std::size_t put(const std::string& written, std::size_t at) {
        const char c = written[at];
        if (c == '\r') {
            m_column = 0;
        } else if (c == '\n') {
            ++m_row;
        } else if (c == '\b') {
            m_column -= m_column > 0 ? 1 : 0;
        } else if (static_cast<unsigned char>(c) >= ' ') {
            // A character beyond the last column goes to the next row.
            if (m_column == m_columns) {
                ++m_row;
                m_column = 0;
            }
            std::string& text = row();
            text.resize(std::max(text.size(), m_column + 1), ' ');
            if (m_inserts)
                text.insert(m_column, 1, c);
            else
                text[m_column] = c;
            ++m_column;
        }
        return at + 1;
    }
    /// A sequence ESC [ NUMBER LETTER; others do nothing.
    std::size_t obey(const std::string& written, std::size_t at) {
        if (at + 1 >= written.size() || written[at + 1] != '[')
            return at + 2;
        const std::size_t end = written.find_first_of("@ABCDEFGHJKLMPXdfhlmnr", at + 2);
        if (end == std::string::npos)
            return written.size();
        const std::string text = written.substr(at + 2, end - at - 2);
        const std::size_t number =
            text.empty() || text.find_first_not_of("0123456789") != std::string::npos ? 0 : std::stoul(text);
        const std::size_t count = std::max<std::size_t>(number, 1);
        std::string& current = row();
        switch (written[end]) {
            case 'A':
                m_row -= std::min(m_row, count);
                break;
            case 'B':
                m_row += count;
                break;
            case 'C':
                m_column = std::min(m_column + count, m_columns - 1);
                break;
            case 'D':
                m_column -= std::min(m_column, count);
                break;
            case 'G':
                m_column = count - 1;
                break;
            case 'J':
                m_rows.resize(m_row + 1);
                [[fallthrough]];
            case 'K':
                m_rows[m_row].resize(std::min(m_rows[m_row].size(), m_column));
                break;
            case 'P':
                if (m_column < current.size())
                    current.erase(m_column, count);
                break;
            case '@':
                if (m_column < current.size())
                    current.insert(m_column, count, ' ');
                break;
            case 'h':
            case 'l':
                if (text == "4")
                    m_inserts = written[end] == 'h';
                break;
            default:
                break;
        }
        return end + 1;
    }

    const std::size_t m_columns;
    std::vector<std::string> m_rows;
    std::size_t m_row = 0;
    std::size_t m_column = 0;
    bool m_inserts = false;
};
