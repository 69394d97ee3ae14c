#include "RecordingCommands.h"

#include <optional>

#include "ControlError.h"
#include "Moment.h"
#include "RecordingDifference.h"
#include "RecordingList.h"
#include "RecordingStatistics.h"
#include "StreamPrinter.h"

EExit RecordingCommands::done() const {
    m_screen.out << std::flush;
    return m_screen.out ? EExit::Done : EExit::Failed;
}

RecordingReader::Bounds RecordingCommands::boundsOf(const Choice& choice) {
    const stream::Time now = std::chrono::system_clock::now();
    RecordingReader::Bounds bounds;
    if (!choice.from.empty())
        bounds.from = momentOf(choice.from, now);
    if (!choice.to.empty())
        bounds.to = momentOf(choice.to, now);
    if (bounds.to < bounds.from)
        throw ControlError(EExit::WrongUsage,
                           "the end, " + choice.to + ", is before the beginning, " + choice.from);
    return bounds;
}

void RecordingCommands::read(const RecordingFiles& files, const Choice& choice, const Take& takeRecord,
                             const Take& takeGap) const {
    const stream::StreamFilter filter = choice.what.filter();
    RecordingReader reader(files, boundsOf(choice));
    for (auto result = reader.next({}); result != stream::IStreamReader::EResult::End;
         result = reader.next({})) {
        const bool isGap = result == stream::IStreamReader::EResult::Gap;
        if (isGap && !takeGap(reader))
            break;
        if (!isGap && filter.matches(reader.record(), reader.names()) && !takeRecord(reader))
            break;
    }
    for (const std::string& fault : reader.faults())
        m_screen.complain(fault);
}

EExit RecordingCommands::list(const RecordingPlace& place, bool asJson) {
    const RecordingList list = RecordingList::of(place);
    if (asJson)
        m_screen.out << list.json().dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) << '\n';
    else
        list.print(m_screen);
    return done();
}

EExit RecordingCommands::show(const RecordingFiles& files, const Choice& choice) {
    StreamPrinter printer(m_screen, choice.asJson ? StreamPrinter::EForm::Json : StreamPrinter::EForm::Date);
    std::uint64_t shown = 0;
    read(
        files, choice,
        [&](const stream::IStreamReader& reader) {
            printer.printRecord(reader);
            return ++shown != choice.count && m_screen.out;
        },
        [&](const stream::IStreamReader& reader) {
            printer.printGap(reader);
            return static_cast<bool>(m_screen.out);
        });
    return done();
}

EExit RecordingCommands::stats(const RecordingFiles& files, const Choice& choice) {
    RecordingStatistics statistics;
    read(
        files, choice,
        [&](const stream::IStreamReader& reader) {
            statistics.addRecord(reader);
            return true;
        },
        [&](const stream::IStreamReader& reader) {
            statistics.addGap(reader.gap());
            return true;
        });
    if (choice.asJson)
        m_screen.out << statistics.json().dump(-1, ' ', false, nlohmann::json::error_handler_t::replace)
                     << '\n';
    else
        statistics.print(m_screen);
    return done();
}

EExit RecordingCommands::diff(const RecordingFiles& files, const Choice& choice) {
    const RecordingReader::Bounds bounds = boundsOf(choice);
    RecordingDifference difference(bounds.from);
    // What was at the beginning is known from what came before it.
    Choice before = choice;
    before.from.clear();
    std::optional<stream::Time> first;
    read(
        files, before,
        [&](const stream::IStreamReader& reader) {
            if (!first)
                first = reader.record().time;
            difference.add(reader);
            return true;
        },
        [](const stream::IStreamReader&) { return true; });
    if (!first || *first > bounds.from)
        m_screen.complain("the recording begins later than " + choice.from + ": what was then is not known");
    if (choice.asJson)
        m_screen.out << difference.json().dump(-1, ' ', false, nlohmann::json::error_handler_t::replace)
                     << '\n';
    else
        difference.print(m_screen);
    return done();
}
