#include "CsvText.h"

#include <initializer_list>
#include <string_view>

#include "Printable.h"
#include "StreamText.h"

namespace {

std::string rowOfCells(std::initializer_list<std::string_view> cells) {
    std::string row;
    for (const std::string_view cell : cells) {
        row += row.empty() ? "" : ",";
        if (cell.find_first_of("\",\r\n") == std::string_view::npos) {
            row += cell;
            continue;
        }
        row += '"';
        for (const char c : cell)
            row += c == '"' ? std::string("\"\"") : std::string(1, c);
        row += '"';
    }
    return row + "\r\n";
}

}  // namespace

std::string csv::head() {
    return rowOfCells({"number", "time", "kind", "driver", "key", "value", "text"});
}

std::string csv::rowOf(const stream::StreamRecord& record, const stream::KeyNames& names) {
    return rowOfCells({std::to_string(record.number), stream::utcText(record.time), kindName(record.kind),
                       base::printable(names.driver(record.driver())), base::printable(names.key(record)),
                       base::printable(stream::valueOf(record)), stream::textOf(record, names)});
}

std::string csv::rowOf(const stream::StreamGap& gap) {
    // Without its time, which has a cell of its own.
    const std::string line = stream::lineOf(gap, true);
    return rowOfCells({std::to_string(gap.first), stream::utcText(gap.to), "gap", "", "", "",
                       line.substr(line.find(" gap: ") + 6)});
}
