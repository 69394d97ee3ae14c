#include "StreamFeed.h"

#include <algorithm>
#include <charconv>
#include <utility>

#include "ApiFault.h"
#include "JsonText.h"
#include "Printable.h"
#include "StreamText.h"
#include "sal/LogOutput.h"

namespace {

using ECode = ApiFault::ECode;
using EPlace = stream::StreamCursor::EPlace;
using Clock = std::chrono::steady_clock;

/// As long as one reads before others on this thread have their turn.
constexpr std::chrono::milliseconds s_turn{2};
/// How often it is looked at the clock meanwhile, in records.
constexpr unsigned s_clockEach = 64;
constexpr std::size_t s_pieceBytes = 64 * 1024;

std::string parameter(const ApiTarget& target, const std::string& name) {
    const auto found = target.query.find(name);
    return found == target.query.end() ? std::string() : found->second;
}

std::uint64_t number(const ApiTarget& target, const std::string& name, std::uint64_t least,
                     std::uint64_t most, std::uint64_t usual) {
    const std::string text = parameter(target, name);
    if (text.empty())
        return usual;
    std::uint64_t value = 0;
    const char* pEnd = text.data() + text.size();
    const auto result = std::from_chars(text.data(), pEnd, value);
    if (result.ec != std::errc() || result.ptr != pEnd || value < least || value > most)
        throw ApiFault(ECode::RequestInvalid, name + " is a number from " + std::to_string(least) + " to " +
                                                  std::to_string(most) + ", not " + base::quoted(text));
    return value;
}

}  // namespace

StreamFeed::Choice StreamFeed::choiceOf(const ApiTarget& target) {
    Choice choice;
    if (const std::string fault = choice.filter.setKinds(parameter(target, "kinds")); !fault.empty())
        throw ApiFault(ECode::RequestInvalid, "kinds: " + fault);
    choice.filter.setDrivers(parameter(target, "drivers"));
    choice.filter.setGlob(parameter(target, "glob"));
    choice.last = number(target, "last", 1, s_mostLast, 0);
    choice.level = static_cast<std::uint32_t>(
        number(target, "level", sal::LogOutput::eCritical, sal::LogOutput::eTrace, 0));
    choice.follows = number(target, "follow", 0, 1, 1) == 1;
    choice.hasLines = number(target, "lines", 0, 1, 0) == 1;
    const std::string from = parameter(target, "from");
    if (!from.empty()) {
        std::string error;
        const auto place = stream::StreamCursor::parse(from, error);
        if (!place)
            throw ApiFault(ECode::RequestInvalid, "from: " + error);
        choice.from = *place;
    } else if (choice.last == 0 && choice.follows) {
        choice.from = stream::StreamCursor::newest();
    }
    return choice;
}

std::shared_ptr<IAnswerBody> StreamFeed::open(const ApiContext& context, const ApiTarget& target) {
    Choice choice = choiceOf(target);
    if (!context.pRecorded)
        throw ApiFault(ECode::Refused, "the host does not record (--record-off)");
    const RecordedStream& recorded = *context.pRecorded;
    // What another instance had is gone: all that this one has is news.
    const bool isRestarted =
        choice.from.place == EPlace::Exact && choice.from.instance != recorded.source().instance();
    if (isRestarted)
        choice.from = stream::StreamCursor::oldest();
    std::string error;
    auto pReader = recorded.open(choice.from, error);
    if (!pReader)
        throw ApiFault(ECode::RequestInvalid, "from: " + error);
    return std::shared_ptr<StreamFeed>(
        new StreamFeed(recorded, std::move(choice), std::move(pReader), isRestarted));
}

StreamFeed::StreamFeed(const RecordedStream& recorded, Choice choice,
                       std::unique_ptr<stream::StreamReader> pReader, bool isRestarted)
    : m_recorded(recorded),
      m_choice(std::move(choice)),
      m_reader(std::move(pReader)),
      m_isRestarted(isRestarted),
      m_end(recorded.source().lastNumber()),
      m_isTail(m_choice.last > 0) {}

