#include "StreamPrinter.h"

#include "StreamText.h"

base::Table::EColour StreamPrinter::colourOf(std::string_view kind) {
    using EColour = base::Table::EColour;
    if (kind == "exit" || kind == "hang")
        return EColour::Bad;
    if (kind == "restart" || kind == "stale" || kind == "gap")
        return EColour::Warning;
    return EColour::None;
}

void StreamPrinter::printRecord(const stream::IStreamReader& reader) {
    if (m_form == EForm::Json) {
        stream::appendJson(m_json, reader.record(), reader.names());
        printJson(reader);
        return;
    }
    const std::string line = stream::lineOf(reader.record(), reader.names(), m_form == EForm::Date);
    m_screen.out << m_screen.coloured(colourOf(stream::kindName(reader.record().kind)), line) << '\n';
}

void StreamPrinter::printGap(const stream::IStreamReader& reader) {
    if (m_form == EForm::Json) {
        stream::appendJson(m_json, reader.gap());
        printJson(reader);
        return;
    }
    const std::string line = stream::lineOf(reader.gap(), m_form == EForm::Date);
    m_screen.out << m_screen.coloured(colourOf("gap"), line) << '\n';
}

void StreamPrinter::printJson(const stream::IStreamReader& reader) {
    stream::addCursor(m_json, reader.cursor());
    m_screen.out << m_json << '\n';
    m_json.clear();
}
