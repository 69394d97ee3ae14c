#pragma once

#include <string>
#include <vector>

#include "StreamReader.h"
#include "StreamRing.h"
#include "StreamText.h"

/// What stands in a ring now, as lines without their times, and without what is about the stream itself.
inline std::vector<std::string> recordedLines(const stream::StreamRing& ring) {
    const stream::StreamSource source(ring);
    std::string error;
    const auto pReader = stream::StreamReader::open(source, stream::StreamCursor::oldest(), error);
    std::vector<std::string> lines;
    while (pReader && pReader->next({}) == stream::IStreamReader::EResult::Record) {
        const stream::StreamRecord& record = pReader->record();
        if (record.kind == stream::EKind::Define || record.kind == stream::EKind::Counts)
            continue;
        const std::string line = stream::lineOf(record, pReader->names());
        lines.push_back(line.substr(line.find(' ') + 1));
    }
    return lines;
}
