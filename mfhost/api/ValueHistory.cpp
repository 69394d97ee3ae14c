#include "ValueHistory.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <utility>

#include "GapJson.h"
#include "JsonText.h"
#include "KeyNames.h"
#include "StreamText.h"

namespace {

using stream::EKind;

/// Times in which a value was stale that are told, the last ones.
constexpr std::size_t s_mostStale = 200;
/// FIDs of the last seconds that are kept: only the last of them are told.
constexpr std::size_t s_mostFids = 64;
/// Numbers of each step that are kept.
constexpr std::size_t s_ofStep = 3;

float floatOf(std::uint32_t bits) {
    return std::bit_cast<float>(bits);
}

bool isNumber(EKind kind, std::uint32_t value) {
    return kind == EKind::Int || kind == EKind::Bool ||
           (kind == EKind::Float && std::isfinite(floatOf(value)));
}

double numberOf(EKind kind, std::uint32_t value) {
    if (kind == EKind::Float)
        return floatOf(value);
    return kind == EKind::Int ? static_cast<std::int32_t>(value) : static_cast<double>(value);
}

void writeNamed(JsonText& json, stream::Time time, EKind kind, std::uint32_t value, const std::string& text) {
    json.member("time", stream::utcText(time)).name("value");
    switch (kind) {
        case EKind::Float:
            json.value(floatOf(value));
            break;
        case EKind::Int:
            json.value(static_cast<std::int32_t>(value));
            break;
        case EKind::Bool:
            json.value(value != 0);
            break;
        case EKind::Text:
            json.value(text);
            break;
        default:
            json.null();
            break;
    }
    json.member("text", text);
}

}  // namespace

ValueHistory::ValueHistory(std::string key, const RecordedPast::Span& span, std::size_t points)
    : m_key(std::move(key)), m_driverID(m_key.substr(0, m_key.find('.'))), m_span(span), m_most(points) {}

void ValueHistory::take(const stream::StreamRecord& record, const stream::KeyNames& names, bool isAnew) {
    if (isAnew) {
        // The values of a host before have gone with it.
        endStale(m_seen);
        m_fids.clear();
        if (record.time <= m_span.from)
            m_held.reset();
    }
    m_seen = record.time;
    if (record.kind == EKind::Fid) {
        takeFid(record, names);
    } else if (record.kind == EKind::Stale) {
        if (!m_stale && names.driver(record.driver()) == m_driverID)
            m_stale = {record.time, record.time, record.text};
    } else if (stream::isValue(record.kind)) {
        const std::string* const pKey = record.keyText.empty() ? names.find(record.key) : &record.keyText;
        if (pKey && *pKey == m_key)
            takeValue(record);
    }
}

void ValueHistory::takeFid(const stream::StreamRecord& record, const stream::KeyNames& names) {
    const auto receiver = static_cast<std::uint16_t>(record.value);
    const std::string* const pReceiver = names.find(std::uint32_t{receiver} << 16);
    if (receiver == 0 || !pReceiver || *pReceiver != m_driverID)
        return;
    m_fids.push_back(std::make_shared<const Fid>(Fid{record, names.driver(record.driver())}));
    while (m_fids.size() > s_mostFids || record.time - m_fids.front()->record.time > s_before)
        m_fids.pop_front();
}

ValueHistory::Fids ValueHistory::fidsBefore(Time time) const {
    Fids before;
    for (auto fid = m_fids.rbegin(); fid != m_fids.rend() && before.size() < s_mostBefore; ++fid) {
        const Time sent = (*fid)->record.time;
        if (sent <= time && time - sent <= s_before)
            before.push_back(*fid);
    }
    return before;
}

void ValueHistory::takeValue(const stream::StreamRecord& record) {
    endStale(record.time);
    Sample sample{record.time, record.number, record.kind, record.value, {}};
    // Every number can be written again from its bits; a text only once.
    if (!isNumber(record.kind, record.value))
        sample.text = stream::valueOf(record);
    if (record.time < m_span.from) {
        m_held = std::move(sample);
        return;
    }
    ++m_changes;
    m_last.push_back({sample, fidsBefore(record.time)});
    if (m_last.size() > s_lastChanges)
        m_last.pop_front();
    if (isNumber(sample.kind, sample.value))
        return addNumber(std::move(sample));
    m_others.push_back(std::move(sample));
    if (m_others.size() > m_most) {
        m_others.pop_front();
        m_isOtherLeftOut = true;
    }
}

void ValueHistory::addNumber(Sample sample) {
    if (!m_steps.empty())
        return addToStep(std::move(sample));
    m_numbers.push_back(std::move(sample));
    if (m_numbers.size() <= m_most)
        return;
    m_steps.resize(m_most / s_ofStep);
    for (Sample& each : m_numbers)
        addToStep(std::move(each));
    m_numbers.clear();
}

