#pragma once

#include <algorithm>
#include <cstring>
#include <utility>

#include "StreamEntry.h"
#include "StreamRecord.h"

namespace stream {

/// What follows a record's head, on its way into words and back.
struct StreamBody {
    std::size_t length = 0;
    std::uint64_t flags = 0;

    std::size_t words() const { return (length + 7) / 8; }

    /// Puts an entry's body there, at most layout::s_longestBodyWords, the last one filled up with zeros.
    /// What is too long is cut at its end.
    static StreamBody pack(const StreamEntry& entry, std::uint64_t* pWords) {
        StreamBody body;
        const auto& [first, second, third] = entry.texts;
        if (first.empty() && second.empty() && third.empty() && entry.keyText.empty() && entry.cause == 0)
            return body;
        char* const pBytes = reinterpret_cast<char*>(pWords);
        const auto put = [&](const void* pFrom, std::size_t count) {
            const std::size_t fitting = std::min(count, layout::s_longestBody - body.length);
            std::memcpy(pBytes + body.length, pFrom, fitting);
            body.length += fitting;
            if (fitting < count)
                body.flags |= layout::s_isCut;
        };
        if (entry.cause != 0) {
            body.flags |= layout::s_hasCause;
            put(&entry.cause, sizeof entry.cause);
        }
        if (!entry.keyText.empty()) {
            body.flags |= layout::s_hasKeyText;
            const auto length = static_cast<std::uint16_t>(std::min(entry.keyText.size(), s_longestKey));
            put(&length, sizeof length);
            put(entry.keyText.data(), length);
        }
        for (const std::string_view part : entry.texts) {
            if (!part.empty())
                put(part.data(), part.size());
        }
        const std::size_t end = (body.length + 7) / 8 * 8;
        std::memset(pBytes + body.length, 0, end - body.length);
        return body;
    }

    /// The record of a head's words 1 to 3 and these bytes, as many as the head says. False when they do not
    /// fit together; the record is of no use then.
    static bool unpack(std::uint64_t word1, std::uint64_t word2, std::uint64_t word3, const char* pBytes,
                       StreamRecord& record) {
        record.time = layout::timeOf(word1);
        record.kind = layout::kindOf(word1);
        record.number = layout::numberOf(word2);
        record.key = static_cast<std::uint32_t>(word3);
        record.value = static_cast<std::uint32_t>(word3 >> 32);
        record.cause = 0;
        record.keyText.clear();
        record.text.clear();
        const std::uint64_t flags = layout::flagsOf(word2);
        record.isCut = (flags & layout::s_isCut) != 0;
        std::size_t left = layout::lengthOf(word2);
        const auto take = [&](void* pTo, std::size_t count) {
            if (left < count)
                return false;
            std::memcpy(pTo, pBytes, count);
            pBytes += count;
            left -= count;
            return true;
        };
        if ((flags & layout::s_hasCause) != 0 && !take(&record.cause, sizeof record.cause))
            return false;
        if ((flags & layout::s_hasKeyText) != 0) {
            std::uint16_t length = 0;
            if (!take(&length, sizeof length) || left < length)
                return false;
            record.keyText.assign(pBytes, length);
            pBytes += length;
            left -= length;
        }
        if (left > 0)
            record.text.assign(pBytes, left);
        return true;
    }

    /// Longer than any state or event has.
    static constexpr std::size_t s_longestKey = 1024;
};

}  // namespace stream
