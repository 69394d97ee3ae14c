#include "LiveSource.h"

#include <algorithm>
#include <set>
#include <utility>
#include <vector>

#include "StreamText.h"
#include "sal/LogOutput.h"

namespace {

/// All lines that the log has kept.
constexpr std::size_t s_allLines = 10000;

/// Of the record that is written out alone; there are no others beside it.
constexpr std::uint16_t s_driver = 1;

/// Of the newest that are read for a page that opens: more than the records that are kept.
constexpr std::uint64_t s_newestBytes = 512 * 1024;

/// What pages are told. Values they have from the store, and what is about the stream itself is of no use.
bool isForPages(stream::EKind kind) {
    switch (kind) {
        case stream::EKind::None:
        case stream::EKind::Define:
        case stream::EKind::Counts:
        case stream::EKind::Merged:
        case stream::EKind::Wire:
            return false;
        default:
            return stream::ringOf(kind) == stream::ERing::Audit;
    }
}

/// The members, without the brackets round them.
std::string withoutBrackets(const std::string& object) {
    return object.substr(1, object.size() - 2);
}

}  // namespace

std::string LiveSource::host() const {
    JsonText json;
    json.beginObject()
        .member("instance", m_context.instance.id)
        .member("workplace", m_context.instance.workplace)
        .endObject();
    return withoutBrackets(json.take());
}

void LiveSource::look() {
    m_context.lookForEnds();
    const auto now = m_context.now();
    if (!m_driversSeen || now - *m_driversSeen >= s_driversEach) {
        m_driversSeen = now;
        lookAtDrivers();
    }
    lookAtAlarms();
    lookAtControls();
    if (m_context.pRecorded)
        readStream();
    else
        lookForRecords();
}

void LiveSource::lookAtDrivers() {
    const std::uint64_t version = m_driversVersion + 1;
    std::set<std::string> gone;
    for (const auto& [id, row] : m_drivers) {
        if (!row.json.empty())
            gone.insert(id);
    }
    bool isChanged = false;
    for (ApiReading::DriverText& driver : m_reading.driverTexts()) {
        gone.erase(driver.id);
        Row& row = m_drivers[driver.id];
        if (row.constant == driver.constant && !row.json.empty())
            continue;
        row = {std::move(driver.json), std::move(driver.constant), version};
        isChanged = true;
    }
    for (const std::string& id : gone)
        m_drivers[id] = {.json = {}, .constant = {}, .version = version};
    if (isChanged || !gone.empty())
        m_driversVersion = version;
}

void LiveSource::lookAtAlarms() {
    ApiReading::AlarmsText alarms = m_reading.alarmsText();
    if (alarms.constant == m_alarmsConstant)
        return;
    m_alarmsConstant = std::move(alarms.constant);
    m_alarms = std::move(alarms.json);
    ++m_alarmsVersion;
}

void LiveSource::lookAtControls() {
    std::string controls = m_reading.controlsText();
    if (controls == m_controls)
        return;
    m_controls = std::move(controls);
    ++m_controlsVersion;
}

/// What the rings have of it, however many pages there are.
void LiveSource::readStream() {
    using EResult = stream::IStreamReader::EResult;
    const auto now = m_context.now();
    if (!m_pStream || now - *m_streamRead > s_streamIdle)
        openStream();
    m_streamRead = now;
    // More than are kept need not be written out.
    std::size_t written = 0;
    for (std::size_t i = 0; i < s_recordsPerLook && written < s_keptRecords; ++i) {
        const EResult result = m_pStream->next(now);
        if (result == EResult::Gap && m_pStream->gap().next > m_streamFrom) {
            const stream::StreamGap& gap = m_pStream->gap();
            if (gap.reason == stream::StreamGap::EReason::Lapped)
                m_context.pRecorded->addLapped(RecordedStream::EReader::Panel, gap.count);
            std::string json;
            stream::appendJson(json, gap);
            keep(std::move(json));
        } else if (result == EResult::Record) {
            const stream::StreamRecord& record = m_pStream->record();
            if (record.number < m_streamNext)
                continue;
            countPassedOver(record.number);
            if (!isForPages(record.kind))
                continue;
            std::string json;
            stream::appendJson(json, record, m_pStream->names());
            keep(std::move(json));
            ++written;
        } else if (result != EResult::Gap) {
            break;
        }
    }
}

void LiveSource::openStream() {
    m_streamNext = m_pStream ? m_pStream->cursor().position : 0;
    m_records.clear();
    m_pStream = std::make_unique<stream::JoinedGaps>(m_context.pRecorded->openNewest(s_newestBytes));
    m_streamFrom = m_pStream->cursor().position;
}

/// Of what was passed over then, a page that was there all the time hears how much it was.
void LiveSource::countPassedOver(std::uint64_t number) {
    if (m_streamNext > 0 && number > m_streamNext)
        m_lastRecord += number - m_streamNext;
    m_streamNext = 0;
}

void LiveSource::keep(std::string json) {
    m_records.push_back({++m_lastRecord, std::move(json)});
    if (m_records.size() > s_keptRecords)
        m_records.pop_front();
}