void ValueHistory::addToStep(Sample sample) {
    const double share = std::chrono::duration<double>(sample.time - m_span.from) /
                         std::chrono::duration<double>(m_span.to - m_span.from);
    const auto place = static_cast<std::size_t>(share * static_cast<double>(m_steps.size()));
    Step& step = m_steps[std::min(place, m_steps.size() - 1)];
    const double number = numberOf(sample.kind, sample.value);
    if (!step.low || number < numberOf(step.low->kind, step.low->value))
        step.low = sample;
    if (!step.high || number > numberOf(step.high->kind, step.high->value))
        step.high = sample;
    step.last = std::move(sample);
}

void ValueHistory::endStale(Time to) {
    if (!m_stale)
        return;
    m_stale->to = to;
    if (to >= m_span.from)
        m_staleTimes.push_back(std::move(*m_stale));
    if (m_staleTimes.size() > s_mostStale)
        m_staleTimes.pop_front();
    m_stale.reset();
}

/// In the order in which they were recorded, each once.
std::vector<ValueHistory::Sample> ValueHistory::points() const {
    std::vector<Sample> points(m_numbers);
    for (const Step& step : m_steps) {
        for (const auto& each : {step.low, step.high, step.last}) {
            if (each)
                points.push_back(*each);
        }
    }
    points.insert(points.end(), m_others.begin(), m_others.end());
    // Numbers begin again with each host, times need not rise: together they tell one from another.
    const auto order = [](const Sample& sample) { return std::pair(sample.time, sample.number); };
    std::sort(points.begin(), points.end(),
              [&](const Sample& one, const Sample& other) { return order(one) < order(other); });
    points.erase(
        std::unique(points.begin(), points.end(),
                    [&](const Sample& one, const Sample& other) { return order(one) == order(other); }),
        points.end());
    return points;
}

void ValueHistory::write(JsonText& json, const std::vector<RecordedPast::Hole>& holes, bool isLive) {
    const auto writeSample = [&](const Sample& sample) {
        stream::StreamRecord record;
        record.kind = sample.kind;
        record.value = sample.value;
        const bool isPlain = isNumber(sample.kind, sample.value);
        writeNamed(json, sample.time, sample.kind, sample.value,
                   isPlain ? stream::valueOf(record) : sample.text);
    };
    // Where it holds now and has not changed since, it was not among those that became stale.
    if (m_stale && isLive)
        m_stale.reset();
    endStale(m_span.to);
    json.member("key", m_key)
        .member("from", stream::utcText(m_span.from))
        .member("to", stream::utcText(m_span.to))
        .member("changes", m_changes)
        .member("thinned", !m_steps.empty() || m_isOtherLeftOut)
        .name("held");
    if (m_held) {
        json.beginObject();
        writeSample(*m_held);
        json.endObject();
    } else {
        json.null();
    }
    json.name("points").beginArray();
    for (const Sample& sample : points()) {
        json.beginObject();
        writeSample(sample);
        json.endObject();
    }
    json.endArray().name("last").beginArray();
    for (auto change = m_last.rbegin(); change != m_last.rend(); ++change) {
        json.beginObject().member("number", change->sample.number);
        writeSample(change->sample);
        writeChange(json, *change);
        json.endObject();
    }
    json.endArray();
    writeGaps(json, holes);
}

/// What was sent to its driver before it.
void ValueHistory::writeChange(JsonText& json, const Change& change) const {
    json.name("before").beginArray();
    for (const auto& pFid : change.before) {
        stream::KeyNames names;
        names.define(pFid->record.key & 0xffff0000u, pFid->sender);
        names.define(pFid->record.value << 16, m_driverID);
        std::string text;
        stream::appendJson(text, pFid->record, names);
        const auto ahead =
            std::chrono::duration_cast<std::chrono::microseconds>(change.sample.time - pFid->record.time);
        text.pop_back();
        json.json(text + ",\"beforeUs\":" + std::to_string(ahead.count()) + '}');
    }
    json.endArray();
}

void ValueHistory::writeGaps(JsonText& json, const std::vector<RecordedPast::Hole>& holes) const {
    json.name("gaps").beginArray();
    for (const RecordedPast::Hole& hole : holes)
        writeGap(json, hole);
    for (const Stale& stale : m_staleTimes)
        writeGap(json, "stale", {std::max(stale.from, m_span.from), stale.to}, stale.cause);
    if (m_isOtherLeftOut)
        writeGap(json, "left-out", {m_span.from, m_others.front().time}, "only the last texts are told");
    json.endArray();
}
