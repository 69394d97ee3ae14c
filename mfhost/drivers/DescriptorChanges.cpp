#include "DescriptorChanges.h"

#include <algorithm>
#include <map>

#include "Printable.h"

namespace {

using Record = DescriptorCatalogue::Record;

std::string announcement(const Record& record) {
    return record.file + " line " + std::to_string(record.line) + ": type " + base::quoted(record.type) +
           " in version " + base::quoted(record.version);
}

}  // namespace

DescriptorChanges DescriptorChanges::between(const DescriptorCatalogue& known,
                                             const DescriptorCatalogue& now) {
    std::map<std::string, std::vector<const Record*>> newRecords;
    std::set<std::string> filesWithKnown;
    DescriptorChanges changes;
    for (const Record& record : now.records()) {
        const Record* pKnown = known.find(record.type, record.version);
        if (!pKnown) {
            newRecords[record.file].push_back(&record);
            continue;
        }
        filesWithKnown.insert(record.file);
        const auto& records = known.records();
        if (std::none_of(records.begin(), records.end(),
                         [&](const Record& other) { return other.isSame(record); }))
            changes.needRestart.push_back(announcement(record) +
                                          " has changed, which needs a restart of the host");
    }
    for (const auto& [file, records] : newRecords) {
        if (!filesWithKnown.contains(file)) {
            changes.newFiles.insert(file);
            continue;
        }
        // Searched for once more, the file would bring what is known a second time.
        for (const Record* pRecord : records)
            changes.needRestart.push_back(
                announcement(*pRecord) +
                " is new beside what is known already, which needs a restart of the "
                "host, or a descriptor of its own");
    }
    return changes;
}
