#pragma once

#include <string>

#include "JsonText.h"
#include "RecordedPast.h"
#include "StreamText.h"

/// A time in which something may be missing, as the API tells it: reason, from, to and text. Any thread.
inline void writeGap(JsonText& json, const char* reason, const RecordedPast::Span& span,
                     const std::string& text) {
    json.beginObject()
        .member("reason", std::string(reason))
        .member("from", stream::utcText(span.from))
        .member("to", stream::utcText(span.to))
        .member("text", text)
        .endObject();
}

inline void writeGap(JsonText& json, const RecordedPast::Hole& hole) {
    writeGap(json, inWords(hole.reason), {hole.from, hole.to}, explained(hole.reason));
}
