#pragma once

#include <cstdint>
#include <string>

#include "IStreamReader.h"
#include "KeyNames.h"
#include "StreamRecord.h"

/// A record for people and for programs. What drivers and operators wrote is made printable; the text of a
/// record whose form is not the one of its kind is shown as it is. Any thread.
namespace stream {

/// "14:03:22.181123 AXIS1 value POSITION = 12.5", in local time, without an end of line; with the date before
/// it on demand.
std::string lineOf(const StreamRecord& record, const KeyNames& names, bool withDate = false);
std::string lineOf(const StreamGap& gap, bool withDate = false);
/// What the line has after time, driver and kind.
std::string textOf(const StreamRecord& record, const KeyNames& names);

/// One JSON object on one line, without an end of line: "number", "time" (UTC, microseconds), "kind",
/// "driver", and what the kind has. It is put at the end of what is there.
void appendJson(std::string& json, const StreamRecord& record, const KeyNames& names);
void appendJson(std::string& json, const StreamGap& gap);

/// Puts into such an object, which is not empty, the place of what comes after it: "cursor".
void addCursor(std::string& json, const StreamCursor& cursor);

/// What a record is about, as a filter sees it: the name of a value or event, the function of a FID, else its
/// text.
std::string subjectOf(const StreamRecord& record, const KeyNames& names);

/// What a value became or an event came with: "12.5", "true", the text as it is. Empty for all else.
std::string valueOf(const StreamRecord& record);

/// How many records a record of a gap says that are missing; 0 where it does not say.
std::uint64_t countOf(const StreamRecord& gap);

/// What a record of a gap says that is missing; its reason is the record's value, as docs/stream.md has it.
StreamGap keptGap(const StreamRecord& gap);

/// "2026-11-22T14:03:22.181123Z".
std::string utcText(Time time);

}  // namespace stream