StreamFeed::Piece StreamFeed::next() {
    Piece piece;
    if (!std::exchange(m_isBegun, true))
        sayHello();
    const bool isAllRead = m_hasEnded || read();
    const auto now = Clock::now();
    if (!m_lines.empty())
        m_lastPiece = now;
    else if (isAllRead && now - m_lastPiece > s_heartbeat)
        beat();
    if (!m_isTail) {
        while (!m_lines.empty() && piece.text.size() < s_pieceBytes) {
            piece.text += m_lines.front();
            m_lines.pop_front();
        }
    }
    if (!isAllRead || (!m_isTail && !m_lines.empty()))
        piece.next = ENext::AtOnce;
    else
        piece.next = m_hasEnded ? ENext::End : ENext::Later;
    return piece;
}

bool StreamFeed::read() {
    using EResult = stream::IStreamReader::EResult;
    const auto begin = Clock::now();
    std::size_t bytes = 0;
    for (unsigned i = 1;; ++i) {
        if (i % s_clockEach == 0 && Clock::now() - begin > s_turn)
            return false;
        const std::size_t before = m_lines.size();
        switch (m_reader.next(begin)) {
            case EResult::Record:
                if (m_reader.record().number > m_end) {
                    m_isTail = false;
                    m_hasEnded = !m_choice.follows;
                    if (m_hasEnded)
                        return true;
                }
                if (isWanted(m_reader.record()))
                    addRecord();
                break;
            case EResult::Gap:
                addGap();
                break;
            default: {
                // Something of what there was may still be on its way.
                const bool isWhole = !m_reader.isWaiting();
                if (isWhole)
                    m_isTail = false;
                m_hasEnded = isWhole && !m_choice.follows;
                return true;
            }
        }
        if (!m_isTail && m_lines.size() > before)
            bytes += m_lines.back().size();
        if (bytes > s_pieceBytes)
            return false;
    }
}

bool StreamFeed::isWanted(const stream::StreamRecord& record) const {
    const bool isTooQuiet =
        record.kind == stream::EKind::Log && m_choice.level > 0 && record.value > m_choice.level;
    return !isTooQuiet && m_choice.filter.matches(record, m_reader.names());
}

void StreamFeed::sayHello() {
    JsonText json;
    json.beginObject()
        .member("kind", "hello")
        .member("instance", m_recorded.source().instance())
        .member("restarted", m_isRestarted)
        .endObject();
    m_lines.push_back(json.take() + "\n");
}

void StreamFeed::beat() {
    m_lastPiece = Clock::now();
    std::string json = R"({"kind":"heartbeat"})";
    stream::addCursor(json, m_reader.cursor());
    m_lines.push_back(std::move(json) + "\n");
}

void StreamFeed::addRecord() {
    std::string json;
    stream::appendJson(json, m_reader.record(), m_reader.names());
    put(std::move(json),
        m_choice.hasLines ? stream::lineOf(m_reader.record(), m_reader.names()) : std::string());
}

/// What was overwritten before the client came it has not missed, unless it names where it was.
void StreamFeed::addGap() {
    const stream::StreamGap& gap = m_reader.gap();
    if (m_choice.from.place != EPlace::Exact && gap.next <= m_end)
        return;
    if (gap.reason == stream::StreamGap::EReason::Lapped)
        m_recorded.addLapped(RecordedStream::EReader::Client, gap.count);
    std::string json;
    stream::appendJson(json, gap);
    put(std::move(json), m_choice.hasLines ? stream::lineOf(gap) : std::string());
}

void StreamFeed::put(std::string json, const std::string& line) {
    if (m_choice.hasLines) {
        json.pop_back();
        json += ",\"line\":" + base::jsonText(line) + '}';
    }
    stream::addCursor(json, m_reader.cursor());
    m_lines.push_back(std::move(json) + "\n");
    // The first line is the greeting.
    if (m_isTail && m_lines.size() > m_choice.last + 1)
        m_lines.erase(m_lines.begin() + 1);
}