/// Events and lines of the log, in the order of their times.
void LiveSource::lookForRecords() {
    std::vector<StateStore::Event> events = m_context.store.events();
    std::erase_if(events, [this](const StateStore::Event& event) { return event.number <= m_lastEvent; });
    const std::vector<ApiLogLine> lines = m_context.log(
        {.driverID = {}, .lines = s_allLines, .level = sal::LogOutput::eTrace, .after = m_lastLine});
    auto line = lines.begin();
    const auto addLinesBefore = [&](std::chrono::system_clock::time_point time) {
        for (; line != lines.end() && line->when <= time; ++line) {
            addRecord(line->when, false, line->driverID, line->output, line->level, line->text);
            m_lastLine = std::max(m_lastLine, line->number);
        }
    };
    for (const StateStore::Event& event : events) {
        addLinesBefore(event.when);
        // What the store has forgotten in between has its numbers, too.
        if (m_lastEvent > 0)
            m_lastRecord += event.number - m_lastEvent - 1;
        m_lastEvent = event.number;
        const bool isDrivers = event.owner.kind == StateStore::EOwner::Driver;
        const std::string driver = isDrivers ? event.owner.driverID : std::string();
        const bool isOwn = isDrivers && event.id.starts_with(driver + ".");
        addRecord(event.when, true, driver, isOwn ? event.id.substr(driver.size() + 1) : event.id, 0,
                  event.value);
    }
    addLinesBefore(std::chrono::system_clock::time_point::max());
}

void LiveSource::addRecord(std::chrono::system_clock::time_point time, bool isEvent,
                           const std::string& driver, const std::string& name, int level,
                           const std::string& text) {
    stream::KeyNames names;
    names.define(std::uint32_t{s_driver} << 16, driver);
    stream::StreamRecord record;
    record.number = m_lastRecord + 1;
    record.time = std::chrono::time_point_cast<stream::Time::duration>(time);
    record.kind = isEvent ? stream::EKind::Event : stream::EKind::Log;
    record.key = driver.empty() ? 0 : std::uint32_t{s_driver} << 16;
    if (isEvent) {
        record.keyText = name;
        record.text = text;
    } else {
        constexpr std::size_t longestName = 255;
        const std::string output = name.substr(0, longestName);
        record.value = static_cast<std::uint32_t>(level);
        record.text = static_cast<char>(output.size()) + output + text;
    }
    std::string json;
    stream::appendJson(json, record, names);
    keep(std::move(json));
}

LiveChanges LiveSource::changes(const LivePosition& since) const {
    LiveChanges found;
    LivePosition from = since;
    JsonText json;
    json.beginObject();
    bool isNews = addValues(json, from, found);
    // What stands in none of the lists does not exist then.
    if (found.isWhole)
        from.drivers = from.alarms = from.controls = 0;
    isNews = addDrivers(json, from.drivers) || isNews;
    if (from.alarms < m_alarmsVersion) {
        json.name("alarms").json(m_alarms);
        isNews = true;
    }
    if (from.controls < m_controlsVersion) {
        json.name("controls").json(m_controls);
        isNews = true;
    }
    isNews = addRecords(json, from.records) || isNews;
    json.endObject();
    found.end.drivers = m_driversVersion;
    found.end.alarms = m_alarmsVersion;
    found.end.controls = m_controlsVersion;
    found.end.records = m_lastRecord;
    if (isNews)
        found.members = withoutBrackets(json.take());
    return found;
}

bool LiveSource::addValues(JsonText& json, const LivePosition& since, LiveChanges& found) const {
    const StateStore::Changes changes = m_context.changes("", since.store);
    found.end.store = changes.version;
    found.isWhole = changes.isComplete;
    if (!changes.entries.empty()) {
        json.name("values").beginArray();
        const auto now = m_context.now();
        for (const StateStore::Entry& entry : changes.entries)
            m_reading.addValue(json, entry, now);
        json.endArray();
    }
    if (!changes.unset.empty()) {
        json.name("gone").beginArray();
        for (const std::string& key : changes.unset)
            json.value(key);
        json.endArray();
    }
    return found.isWhole || !changes.entries.empty() || !changes.unset.empty();
}

bool LiveSource::addDrivers(JsonText& json, std::uint64_t since) const {
    std::vector<const std::string*> rows;
    std::vector<std::string> gone;
    for (const auto& [id, row] : m_drivers) {
        if (row.version > since && !row.json.empty())
            rows.push_back(&row.json);
        else if (row.version > since && since > 0)
            gone.push_back(id);
    }
    if (!rows.empty()) {
        json.name("drivers").beginArray();
        for (const std::string* pRow : rows)
            json.json(*pRow);
        json.endArray();
    }
    if (!gone.empty()) {
        json.name("driversGone").beginArray();
        for (const std::string& id : gone)
            json.value(id);
        json.endArray();
    }
    return !rows.empty() || !gone.empty();
}

bool LiveSource::addRecords(JsonText& json, std::uint64_t since) const {
    if (since == m_lastRecord)
        return false;
    const auto first = std::find_if(m_records.begin(), m_records.end(),
                                    [since](const Record& record) { return record.number > since; });
    json.name("records").beginArray();
    for (auto record = first; record != m_records.end(); ++record)
        json.json(record->json);
    json.endArray();
    const auto told = static_cast<std::uint64_t>(m_records.end() - first);
    // A page that opens has missed nothing: it was not there.
    if (since > 0 && m_lastRecord - since > told)
        json.member("missed", m_lastRecord - since - told);
    return true;
}
