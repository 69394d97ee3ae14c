#include "RecordingList.h"

#include <algorithm>
#include <filesystem>
#include <utility>

#include "ControlError.h"
#include "RecordingFile.h"
#include "RecordingReader.h"
#include "RecordingStatistics.h"
#include "StreamFilter.h"
#include "StreamText.h"
#include "Table.h"
#include "TimeText.h"

namespace fs = std::filesystem;

namespace {

std::uint64_t sizeOf(const std::string& path) {
    std::error_code failed;
    const auto size = fs::file_size(path, failed);
    return failed ? 0 : size;
}

std::string sizeText(std::uint64_t bytes) {
    constexpr std::uint64_t s_kilo = 1024;
    if (bytes < 10 * s_kilo)
        return std::to_string(bytes) + " B";
    if (bytes < 10 * s_kilo * s_kilo)
        return std::to_string(bytes / s_kilo) + " kB";
    return std::to_string(bytes / s_kilo / s_kilo) + " MB";
}

}  // namespace

RecordingList RecordingList::of(const RecordingPlace& place) {
    RecordingList list;
    if (!place.ring.empty())
        list.addRing(place.ring);
    std::error_code failed;
    if (!place.directory.empty() && (place.ring.empty() || fs::exists(place.directory, failed))) {
        list.addSegments(place.directory);
        list.addBoxes(place.directory, s_blackBoxes, "black box");
        list.addBoxes(place.directory, s_kept, "kept");
    }
    return list;
}

void RecordingList::measure(Row& row) {
    try {
        const RecordingFiles files = RecordingFiles::at(row.path);
        for (const std::string& path : files.segments)
            row.bytes += sizeOf(path);
        if (!files.ring.empty())
            row.bytes += sizeOf(files.ring);
        RecordingReader reader(files, {});
        RecordingStatistics statistics;
        // What is about the stream itself is no record of what happened.
        const stream::StreamFilter all;
        for (auto result = reader.next({}); result != stream::IStreamReader::EResult::End;
             result = reader.next({})) {
            if (result == stream::IStreamReader::EResult::Record &&
                all.matches(reader.record(), reader.names()))
                statistics.addRecord(reader);
        }
        row.records = statistics.records();
        row.from = statistics.from();
        row.to = statistics.to();
    } catch (const ControlError& error) {
        row.fault = error.what();
    }
}

void RecordingList::addRing(const std::string& path) {
    Row row;
    row.what = openRing(path)->isLive() ? "ring" : "ring of a host that has ended";
    row.path = path;
    measure(row);
    m_rows.push_back(row);
}

void RecordingList::addSegments(const std::string& directory) {
    std::string instance;
    for (const std::string& path : RecordingFiles::in(directory).segments) {
        try {
            // The heads of its frames say all that is told here.
            const auto pSegment = openSegment(path);
            if (m_rows.empty() || m_rows.back().what != "segments" || pSegment->instance() != instance) {
                m_rows.emplace_back();
                m_rows.back().what = "segments";
                m_rows.back().path = directory;
                m_rows.back().from = pSegment->firstTime();
                instance = pSegment->instance();
            }
            m_rows.back().records += pSegment->records();
            m_rows.back().bytes += sizeOf(path);
            m_rows.back().to = pSegment->lastTime();
        } catch (const ControlError& error) {
            m_rows.emplace_back();
            m_rows.back().what = "segment";
            m_rows.back().path = path;
            m_rows.back().fault = error.what();
        }
    }
}

void RecordingList::addBoxes(const std::string& directory, const char* pName, const char* pWhat) {
    std::vector<std::string> paths;
    std::error_code failed;
    for (fs::directory_iterator entry(directory + '/' + pName, failed), end; !failed && entry != end;
         entry.increment(failed))
        paths.push_back(entry->path().string());
    std::sort(paths.begin(), paths.end());
    for (const std::string& path : paths) {
        Row row;
        row.what = pWhat;
        row.path = path;
        measure(row);
        m_rows.push_back(row);
    }
}

void RecordingList::print(const Screen& screen) const {
    if (m_rows.empty()) {
        screen.out << "nothing has been recorded\n" << std::flush;
        return;
    }
    base::Table table({"what", "from", "to", "records", "size", "path"});
    for (const Row& row : m_rows) {
        const bool isEmpty = row.records == 0;
        table.addRow({row.what, isEmpty ? "-" : base::timeText(row.from),
                      isEmpty ? "-" : base::timeText(row.to), std::to_string(row.records),
                      sizeText(row.bytes), row.fault.empty() ? row.path : row.fault});
    }
    // A path that is cut opens nothing.
    base::Table::Look look = screen.look;
    look.width = 0;
    table.print(screen.out, look);
    screen.out << std::flush;
}

nlohmann::json RecordingList::json() const {
    nlohmann::json rows = nlohmann::json::array();
    for (const Row& row : m_rows) {
        nlohmann::json one{
            {"what", row.what}, {"path", row.path}, {"records", row.records}, {"bytes", row.bytes}};
        if (row.records > 0) {
            one["from"] = stream::utcText(row.from);
            one["to"] = stream::utcText(row.to);
        }
        if (!row.fault.empty())
            one["fault"] = row.fault;
        rows.push_back(std::move(one));
    }
    return rows;
}
