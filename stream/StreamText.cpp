#include "StreamText.h"

#include <time.h>

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstring>
#include <string_view>

#include "FidFields.h"
#include "Printable.h"
#include "StreamWriter.h"
#include "WireText.h"

namespace stream {
namespace {

constexpr std::array<std::string_view, 6> s_origins{"driver", "host", "console", "api", "macro", "panel"};
constexpr std::array<std::string_view, 12> s_outcomes{
    "begins",           "written",    "no such driver", "not running", "takes no FIDs", "too long",
    "unknown function", "queue full", "stopping",       "refused",     "threw",         "late"};

/// Of a word of a record of counts; the others are the kind.
constexpr std::uint64_t s_countBits = (std::uint64_t{1} << 56) - 1;

std::string_view originName(std::uint32_t origin) {
    if (origin < s_origins.size())
        return s_origins[origin];
    return "unknown";
}

std::string_view outcomeName(std::uint32_t outcome) {
    if (outcome < s_outcomes.size())
        return s_outcomes[outcome];
    return "unknown";
}

/// Why a record of a gap says that others are missing: a reader's reasons, and the keeper's own.
std::string_view keepersReason(std::uint32_t reason) {
    static constexpr std::array<std::string_view, 5> s_reasons{"lapped", "missing", "damaged",
                                                               "beyond the limit", "not taken by the disk"};
    if (reason < s_reasons.size())
        return s_reasons[reason];
    return "unknown";
}

/// As short as it says the number.
template <class Number>
std::string numberText(Number number) {
    std::array<char, 32> digits{};
    const auto [pEnd, fault] = std::to_chars(digits.data(), digits.data() + digits.size(), number);
    return fault == std::errc() ? std::string(digits.data(), pEnd) : std::string();
}

float floatOf(const StreamRecord& record) {
    return std::bit_cast<float>(record.value);
}

std::uint64_t takeWord(std::string_view& text) {
    std::uint64_t word = 0;
    if (text.size() >= sizeof word)
        std::memcpy(&word, text.data(), sizeof word);
    text.remove_prefix(std::min(text.size(), sizeof word));
    return word;
}

/// A name with a length byte before it.
std::string_view takeName(std::string_view& text) {
    if (text.empty())
        return {};
    const std::string_view name = text.substr(1, static_cast<unsigned char>(text.front()));
    text.remove_prefix(1 + name.size());
    return name;
}

std::string microseconds(std::uint64_t nanoseconds) {
    return std::to_string(nanoseconds / 1000) + " us";
}

std::string timeText(Time time, const char* pForm, bool isLocal) {
    const auto whole = std::chrono::floor<std::chrono::seconds>(time);
    const time_t seconds = whole.time_since_epoch().count();
    tm parts{};
    if (isLocal)
        ::localtime_r(&seconds, &parts);
    else
        ::gmtime_r(&seconds, &parts);
    std::array<char, 64> text{};
    const std::size_t size = std::strftime(text.data(), text.size(), pForm, &parts);
    std::string fraction =
        std::to_string(std::chrono::duration_cast<std::chrono::microseconds>(time - whole).count());
    fraction.insert(0, 6 - std::min<std::size_t>(6, fraction.size()), '0');
    return std::string(text.data(), size) + '.' + fraction;
}

std::string fidText(std::string_view fields) {
    const FidFields::Fid fid = FidFields::parse(fields);
    std::string text = fid.function;
    for (const auto& [name, value] : fid.parameters)
        text += ' ' + name + '=' + value;
    return text;
}

std::string plainTextOf(const StreamRecord& record, const KeyNames& names) {
    std::string_view text = record.text;
    const std::string key = names.key(record);
    switch (record.kind) {
        case EKind::Text:
            return key + " = \"" + std::string(text) + '"';
        case EKind::Float:
        case EKind::Int:
        case EKind::Bool:
            return key + " = " + valueOf(record);
        case EKind::Unset:
            return key + " unset";
        case EKind::Event:
            return key + (text.empty() ? std::string() : ' ' + std::string(text));
        case EKind::Fid: {
            const std::string who(takeName(text));
            const std::uint32_t origin = record.value >> 16 & 0xffu;
            std::string line = fidText(text);
            if (origin != static_cast<std::uint32_t>(EOrigin::Driver))
                line += " from " + std::string(originName(origin)) + (who.empty() ? "" : " " + who);
            if (const auto receiver = static_cast<std::uint16_t>(record.value); receiver != 0)
                line += " to " + names.driver(receiver);
            return line + ": " + std::string(outcomeName(record.value >> 24));
        }
        case EKind::FidEnd: {
            const std::uint64_t begin = takeWord(text);
            const std::uint64_t took = takeWord(text);
            return '#' + std::to_string(begin) + ' ' + std::string(outcomeName(record.value)) + " after " +
                   microseconds(took) + (text.empty() ? "" : ": " + std::string(text));
        }
        case EKind::Command: {
            const std::string who(takeName(text));
            return std::string(text) + " from " + std::string(originName(record.value)) +
                   (who.empty() ? "" : " " + who);
        }
        case EKind::CommandEnd: {
            const std::uint64_t begin = takeWord(text);
            const std::uint64_t took = takeWord(text);
            return '#' + std::to_string(begin) + (record.value != 0 ? " done after " : " failed after ") +
                   microseconds(took) + (text.empty() ? "" : ": " + std::string(text));
        }
        case EKind::Start:
            return (record.value != 0 ? "process " + std::to_string(record.value) : "in the host's process") +
                   (text.empty() ? "" : ": " + std::string(text));
        case EKind::Configuration: {
            const std::uint64_t took = takeWord(text);
            return std::string(text) + (record.value != 0 ? " done after " : " failed after ") +
                   microseconds(took);
        }
        case EKind::Log: {
            const std::string output(takeName(text));
            return std::to_string(record.value) + ' ' + output + ": " + std::string(text);
        }
        case EKind::Stale:
            return std::to_string(record.value) + " values: " + std::string(text);
        case EKind::Merged: {
            const std::uint64_t received = takeWord(text);
            const std::uint64_t merged = takeWord(text);
            return std::to_string(received) + " received, " + std::to_string(merged) + " merged, " +
                   std::to_string(takeWord(text)) + " delivered";
        }
        case EKind::Mark: {
            const std::string who(takeName(text));
            return std::string(text) + " from " + std::string(originName(record.value)) +
                   (who.empty() ? "" : " " + who);
        }
        case EKind::Wire:
            return ((record.value & 1u) != 0 ? "to driver " : "from driver ") +
                   std::string((record.value & 2u) != 0 ? "(refused) " : "") + wireText(text);
        case EKind::Counts: {
            std::string line;
            while (text.size() >= sizeof(std::uint64_t)) {
                const std::uint64_t word = takeWord(text);
                const std::uint64_t kind = word >> 56;
                line += line.empty() ? "" : ", ";
                line += kind == StreamWriter::s_refusedKind ? "refused" : kindName(static_cast<EKind>(kind));
                line += ' ' + std::to_string(word & s_countBits);
            }
            return line;
        }
        case EKind::Gap: {
            const std::uint64_t first = takeWord(text);
            const std::uint64_t next = takeWord(text);
            return std::to_string(takeWord(text)) + " records of #" + std::to_string(first) + " to #" +
                   std::to_string(next == 0 ? 0 : next - 1) + ' ' + std::string(keepersReason(record.value));
        }
        case EKind::Define:
            return '#' + std::to_string(record.key & 0xffffu) + " is " + std::string(text);
        default:
            return std::string(text);
    }
}

class JsonObject {
public:
    explicit JsonObject(std::string& json) : m_json(json) { m_json += '{'; }
    ~JsonObject() { m_json += '}'; }
    JsonObject(const JsonObject&) = delete;
    JsonObject& operator=(const JsonObject&) = delete;

