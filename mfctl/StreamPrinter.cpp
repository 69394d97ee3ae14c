#include "StreamPrinter.h"

#include "Printable.h"
#include "StreamText.h"

namespace {

using EColour = base::Table::EColour;

EColour colourOf(stream::EKind kind) {
    switch (kind) {
        case stream::EKind::Exit:
        case stream::EKind::Hang:
            return EColour::Bad;
        case stream::EKind::Restart:
        case stream::EKind::Stale:
        case stream::EKind::Gap:
            return EColour::Warning;
        default:
            return EColour::None;
    }
}

}  // namespace

void StreamPrinter::printRecord(const stream::IStreamReader& reader) {
    if (m_form == EForm::Json) {
        stream::appendJson(m_json, reader.record(), reader.names());
        printJson(reader);
        return;
    }
    const std::string line = stream::lineOf(reader.record(), reader.names(), m_form == EForm::Date);
    m_screen.out << m_screen.coloured(colourOf(reader.record().kind), line) << '\n';
}

void StreamPrinter::printGap(const stream::IStreamReader& reader) {
    if (m_form == EForm::Json) {
        stream::appendJson(m_json, reader.gap());
        printJson(reader);
        return;
    }
    const std::string line = stream::lineOf(reader.gap(), m_form == EForm::Date);
    m_screen.out << m_screen.coloured(EColour::Warning, line) << '\n';
}

void StreamPrinter::printJson(const stream::IStreamReader& reader) {
    m_json.pop_back();
    m_json += ",\"cursor\":" + base::jsonText(reader.cursor().text()) + '}';
    m_screen.out << m_json << '\n';
    m_json.clear();
}
