#include "MonitorCommand.h"

#include <chrono>
#include <thread>
#include <utility>

#include "ControlError.h"
#include "JoinedGaps.h"
#include "RecordingFile.h"
#include "StreamPrinter.h"

namespace {

using Clock = std::chrono::steady_clock;
using stream::StreamCursor;

constexpr std::chrono::milliseconds s_step{10};
/// How often it is looked whether the host still lives.
constexpr std::chrono::milliseconds s_writerStep{500};

StreamCursor placeOf(const std::string& from, bool isLive) {
    if (from.empty())
        return isLive ? StreamCursor::newest() : StreamCursor::oldest();
    std::string error;
    const auto place = StreamCursor::parse(from, error);
    if (!place)
        throw ControlError(EExit::WrongUsage, error);
    return *place;
}

}  // namespace

EExit MonitorCommand::run(const std::string& ring, const Choice& choice) {
    const stream::StreamFilter filter = choice.what.filter();
    if (ring.empty())
        throw ControlError(EExit::Failed,
                           "there are no rings to read; mfctl recording show reads what was kept");
    const auto pSource = openRing(ring);
    std::string error;
    auto pReader = stream::StreamReader::open(*pSource, placeOf(choice.from, pSource->isLive()), error);
    if (!pReader)
        throw ControlError(EExit::WrongUsage, error);
    stream::JoinedGaps reader(std::move(pReader));
    StreamPrinter printer(m_screen, choice.asJson     ? StreamPrinter::EForm::Json
                                    : choice.withDate ? StreamPrinter::EForm::Date
                                                      : StreamPrinter::EForm::Time);
    // From here on nothing is missed.
    if (choice.ask)
        choice.ask();
    Clock::time_point asked = Clock::now();
    std::uint64_t printed = 0;
    Clock::time_point looked = Clock::now();
    for (;;) {
        const Clock::time_point now = Clock::now();
        switch (reader.next(now)) {
            case stream::IStreamReader::EResult::Record:
                if (!filter.matches(reader.record(), reader.names()))
                    continue;
                printer.printRecord(reader);
                if (choice.count != 0 && ++printed == choice.count) {
                    m_screen.out << std::flush;
                    return m_screen.out ? EExit::Done : EExit::Failed;
                }
                continue;
            case stream::IStreamReader::EResult::Gap:
                printer.printGap(reader);
                continue;
            case stream::IStreamReader::EResult::End:
                m_screen.complain("no host writes " + ring + " any more; this was all of it");
                return m_screen.out ? EExit::Done : EExit::Failed;
            case stream::IStreamReader::EResult::Nothing:
                break;
        }
        m_screen.out << std::flush;
        if (!m_screen.out)
            return EExit::Failed;
        if (now - looked >= s_writerStep) {
            pSource->lookForWriter();
            looked = now;
        }
        if (choice.ask && now - asked >= choice.askEach) {
            asked = now;
            askAgain(choice);
        }
        std::this_thread::sleep_for(s_step);
    }
}

/// What there is goes on to be shown where the host does not answer.
void MonitorCommand::askAgain(const Choice& choice) const {
    try {
        choice.ask();
    } catch (const ControlError& error) {
        m_screen.complain(error.what());
    }
}
