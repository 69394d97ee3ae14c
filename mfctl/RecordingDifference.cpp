#include "RecordingDifference.h"

#include "StreamText.h"
#include "Table.h"

namespace {

using stream::EKind;

std::string howItIs(const stream::IStreamReader& reader) {
    const stream::StreamRecord& record = reader.record();
    const std::string text = stream::textOf(record, reader.names());
    switch (record.kind) {
        case EKind::Start:
            return "runs, " + text;
        case EKind::Exit:
            return "ended, " + text;
        default:
            return "hangs, " + text;
    }
}

}  // namespace

void RecordingDifference::change(const std::string& driver, const std::string& name, const std::string& now,
                                 bool isAfter) {
    Entry& entry = m_entries[{driver, name}];
    if (entry.now == now && !entry.isStale)
        return;
    entry.now = now;
    entry.isStale = false;
    if (isAfter) {
        ++entry.changes;
        return;
    }
    entry.before = now;
    entry.wasStale = false;
}

void RecordingDifference::setStale(const std::string& driver, bool isAfter) {
    for (auto entry = m_entries.lower_bound({driver, ""});
         entry != m_entries.end() && entry->first.first == driver; ++entry) {
        // How the driver is holds.
        if (entry->first.second.empty() || entry->second.now.empty() || entry->second.isStale)
            continue;
        entry->second.isStale = true;
        if (isAfter)
            ++entry->second.changes;
        else
            entry->second.wasStale = true;
    }
}

void RecordingDifference::forgetHost(bool isAfter) {
    for (auto& [what, entry] : m_entries) {
        if (entry.now.empty())
            continue;
        entry.now.clear();
        entry.isStale = false;
        if (isAfter)
            ++entry.changes;
        else
            entry.before.clear();
    }
}

void RecordingDifference::add(const stream::IStreamReader& reader) {
    const stream::StreamRecord& record = reader.record();
    const bool isAfter = record.time > m_from;
    // What a host had is gone with it.
    if (const std::string instance = reader.cursor().instance; instance != m_instance) {
        forgetHost(isAfter);
        m_instance = instance;
    }
    const std::string driver = reader.names().driver(record.driver());
    switch (record.kind) {
        case EKind::Text:
            change(driver, reader.names().key(record), '"' + record.text + '"', isAfter);
            break;
        case EKind::Float:
        case EKind::Int:
        case EKind::Bool:
        case EKind::Unset:
            change(driver, reader.names().key(record), stream::valueOf(record), isAfter);
            break;
        case EKind::Stale:
            setStale(driver, isAfter);
            break;
        case EKind::Start:
        case EKind::Exit:
        case EKind::Hang:
            change(driver, "", howItIs(reader), isAfter);
            break;
        default:
            break;
    }
}

std::string RecordingDifference::shown(const std::string& text, bool isStale) {
    if (text.empty())
        return "-";
    return text + (isStale ? " (stale)" : "");
}

bool RecordingDifference::isOther(const Entry& entry) {
    return shown(entry.before, entry.wasStale) != shown(entry.now, entry.isStale);
}

void RecordingDifference::print(const Screen& screen) const {
    base::Table table({"driver", "value", "before", "after", "changes"});
    std::size_t same = 0;
    for (const auto& [what, entry] : m_entries) {
        if (isOther(entry))
            table.addRow({what.first, what.second.empty() ? "(driver)" : what.second,
                          shown(entry.before, entry.wasStale), shown(entry.now, entry.isStale),
                          std::to_string(entry.changes)});
        else if (entry.changes > 0)
            ++same;
    }
    if (table.empty())
        screen.out << "nothing is otherwise\n";
    else
        table.print(screen.out, screen.look);
    if (same > 0)
        screen.out << same << " more changed meanwhile and " << (same == 1 ? "is" : "are") << " as before\n";
    screen.out << std::flush;
}

nlohmann::json RecordingDifference::json() const {
    nlohmann::json rows = nlohmann::json::array();
    for (const auto& [what, entry] : m_entries) {
        if (isOther(entry))
            rows.push_back({{"driver", what.first},
                            {"value", what.second},
                            {"before", shown(entry.before, entry.wasStale)},
                            {"after", shown(entry.now, entry.isStale)},
                            {"changes", entry.changes}});
    }
    return rows;
}