    void text(std::string_view name, std::string_view value) {
        begin(name);
        base::appendJsonText(m_json, value);
    }
    /// A number, true or false.
    void plain(std::string_view name, std::string_view value) {
        begin(name);
        m_json += value;
    }
    void number(std::string_view name, std::uint64_t value) { plain(name, std::to_string(value)); }
    void textUnlessEmpty(std::string_view name, std::string_view value) {
        if (!value.empty())
            text(name, value);
    }

private:
    void begin(std::string_view name) {
        if (m_json.back() != '{')
            m_json += ',';
        base::appendJsonText(m_json, name);
        m_json += ':';
    }

    std::string& m_json;
};

void appendParameters(std::string& json, const FidFields::Fid& fid) {
    json += '[';
    for (const auto& [name, value] : fid.parameters) {
        json += json.back() == '[' ? "[" : ",[";
        base::appendJsonText(json, name);
        json += ',';
        base::appendJsonText(json, value);
        json += ']';
    }
    json += ']';
}

std::string hexText(std::string_view bytes) {
    constexpr std::string_view s_digits = "0123456789abcdef";
    std::string text;
    for (const char c : bytes) {
        text += s_digits[static_cast<unsigned char>(c) >> 4];
        text += s_digits[static_cast<unsigned char>(c) & 0xfu];
    }
    return text;
}

/// JSON has no number for these.
std::string jsonNumber(float value) {
    return std::isfinite(value) ? numberText(value) : base::jsonText(numberText(value));
}

void appendKindJson(JsonObject& object, const StreamRecord& record, const KeyNames& names) {
    std::string_view text = record.text;
    switch (record.kind) {
        case EKind::Text:
            object.text("value", text);
            break;
        case EKind::Float:
            object.plain("value", jsonNumber(floatOf(record)));
            break;
        case EKind::Int:
            object.plain("value", std::to_string(static_cast<std::int32_t>(record.value)));
            break;
        case EKind::Bool:
            object.plain("value", record.value != 0 ? "true" : "false");
            break;
        case EKind::Unset:
            object.plain("value", "null");
            break;
        case EKind::Event:
            object.text("value", text);
            break;
        case EKind::Fid: {
            const std::string_view who = takeName(text);
            const FidFields::Fid fid = FidFields::parse(text);
            object.text("fid", fid.function);
            std::string parameters;
            appendParameters(parameters, fid);
            object.plain("parameters", parameters);
            if (const auto receiver = static_cast<std::uint16_t>(record.value); receiver != 0)
                object.text("receiver", names.driver(receiver));
            object.text("origin", originName(record.value >> 16 & 0xffu));
            object.textUnlessEmpty("who", who);
            object.text("outcome", outcomeName(record.value >> 24));
            break;
        }
        case EKind::FidEnd:
            object.number("of", takeWord(text));
            object.text("outcome", outcomeName(record.value));
            object.number("took_us", takeWord(text) / 1000);
            object.textUnlessEmpty("text", text);
            break;
        case EKind::Command:
        case EKind::Mark: {
            object.text("origin", originName(record.value));
            object.textUnlessEmpty("who", takeName(text));
            object.text(record.kind == EKind::Mark ? "text" : "line", text);
            break;
        }
        case EKind::CommandEnd:
            object.number("of", takeWord(text));
            object.plain("ok", record.value != 0 ? "true" : "false");
            object.number("took_us", takeWord(text) / 1000);
            object.textUnlessEmpty("text", text);
            break;
        case EKind::Start:
            object.number("process", record.value);
            object.textUnlessEmpty("text", text);
            break;
        case EKind::Exit:
            object.number("status", record.value);
            object.text("text", text);
            break;
        case EKind::Configuration:
            object.plain("ok", record.value != 0 ? "true" : "false");
            object.number("took_us", takeWord(text) / 1000);
            object.text("operation", text);
            break;
        case EKind::Log:
            object.number("level", record.value);
            object.text("output", takeName(text));
            object.text("text", text);
            break;
        case EKind::Stale:
            object.number("values", record.value);
            object.text("text", text);
            break;
        case EKind::Merged:
            object.number("received", takeWord(text));
            object.number("merged", takeWord(text));
            object.number("delivered", takeWord(text));
            break;
        case EKind::Wire:
            object.text("direction", (record.value & 1u) != 0 ? "to driver" : "from driver");
            object.plain("ok", (record.value & 2u) != 0 ? "false" : "true");
            object.text("message", wireText(text));
            object.text("bytes", hexText(text));
            break;
        case EKind::Gap:
            object.text("reason", keepersReason(record.value));
            object.number("first", takeWord(text));
            object.number("next", takeWord(text));
            object.number("count", takeWord(text));
            break;
        case EKind::Counts: {
            std::string counts;
            {
                JsonObject inner(counts);
                while (text.size() >= sizeof(std::uint64_t)) {
                    const std::uint64_t word = takeWord(text);
                    const std::uint64_t kind = word >> 56;
                    const bool isRefused = kind == StreamWriter::s_refusedKind;
                    inner.number(isRefused ? "refused" : kindName(static_cast<EKind>(kind)),
                                 word & s_countBits);
                }
            }
            object.plain("counts", counts);
            break;
        }
        default:
            object.text("text", text);
            break;
    }
}

std::string_view reasonName(StreamGap::EReason reason) {
    switch (reason) {
        case StreamGap::EReason::Lapped:
            return "lapped";
        case StreamGap::EReason::Missing:
            return "missing";
        case StreamGap::EReason::Damaged:
            break;
    }
    return "damaged";
}

}  // namespace

std::string subjectOf(const StreamRecord& record, const KeyNames& names) {
    std::string key = names.key(record);
    if (!key.empty() && record.kind != EKind::Define)
        return key;
    std::string_view text = record.text;
    switch (record.kind) {
        case EKind::Fid:
            takeName(text);
            return FidFields::parse(text).function;
        case EKind::FidEnd:
        case EKind::CommandEnd:
            takeWord(text);
            takeWord(text);
            break;
        case EKind::Configuration:
            takeWord(text);
            break;
        case EKind::Wire:
            return wireText(text);
        case EKind::Command:
        case EKind::Log:
        case EKind::Mark:
            takeName(text);
            break;
        default:
            break;
    }
    return std::string(text);
}

std::string valueOf(const StreamRecord& record) {
    switch (record.kind) {
        case EKind::Text:
        case EKind::Event:
            return record.text;
        case EKind::Float:
            return numberText(floatOf(record));
        case EKind::Int:
            return std::to_string(static_cast<std::int32_t>(record.value));
        case EKind::Bool:
            return record.value != 0 ? "true" : "false";
        default:
            return {};
    }
}

std::uint64_t countOf(const StreamRecord& gap) {
    return keptGap(gap).count;
}

StreamGap keptGap(const StreamRecord& gap) {
    std::string_view text = gap.text;
    const auto takeTime = [&] {
        return Time(std::chrono::nanoseconds(static_cast<std::int64_t>(takeWord(text))));
    };
    StreamGap kept;
    kept.first = takeWord(text);
    kept.next = takeWord(text);
    kept.count = takeWord(text);
    kept.from = takeTime();
    kept.to = takeTime();
    return kept;
}

std::string utcText(Time time) {
    return timeText(time, "%Y-%m-%dT%H:%M:%S", false) + 'Z';
}

std::string lineOf(const StreamRecord& record, const KeyNames& names, bool withDate) {
    std::string line = timeText(record.time, withDate ? "%Y-%m-%d %H:%M:%S" : "%H:%M:%S", true);
    line += ' ' + names.driver(record.driver()) + ' ';
    line += kindName(record.kind);
    return base::printable(line) + ' ' + textOf(record, names);
}

std::string textOf(const StreamRecord& record, const KeyNames& names) {
    std::string text = base::printable(plainTextOf(record, names));
    if (record.isCut)
        text += " ... (cut)";
    return text;
}

std::string lineOf(const StreamGap& gap, bool withDate) {
    const char* const pForm = withDate ? "%Y-%m-%d %H:%M:%S" : "%H:%M:%S";
    std::string line = timeText(gap.to, pForm, true) + " gap: ";
    line += gap.count == 0 ? "an unknown number of" : std::to_string(gap.count);
    line += gap.count == 1 ? " record" : " records";
    switch (gap.reason) {
        case StreamGap::EReason::Lapped:
            line += " overwritten before they were read";
            break;
        case StreamGap::EReason::Missing:
            line += " never completed";
            break;
        case StreamGap::EReason::Damaged:
            line += " damaged or never completed";
            break;
    }
    if (gap.from != Time())
        line += ", since " + timeText(gap.from, pForm, true);
    return line;
}

void appendJson(std::string& json, const StreamRecord& record, const KeyNames& names) {
    JsonObject object(json);
    object.number("number", record.number);
    object.text("time", utcText(record.time));
    object.text("kind", kindName(record.kind));
    object.text("driver", names.driver(record.driver()));
    object.textUnlessEmpty("key", names.key(record));
    if (record.cause != 0)
        object.number("cause", record.cause);
    appendKindJson(object, record, names);
    if (record.isCut)
        object.plain("cut", "true");
}

void addCursor(std::string& json, const StreamCursor& cursor) {
    json.pop_back();
    json += ",\"cursor\":" + base::jsonText(cursor.text()) + '}';
}

void appendJson(std::string& json, const StreamGap& gap) {
    JsonObject object(json);
    object.text("kind", "gap");
    object.text("reason", reasonName(gap.reason));
    object.number("first", gap.first);
    object.number("next", gap.next);
    if (gap.count != 0)
        object.number("count", gap.count);
    if (gap.from != Time())
        object.text("from", utcText(gap.from));
    object.text("to", utcText(gap.to));
}

}  // namespace stream
