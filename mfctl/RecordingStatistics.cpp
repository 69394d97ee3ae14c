#include "RecordingStatistics.h"

#include <algorithm>

#include "AgeText.h"
#include "StreamText.h"
#include "Table.h"
#include "TimeText.h"

void RecordingStatistics::addRecord(const stream::IStreamReader& reader) {
    const stream::StreamRecord& record = reader.record();
    if (record.kind == stream::EKind::Gap) {
        ++m_gaps;
        m_missing += stream::countOf(record);
        return;
    }
    ++m_counts[{reader.names().driver(record.driver()), std::string(kindName(record.kind))}];
    m_from = m_records == 0 ? record.time : std::min(m_from, record.time);
    m_to = m_records == 0 ? record.time : std::max(m_to, record.time);
    ++m_records;
}

void RecordingStatistics::addGap(const stream::StreamGap& gap) {
    ++m_gaps;
    m_missing += gap.count;
}

void RecordingStatistics::print(const Screen& screen) const {
    if (m_records > 0) {
        base::Table table({"driver", "kind", "records"});
        for (const auto& [what, count] : m_counts)
            table.addRow({what.first, what.second, std::to_string(count)});
        table.print(screen.out, screen.look);
        screen.out << m_records << (m_records == 1 ? " record, " : " records, ") << base::timeText(m_from)
                   << " to " << base::timeText(m_to) << " (" << base::ageText(m_to - m_from) << ")\n";
    } else {
        screen.out << "no records\n";
    }
    if (m_gaps > 0)
        screen.out << m_gaps << (m_gaps == 1 ? " gap, " : " gaps, ") << m_missing
                   << (m_missing == 1 ? " record is missing" : " records are missing") << "\n";
    screen.out << std::flush;
}

nlohmann::json RecordingStatistics::json() const {
    nlohmann::json counts = nlohmann::json::array();
    for (const auto& [what, count] : m_counts)
        counts.push_back({{"driver", what.first}, {"kind", what.second}, {"records", count}});
    nlohmann::json all{{"records", m_records}, {"from", nullptr},      {"to", nullptr},
                       {"gaps", m_gaps},       {"missing", m_missing}, {"counts", std::move(counts)}};
    if (m_records > 0) {
        all["from"] = stream::utcText(m_from);
        all["to"] = stream::utcText(m_to);
    }
    return all;
}
